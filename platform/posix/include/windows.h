// The part of the documented Win32 API that this project calls, declared for POSIX systems.
// Types have their Windows sizes: DWORD is 32 bits wide, WCHAR 16 bits (the build uses -fshort-wchar).
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

static_assert(sizeof(wchar_t) == 2, "build with -fshort-wchar");

#define WINAPI
#define CALLBACK
#define APIENTRY
#define CONST const

typedef void VOID;
typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef void* HANDLE;
typedef HANDLE* PHANDLE;
typedef HANDLE* LPHANDLE;
typedef HANDLE HMODULE;
typedef HANDLE HINSTANCE;
typedef HANDLE HLOCAL;
typedef HANDLE HWND;
typedef struct HKEY__* HKEY;
typedef HKEY* PHKEY;
typedef struct SC_HANDLE__* SC_HANDLE;

typedef int BOOL;
typedef BOOL* LPBOOL;
typedef BOOL* PBOOL;
typedef uint8_t BYTE;
typedef BYTE* PBYTE;
typedef BYTE* LPBYTE;
typedef uint8_t UCHAR;
typedef BYTE BOOLEAN;
typedef uint16_t WORD;
typedef WORD* LPWORD;
typedef uint16_t USHORT;
typedef int16_t SHORT;
typedef uint32_t DWORD;
typedef DWORD* PDWORD;
typedef DWORD* LPDWORD;
typedef int32_t LONG;
typedef LONG* PLONG;
typedef uint32_t ULONG;
typedef ULONG* PULONG;
typedef int INT;
typedef unsigned int UINT;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef int64_t LONG64;
typedef uint64_t DWORD64;
typedef uintptr_t ULONG_PTR;
typedef uintptr_t UINT_PTR;
typedef uintptr_t DWORD_PTR;
typedef intptr_t INT_PTR;
typedef intptr_t LONG_PTR;
typedef size_t SIZE_T;
typedef DWORD ACCESS_MASK;
typedef DWORD REGSAM;
typedef LONG LSTATUS;

typedef char CHAR;
typedef char* LPSTR;
typedef char* PSTR;
typedef const char* LPCSTR;
typedef const char* PCSTR;
typedef wchar_t WCHAR;
typedef wchar_t* LPWSTR;
typedef wchar_t* PWSTR;
typedef const wchar_t* LPCWSTR;
typedef const wchar_t* PCWSTR;

#define TRUE 1
#define FALSE 0
#define MAX_PATH 260
#define INFINITE 0xFFFFFFFFu
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

#define ERROR_SUCCESS 0u
#define NO_ERROR 0u
#define ERROR_INVALID_FUNCTION 1u
#define ERROR_FILE_NOT_FOUND 2u
#define ERROR_PATH_NOT_FOUND 3u
#define ERROR_ACCESS_DENIED 5u
#define ERROR_INVALID_HANDLE 6u
#define ERROR_NOT_ENOUGH_MEMORY 8u
#define ERROR_INVALID_DATA 13u
#define ERROR_OUTOFMEMORY 14u
#define ERROR_NO_MORE_FILES 18u
#define ERROR_WRITE_FAULT 29u
#define ERROR_GEN_FAILURE 31u
#define ERROR_SHARING_VIOLATION 32u
#define ERROR_NOT_SUPPORTED 50u
#define ERROR_BAD_NETPATH 53u
#define ERROR_FILE_EXISTS 80u
#define ERROR_INVALID_PARAMETER 87u
#define ERROR_OPEN_FAILED 110u
#define ERROR_BUFFER_OVERFLOW 111u
#define ERROR_DISK_FULL 112u
#define ERROR_INSUFFICIENT_BUFFER 122u
#define ERROR_INVALID_NAME 123u
#define ERROR_MOD_NOT_FOUND 126u
#define ERROR_PROC_NOT_FOUND 127u
#define ERROR_NEGATIVE_SEEK 131u
#define ERROR_DIR_NOT_EMPTY 145u
#define ERROR_NOT_LOCKED 158u
#define ERROR_BUSY 170u
#define ERROR_ALREADY_EXISTS 183u
#define ERROR_FILENAME_EXCED_RANGE 206u
#define ERROR_MORE_DATA 234u
#define ERROR_NO_MORE_ITEMS 259u
#define ERROR_DIRECTORY 267u
#define ERROR_NOT_OWNER 288u
#define ERROR_OPERATION_ABORTED 995u
#define ERROR_NOACCESS 998u
#define ERROR_NO_TOKEN 1008u
#define ERROR_SERVICE_DOES_NOT_EXIST 1060u
#define ERROR_SERVICE_NOT_ACTIVE 1062u
#define ERROR_NO_UNICODE_TRANSLATION 1113u
#define ERROR_DEVICE_NOT_CONNECTED 1167u
#define ERROR_NOT_FOUND 1168u
#define ERROR_INVALID_SECURITY_DESCR 1338u
#define ERROR_TIMEOUT 1460u
#define RPC_S_SERVER_UNAVAILABLE 1722
#define ERROR_UNKNOWN_PORT 1796u
#define ERROR_INVALID_PRINTER_NAME 1801u
#define ERROR_INVALID_PRINTER_COMMAND 1803u
#define ERROR_PRINT_CANCELLED 63u

#define DLL_PROCESS_DETACH 0
#define DLL_PROCESS_ATTACH 1
#define DLL_THREAD_ATTACH 2
#define DLL_THREAD_DETACH 3

typedef struct _FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
} FILETIME, *PFILETIME, *LPFILETIME;

typedef struct _SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
} SYSTEMTIME, *PSYSTEMTIME, *LPSYSTEMTIME;

typedef union _LARGE_INTEGER {
  struct {
    DWORD LowPart;
    LONG HighPart;
  } u;
  LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef struct _SECURITY_ATTRIBUTES {
  DWORD nLength;
  LPVOID lpSecurityDescriptor;
  BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *PSECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

typedef struct _CRITICAL_SECTION {
  PVOID pState;
} CRITICAL_SECTION, *PCRITICAL_SECTION, *LPCRITICAL_SECTION;

typedef INT_PTR(WINAPI* FARPROC)();
typedef DWORD(WINAPI* LPTHREAD_START_ROUTINE)(LPVOID lpThreadParameter);

typedef struct _RTL_SRWLOCK {
  PVOID Ptr;
} SRWLOCK, *PSRWLOCK;
#define SRWLOCK_INIT \
  { nullptr }

#define HEAP_ZERO_MEMORY 0x00000008u

#define WAIT_OBJECT_0 0u
#define WAIT_ABANDONED 0x80u
#define STACK_SIZE_PARAM_IS_A_RESERVATION 0x00010000u
#define WAIT_TIMEOUT 258u
#define WAIT_FAILED 0xFFFFFFFFu
#define MAXIMUM_WAIT_OBJECTS 64

#define DELETE 0x00010000u
#define READ_CONTROL 0x00020000u
#define WRITE_DAC 0x00040000u
#define WRITE_OWNER 0x00080000u
#define SYNCHRONIZE 0x00100000u
#define STANDARD_RIGHTS_REQUIRED 0x000F0000u
#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u
#define GENERIC_EXECUTE 0x20000000u
#define GENERIC_ALL 0x10000000u
#define FILE_READ_DATA 0x0001u
#define FILE_WRITE_DATA 0x0002u
#define FILE_APPEND_DATA 0x0004u
#define FILE_LIST_DIRECTORY 0x0001u
#define FILE_TRAVERSE 0x0020u
#define FILE_READ_ATTRIBUTES 0x0080u
#define FILE_WRITE_ATTRIBUTES 0x0100u
#define FILE_SHARE_READ 0x1u
#define FILE_SHARE_WRITE 0x2u
#define FILE_SHARE_DELETE 0x4u
#define CREATE_NEW 1
#define CREATE_ALWAYS 2
#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4
#define TRUNCATE_EXISTING 5
#define FILE_ATTRIBUTE_READONLY 0x1u
#define FILE_ATTRIBUTE_DIRECTORY 0x10u
#define FILE_ATTRIBUTE_NORMAL 0x80u
#define FILE_ATTRIBUTE_REPARSE_POINT 0x400u
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu
#define FILE_FLAG_BACKUP_SEMANTICS 0x02000000u
#define FILE_FLAG_DELETE_ON_CLOSE 0x04000000u
#define FILE_FLAG_OPEN_REPARSE_POINT 0x00200000u
#define ERROR_FILE_INVALID 1006u
#define ERROR_CANT_ACCESS_FILE 1920u
#define SECURITY_SERVICE_ID_BASE_RID 80u
#define OWNER_SECURITY_INFORMATION 0x1u
#define VOLUME_NAME_NONE 0x4u
#define FILE_NAME_NORMALIZED 0x0u
#define FILE_NAME_OPENED 0x8u
#define SECURITY_SQOS_PRESENT 0x00100000u
#define SECURITY_IDENTIFICATION 0x00010000u
#define SECURITY_DYNAMIC_TRACKING 1
#define TOKEN_QUERY 0x0008u
#define SYMBOLIC_LINK_FLAG_DIRECTORY 0x1u
#define FILE_BEGIN 0
#define FILE_CURRENT 1
#define FILE_END 2
#define INVALID_SET_FILE_POINTER 0xFFFFFFFFu

typedef struct _WIN32_FIND_DATAW {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  WCHAR cFileName[MAX_PATH];
  WCHAR cAlternateFileName[14];
} WIN32_FIND_DATAW, *LPWIN32_FIND_DATAW;

typedef struct _BY_HANDLE_FILE_INFORMATION {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD dwVolumeSerialNumber;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD nNumberOfLinks;
  DWORD nFileIndexHigh;
  DWORD nFileIndexLow;
} BY_HANDLE_FILE_INFORMATION, *LPBY_HANDLE_FILE_INFORMATION;

typedef enum _FILE_INFO_BY_HANDLE_CLASS {
  FileBasicInfo = 0,
  FileStandardInfo = 1,
  FileRenameInfo = 3,
  FileDispositionInfo = 4,
  FileAttributeTagInfo = 9,
  FileDispositionInfoEx = 21
} FILE_INFO_BY_HANDLE_CLASS;
typedef struct _FILE_BASIC_INFO {
  LARGE_INTEGER CreationTime;
  LARGE_INTEGER LastAccessTime;
  LARGE_INTEGER LastWriteTime;
  LARGE_INTEGER ChangeTime;
  DWORD FileAttributes;
} FILE_BASIC_INFO;
typedef struct _FILE_STANDARD_INFO {
  LARGE_INTEGER AllocationSize;
  LARGE_INTEGER EndOfFile;
  DWORD NumberOfLinks;
  BOOLEAN DeletePending;
  BOOLEAN Directory;
} FILE_STANDARD_INFO;
typedef struct _FILE_ATTRIBUTE_TAG_INFO {
  DWORD FileAttributes;
  DWORD ReparseTag;
} FILE_ATTRIBUTE_TAG_INFO;
typedef enum _SECURITY_IMPERSONATION_LEVEL { SecurityAnonymous, SecurityIdentification } SECURITY_IMPERSONATION_LEVEL;
typedef struct _SECURITY_QUALITY_OF_SERVICE {
  DWORD Length;
  SECURITY_IMPERSONATION_LEVEL ImpersonationLevel;
  BYTE ContextTrackingMode;
  BYTE EffectiveOnly;
} SECURITY_QUALITY_OF_SERVICE;
typedef enum { WinLocalSystemSid = 22, WinBuiltinAdministratorsSid = 26 } WELL_KNOWN_SID_TYPE;

typedef struct _FILE_RENAME_INFO {
  BOOL ReplaceIfExists;
  HANDLE RootDirectory;
  DWORD FileNameLength;
  WCHAR FileName[1];
} FILE_RENAME_INFO;

typedef struct _FILE_DISPOSITION_INFO {
  BOOL DeleteFile;
} FILE_DISPOSITION_INFO;

#define CP_ACP 0u
#define CP_UTF8 65001u

#define PROCESSOR_ARCHITECTURE_INTEL 0
#define PROCESSOR_ARCHITECTURE_IA64 6
#define PROCESSOR_ARCHITECTURE_AMD64 9

typedef struct _SYSTEM_INFO {
  union {
    DWORD dwOemId;
    struct {
      WORD wProcessorArchitecture;
      WORD wReserved;
    };
  };
  DWORD dwPageSize;
  LPVOID lpMinimumApplicationAddress;
  LPVOID lpMaximumApplicationAddress;
  DWORD_PTR dwActiveProcessorMask;
  DWORD dwNumberOfProcessors;
  DWORD dwProcessorType;
  DWORD dwAllocationGranularity;
  WORD wProcessorLevel;
  WORD wProcessorRevision;
} SYSTEM_INFO, *LPSYSTEM_INFO;

#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000001u)))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000002u)))
#define KEY_QUERY_VALUE 0x0001u
#define KEY_SET_VALUE 0x0002u
#define KEY_CREATE_SUB_KEY 0x0004u
#define KEY_ENUMERATE_SUB_KEYS 0x0008u
#define KEY_ALL_ACCESS 0x000F003Fu
#define REG_OPTION_NON_VOLATILE 0u
#define REG_OPTION_VOLATILE 1u
#define REG_NONE 0u
#define REG_SZ 1u
#define REG_BINARY 3u
#define REG_DWORD 4u
#define REG_QWORD 11u

typedef PVOID PSID;
typedef PVOID PSECURITY_DESCRIPTOR;
typedef struct _ACL* PACL;

typedef struct _SID_IDENTIFIER_AUTHORITY {
  BYTE Value[6];
} SID_IDENTIFIER_AUTHORITY, *PSID_IDENTIFIER_AUTHORITY;

typedef struct _SECURITY_DESCRIPTOR {
  BYTE Revision;
  BYTE Sbz1;
  WORD Control;
  PSID Owner;
  PSID Group;
  PACL Sacl;
  PACL Dacl;
} SECURITY_DESCRIPTOR;

#define SECURITY_DESCRIPTOR_REVISION 1u
#define SECURITY_NT_AUTHORITY \
  { 0, 0, 0, 0, 0, 5 }
#define SECURITY_BUILTIN_DOMAIN_RID 0x20u
#define DOMAIN_ALIAS_RID_USERS 0x221u
#define DACL_SECURITY_INFORMATION 0x4u
typedef DWORD SECURITY_INFORMATION;

#define SC_MANAGER_CONNECT 0x0001u
#define SC_MANAGER_ENUMERATE_SERVICE 0x0004u
#define SERVICE_QUERY_STATUS 0x0004u
#define SERVICE_STOPPED 1u
#define SERVICE_START_PENDING 2u
#define SERVICE_STOP_PENDING 3u
#define SERVICE_RUNNING 4u
#define SERVICE_PAUSED 7u
#define SERVICES_ACTIVE_DATABASEW L"ServicesActive"

typedef struct _SERVICE_STATUS {
  DWORD dwServiceType;
  DWORD dwCurrentState;
  DWORD dwControlsAccepted;
  DWORD dwWin32ExitCode;
  DWORD dwServiceSpecificExitCode;
  DWORD dwCheckPoint;
  DWORD dwWaitHint;
} SERVICE_STATUS, *LPSERVICE_STATUS;

#define ZeroMemory(p, n) __builtin_memset((p), 0, (n))
#define MAKEINTRESOURCEA(i) (reinterpret_cast<LPSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(i))))

extern "C" {

// Thread error code.
DWORD WINAPI GetLastError();
VOID WINAPI SetLastError(DWORD dwErrCode);

// Memory.
HANDLE WINAPI GetProcessHeap();
LPVOID WINAPI HeapAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T dwBytes);
BOOL WINAPI HeapFree(HANDLE hHeap, DWORD dwFlags, LPVOID lpMem);
HLOCAL WINAPI LocalFree(HLOCAL hMem);
BOOL WINAPI ReadProcessMemory(HANDLE hProcess, LPCVOID lpBaseAddress, LPVOID lpBuffer, SIZE_T nSize,
                              SIZE_T* lpNumberOfBytesRead);

// Objects, threads, waits.
BOOL WINAPI CloseHandle(HANDLE hObject);
HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset, BOOL bInitialState,
                           LPCWSTR lpName);
BOOL WINAPI SetEvent(HANDLE hEvent);
BOOL WINAPI ResetEvent(HANDLE hEvent);
HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES lpMutexAttributes, BOOL bInitialOwner, LPCWSTR lpName);
BOOL WINAPI ReleaseMutex(HANDLE hMutex);
HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES lpThreadAttributes, SIZE_T dwStackSize,
                           LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter, DWORD dwCreationFlags,
                           LPDWORD lpThreadId);
DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);
DWORD WINAPI WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll, DWORD dwMilliseconds);
VOID WINAPI InitializeCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
VOID WINAPI EnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
VOID WINAPI LeaveCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
VOID WINAPI DeleteCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
VOID WINAPI AcquireSRWLockExclusive(PSRWLOCK SRWLock);
VOID WINAPI ReleaseSRWLockExclusive(PSRWLOCK SRWLock);
DWORD WINAPI GetCurrentProcessId();
DWORD WINAPI GetCurrentThreadId();
HANDLE WINAPI GetCurrentProcess();

// Time. The local time is the clock's time; there is no time zone.
VOID WINAPI Sleep(DWORD dwMilliseconds);
DWORD WINAPI GetTickCount();
VOID WINAPI GetLocalTime(LPSYSTEMTIME lpSystemTime);
BOOL WINAPI SystemTimeToFileTime(const SYSTEMTIME* lpSystemTime, LPFILETIME lpFileTime);
BOOL WINAPI FileTimeToSystemTime(const FILETIME* lpFileTime, LPSYSTEMTIME lpSystemTime);

// Files and folders.
HANDLE WINAPI CreateFileW(LPCWSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                          LPSECURITY_ATTRIBUTES lpSecurityAttributes, DWORD dwCreationDisposition,
                          DWORD dwFlagsAndAttributes, HANDLE hTemplateFile);
BOOL WINAPI ReadFile(HANDLE hFile, LPVOID lpBuffer, DWORD nNumberOfBytesToRead, LPDWORD lpNumberOfBytesRead,
                     LPVOID lpOverlapped);
BOOL WINAPI WriteFile(HANDLE hFile, LPCVOID lpBuffer, DWORD nNumberOfBytesToWrite, LPDWORD lpNumberOfBytesWritten,
                      LPVOID lpOverlapped);
DWORD WINAPI SetFilePointer(HANDLE hFile, LONG lDistanceToMove, PLONG lpDistanceToMoveHigh, DWORD dwMoveMethod);
BOOL WINAPI SetEndOfFile(HANDLE hFile);
BOOL WINAPI GetFileSizeEx(HANDLE hFile, PLARGE_INTEGER lpFileSize);
BOOL WINAPI SetFileTime(HANDLE hFile, const FILETIME* lpCreationTime, const FILETIME* lpLastAccessTime,
                        const FILETIME* lpLastWriteTime);
DWORD WINAPI GetFileAttributesW(LPCWSTR lpFileName);
BOOL WINAPI SetFileAttributesW(LPCWSTR lpFileName, DWORD dwFileAttributes);
BOOL WINAPI DeleteFileW(LPCWSTR lpFileName);
BOOL WINAPI MoveFileW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName);
BOOL WINAPI GetFileInformationByHandle(HANDLE hFile, LPBY_HANDLE_FILE_INFORMATION lpFileInformation);
DWORD WINAPI GetFinalPathNameByHandleW(HANDLE hFile, LPWSTR lpszFilePath, DWORD cchFilePath, DWORD dwFlags);
DWORD WINAPI GetFullPathNameW(LPCWSTR lpFileName, DWORD nBufferLength, LPWSTR lpBuffer, LPWSTR* lpFilePart);
BOOL WINAPI GetFileInformationByHandleEx(HANDLE hFile, FILE_INFO_BY_HANDLE_CLASS FileInformationClass,
                                         LPVOID lpFileInformation, DWORD dwBufferSize);
BOOL WINAPI SetFileInformationByHandle(HANDLE hFile, FILE_INFO_BY_HANDLE_CLASS FileInformationClass,
                                       LPVOID lpFileInformation, DWORD dwBufferSize);
BOOLEAN WINAPI CreateSymbolicLinkW(LPCWSTR lpSymlinkFileName, LPCWSTR lpTargetFileName, DWORD dwFlags);
BOOL WINAPI CreateHardLinkW(LPCWSTR lpFileName, LPCWSTR lpExistingFileName, LPSECURITY_ATTRIBUTES lpSecurityAttributes);
BOOL WINAPI CreateDirectoryW(LPCWSTR lpPathName, LPSECURITY_ATTRIBUTES lpSecurityAttributes);
BOOL WINAPI RemoveDirectoryW(LPCWSTR lpPathName);
HANDLE WINAPI FindFirstFileW(LPCWSTR lpFileName, LPWIN32_FIND_DATAW lpFindFileData);
BOOL WINAPI FindNextFileW(HANDLE hFindFile, LPWIN32_FIND_DATAW lpFindFileData);
BOOL WINAPI FindClose(HANDLE hFindFile);

// Text. CP_ACP is Windows-1252; a character that it lacks becomes "?".
int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWSTR lpWideCharStr, int cchWideChar,
                               LPSTR lpMultiByteStr, int cbMultiByte, LPCSTR lpDefaultChar, LPBOOL lpUsedDefaultChar);
int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                               LPWSTR lpWideCharStr, int cchWideChar);
VOID WINAPI OutputDebugStringW(LPCWSTR lpOutputString);

// Modules and system.
HMODULE WINAPI LoadLibraryW(LPCWSTR lpLibFileName);
BOOL WINAPI FreeLibrary(HMODULE hLibModule);
FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName);
HMODULE WINAPI GetModuleHandleW(LPCWSTR lpModuleName);
BOOL WINAPI DisableThreadLibraryCalls(HMODULE hLibModule);

// Registry.
LSTATUS WINAPI RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult);
LSTATUS WINAPI RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult);
LSTATUS WINAPI RegOpenCurrentUser(REGSAM samDesired, PHKEY phkResult);
LSTATUS WINAPI RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass, DWORD dwOptions,
                               REGSAM samDesired, const LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult,
                               LPDWORD lpdwDisposition);
LSTATUS WINAPI RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                                LPDWORD lpcbData);
LSTATUS WINAPI RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                                LPDWORD lpcbData);
LSTATUS WINAPI RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE* lpData,
                              DWORD cbData);
LSTATUS WINAPI RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName, LPDWORD lpReserved,
                             LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);
LSTATUS WINAPI RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName);
LSTATUS WINAPI RegDeleteTreeW(HKEY hKey, LPCWSTR lpSubKey);
LSTATUS WINAPI RegCloseKey(HKEY hKey);

// Security.
BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR pSecurityDescriptor, DWORD dwRevision);
BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR pSecurityDescriptor, BOOL bDaclPresent, PACL pDacl,
                                      BOOL bDaclDefaulted);
BOOL WINAPI AllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY pIdentifierAuthority, BYTE nSubAuthorityCount,
                                     DWORD nSubAuthority0, DWORD nSubAuthority1, DWORD nSubAuthority2,
                                     DWORD nSubAuthority3, DWORD nSubAuthority4, DWORD nSubAuthority5,
                                     DWORD nSubAuthority6, DWORD nSubAuthority7, PSID* pSid);
PVOID WINAPI FreeSid(PSID pSid);
BOOL WINAPI EqualSid(PSID pSid1, PSID pSid2);
BOOL WINAPI IsWellKnownSid(PSID pSid, WELL_KNOWN_SID_TYPE WellKnownSidType);
HANDLE WINAPI GetCurrentThread(VOID);
BOOL WINAPI OpenThreadToken(HANDLE ThreadHandle, DWORD DesiredAccess, BOOL OpenAsSelf, PHANDLE TokenHandle);

// Services: declared here, answered by the service manager that the program links.
SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR lpMachineName, LPCWSTR lpDatabaseName, DWORD dwDesiredAccess);
SC_HANDLE WINAPI OpenServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, DWORD dwDesiredAccess);
BOOL WINAPI QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus);
BOOL WINAPI CloseServiceHandle(SC_HANDLE hSCObject);

// C run-time routines of the platform. The wide formats follow its rules: "%s" is a wide text, "%S" a narrow one, and a
// result that fills the buffer exactly carries no terminator.
int _wcsicmp(const wchar_t* pszLeft, const wchar_t* pszRight);
int _wcsnicmp(const wchar_t* pszLeft, const wchar_t* pszRight, size_t nCount);
int _vsnwprintf(wchar_t* pszBuffer, size_t nCount, const wchar_t* pszFormat, va_list args);
int _snwprintf(wchar_t* pszBuffer, size_t nCount, const wchar_t* pszFormat, ...);

}  // extern "C"
