#include "base/open_path.h"

#include <winternl.h>

#include <atomic>
#include <cstring>
#include <cwchar>
#include <iterator>

#include "base/path_text.h"

namespace {

// Documented values that not every header brings.
constexpr ULONG kCompleteIfOplocked = 0x00000100;
constexpr ULONG kOpenReparsePoint = 0x00200000;
constexpr ULONG kOpenForBackup = 0x00004000;
constexpr ULONG kDeleteOnClose = 0x00001000;
constexpr ULONG kNonDirectory = 0x00000040;
constexpr ULONG kSynchronous = 0x00000020;
constexpr ULONG kOpen = 1, kCreate = 2, kOpenIf = 3;
constexpr ULONG_PTR kWasThere = 1;                   // FILE_OPENED
constexpr LONG kOplockBreakInProgress = 0x00000108;  // a success, with a handle
constexpr LONG kCannotBreakOplock = static_cast<LONG>(0xC0000909);
constexpr LONG kNameCollision = static_cast<LONG>(0xC0000035);

using PFN_NTCREATEFILE = LONG(WINAPI*)(PHANDLE, ACCESS_MASK, OBJECT_ATTRIBUTES*, IO_STATUS_BLOCK*, LARGE_INTEGER*,
                                       ULONG, ULONG, ULONG, ULONG, void*, ULONG);
using PFN_NTQUERYFILE = LONG(WINAPI*)(HANDLE, IO_STATUS_BLOCK*, void*, ULONG, ULONG);
using PFN_STATUSTOERROR = ULONG(WINAPI*)(LONG);

// The system's own open, which alone knows how not to wait.
struct NativeOpen {
  std::atomic<PFN_NTCREATEFILE> pfnCreate{nullptr};
  std::atomic<PFN_STATUSTOERROR> pfnError{nullptr};
  std::atomic<PFN_NTQUERYFILE> pfnQuery{nullptr};

  bool Find() noexcept {
    if (pfnCreate != nullptr && pfnError != nullptr) return true;
    const HMODULE hSystem = GetModuleHandleW(L"ntdll");
    if (hSystem == nullptr) return false;
    pfnQuery =
        reinterpret_cast<PFN_NTQUERYFILE>(reinterpret_cast<void*>(GetProcAddress(hSystem, "NtQueryInformationFile")));
    pfnCreate = reinterpret_cast<PFN_NTCREATEFILE>(reinterpret_cast<void*>(GetProcAddress(hSystem, "NtCreateFile")));
    pfnError =
        reinterpret_cast<PFN_STATUSTOERROR>(reinterpret_cast<void*>(GetProcAddress(hSystem, "RtlNtStatusToDosError")));
    return pfnCreate != nullptr && pfnError != nullptr;
  }
};
constinit NativeOpen g_native;

ULONG OptionsOf(DWORD dwFlags) noexcept {
  ULONG ulOptions = kSynchronous | kCompleteIfOplocked;
  ulOptions |= (dwFlags & FILE_FLAG_BACKUP_SEMANTICS) != 0 ? kOpenForBackup : kNonDirectory;
  if ((dwFlags & FILE_FLAG_OPEN_REPARSE_POINT) != 0) ulOptions |= kOpenReparsePoint;
  if ((dwFlags & FILE_FLAG_DELETE_ON_CLOSE) != 0) ulOptions |= kDeleteOnClose;
  return ulOptions;
}

// "C:\…" and "\\server\share\…" as the system's kernel names them.
bool MakeNativePath(const wchar_t* pszPath, PathText& path) noexcept {
  constexpr wchar_t kDevices[] = L"\\??\\";
  constexpr wchar_t kShares[] = L"\\??\\UNC\\";
  const bool bTwo = pszPath[0] == L'\\' && pszPath[1] == L'\\';
  const bool bDevice = bTwo && (pszPath[2] == L'?' || pszPath[2] == L'.') && pszPath[3] == L'\\';
  const wchar_t* pszRest = bDevice ? pszPath + 4 : bTwo ? pszPath + 2 : pszPath;
  return (bTwo && !bDevice ? path.Assign(kShares, std::size(kShares) - 1)
                           : path.Assign(kDevices, std::size(kDevices) - 1)) &&
         path.Append(pszRest);
}

UniqueHandle OpenNative(const wchar_t* pszPath, DWORD dwAccess, DWORD dwShare, DWORD dwDisposition,
                        DWORD dwFlags) noexcept {
  PathText path;
  if (!MakeNativePath(pszPath, path)) return nullptr;
  UNICODE_STRING name;
  name.Buffer = const_cast<wchar_t*>(path.Text());
  name.Length = static_cast<USHORT>(path.Length() * sizeof(wchar_t));
  name.MaximumLength = name.Length;
  SECURITY_QUALITY_OF_SERVICE quality = {sizeof quality, SecurityIdentification, SECURITY_DYNAMIC_TRACKING, TRUE};
  OBJECT_ATTRIBUTES attributes = {};
  attributes.Length = sizeof attributes;
  attributes.ObjectName = &name;
  attributes.Attributes = OBJ_CASE_INSENSITIVE;
  attributes.SecurityQualityOfService = &quality;
  IO_STATUS_BLOCK result = {};
  HANDLE hFile = nullptr;
  const ULONG ulDisposition = dwDisposition == CREATE_NEW ? kCreate : dwDisposition == OPEN_ALWAYS ? kOpenIf : kOpen;
  const LONG lStatus =
      g_native.pfnCreate.load()(&hFile, dwAccess | SYNCHRONIZE | FILE_READ_ATTRIBUTES, &attributes, &result, nullptr,
                                FILE_ATTRIBUTE_NORMAL, dwShare, ulDisposition, OptionsOf(dwFlags), nullptr, 0);
  UniqueHandle file(lStatus >= 0 ? hFile : nullptr);
  if (lStatus == kOplockBreakInProgress || lStatus == kCannotBreakOplock) {
    file.reset();
    SetLastError(ERROR_SHARING_VIOLATION);
  } else if (lStatus < 0) {
    SetLastError(lStatus == kNameCollision ? ERROR_FILE_EXISTS : g_native.pfnError.load()(lStatus));
  } else {
    SetLastError(ulDisposition == kOpenIf && result.Information == kWasThere ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  }
  return file;
}

}  // namespace

UniqueHandle OpenPath(const wchar_t* pszPath, DWORD dwAccess, DWORD dwShare, DWORD dwDisposition,
                      DWORD dwFlags) noexcept {
  if (g_native.Find()) return OpenNative(pszPath, dwAccess, dwShare, dwDisposition, dwFlags);
  const HANDLE hFile = CreateFileW(pszPath, dwAccess, dwShare, nullptr, dwDisposition,
                                   dwFlags | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
  return UniqueHandle(hFile != INVALID_HANDLE_VALUE ? hFile : nullptr);
}

bool FileIndexOf(HANDLE hFile, ULONGLONG& ullIndex) noexcept {
  constexpr ULONG kFileInternalInformation = 6;
  const PFN_NTQUERYFILE pfnQuery = g_native.pfnQuery;
  IO_STATUS_BLOCK result = {};
  return pfnQuery != nullptr && pfnQuery(hFile, &result, &ullIndex, sizeof ullIndex, kFileInternalInformation) == 0;
}

bool IsLink(HANDLE hFile, const FileFacts& facts) noexcept {
  if (!facts.HasReparsePoint()) return false;
  FILE_ATTRIBUTE_TAG_INFO tag = {};
  return !GetFileInformationByHandleEx(hFile, FileAttributeTagInfo, &tag, sizeof tag) ||
         IsNameSurrogate(tag.ReparseTag);
}
