// Log calls that are off, trace records and written lines.
#include <shlobj.h>

#include <cstring>

#include "base/owners.h"
#include "bench/rows.h"
#include "log/log_folder.h"
#include "monitor/log_module.h"
#include "sim/world.h"

namespace bench {
namespace {

// The mask is read again every 15 seconds: the process-wide settings are brought up to date by hand.
void Mask(DWORD dwMask) {
  sim::World::SetLogLevel(dwMask);
  g_logGate.dwLoadTick = GetTickCount() - kLogReloadMs;
  LogE(L"%s", L"the mask changes");
}

volatile DWORD g_dwSink;

void SwitchedOff(Table& table, const char* pszWhat, DWORD dwMask) {
  Mask(dwMask);
  table.Time(
      pszWhat, "one GetTickCount call", Goal::TimesAtMost, 2,
      [] {
        for (int n = 0; n < 1000; ++n) g_dwSink = GetTickCount();
      },
      [] {
        for (int n = 0; n < 1000; ++n) LogT(L"[pszPortName:%s, cbBuf:%d]", L"USB001", n);
      },
      1000);
}

// What a written line asks of the system, and nothing else: three folders held open without links, the file checked by its
// handle, appended to and closed, under the machine-wide mutex.
struct BareLine {
  BareLine() {
    wchar_t wszData[MAX_PATH];
    SHGetSpecialFolderPathW(nullptr, wszData, CSIDL_COMMON_APPDATA, FALSE);
    const std::string strData = sim::Narrow(wszData);
    folders[0] = sim::Wide(strData + "\\Kelvane");
    folders[1] = sim::Wide(strData + "\\Kelvane\\Logs");
    folders[2] = sim::Wide(strData + "\\Kelvane\\Logs\\PrinterDriver");
    file = folders[2] + L"\\bare.txt";
    hMutex = CreateMutexW(nullptr, FALSE, L"Global\\Kelvane_SDK_LOGS2");
    hTurn = CreateEventW(nullptr, FALSE, TRUE, nullptr);
    InitializeCriticalSection(&cs);
  }
  ~BareLine() {
    CloseHandle(hMutex);
    CloseHandle(hTurn);
    DeleteCriticalSection(&cs);
    DeleteFileW(file.c_str());
  }
  void Write(const char* pBytes, DWORD cb) {
    WaitForSingleObject(hTurn, INFINITE);
    SYSTEMTIME st;
    GetLocalTime(&st);
    BY_HANDLE_FILE_INFORMATION information;
    HANDLE ahFolders[3];
    EnterCriticalSection(&cs);
    for (int n = 0; n < 3; ++n) {
      ahFolders[n] =
          CreateFileW(folders[n].c_str(), FILE_TRAVERSE | FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                      nullptr, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
      GetFileInformationByHandle(ahFolders[n], &information);
    }
    LeaveCriticalSection(&cs);
    WaitForSingleObject(hMutex, 60'000);
    GetTickCount();
    const HANDLE hFile = CreateFileW(file.c_str(), GENERIC_WRITE | FILE_READ_ATTRIBUTES, 0, nullptr, OPEN_ALWAYS,
                                     FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    wchar_t wszFinal[300];
    GetFileInformationByHandle(hFile, &information);
    GetFinalPathNameByHandleW(hFile, wszFinal, 300, VOLUME_NAME_NONE);
    GetTickCount();
    SetFilePointer(hFile, 0, nullptr, FILE_END);
    DWORD cbWritten = 0;
    WriteFile(hFile, pBytes, cb, &cbWritten, nullptr);
    LARGE_INTEGER cbFile;
    GetFileSizeEx(hFile, &cbFile);
    CloseHandle(hFile);
    ReleaseMutex(hMutex);
    for (const HANDLE hFolder : ahFolders) CloseHandle(hFolder);
    SetEvent(hTurn);
  }
  sim::WideString folders[3];
  sim::WideString file;
  HANDLE hMutex;
  HANDLE hTurn;
  CRITICAL_SECTION cs;
};

}  // namespace

void LogRows(Table& table) {
  sim::World world;
  world.Attach();
  SwitchedOff(table, "switched-off log call, mask 0", 0);
  SwitchedOff(table, "switched-off log call, mask 0x80000000", LOG_OFF | LOG_LEVEL_E);

  Mask(LOG_LEVEL_E);
  CRITICAL_SECTION cs;
  InitializeCriticalSection(&cs);
  table.Time(
      "trace record", "GetLocalTime and an uncontended critical section", Goal::TimesAtMost, 2,
      [&] {
        for (int n = 0; n < 1000; ++n) {
          SYSTEMTIME st;
          GetLocalTime(&st);
          EnterCriticalSection(&cs);
          LeaveCriticalSection(&cs);
          g_dwSink = st.wMilliseconds;
        }
      },
      [] {
        for (int n = 0; n < 1000; ++n) LogT(L"[pszPortName:%s, cbBuf:%d]", L"USB001", n);
      },
      1000);
  DeleteCriticalSection(&cs);

  Mask(LOG_LEVEL_I);
  LogI(L"%s", L"the file is there");
  BareLine bare;
  const std::string strLine(110, 'x');
  table.Time(
      "written line", "the same system calls, bare", Goal::TimesAtMost, 1.15,
      [&] { bare.Write(strLine.data(), static_cast<DWORD>(strLine.size())); },
      [] { LogI(L"[pszPortName:%s, cbBuf:%d]", L"USB001", 16384); });
  Mask(0);
}

}  // namespace bench
