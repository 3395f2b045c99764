// Log calls that are off, trace records and written lines.
#include <cstring>
#include <vector>

#include "base/owners.h"
#include "bench/bare_line.h"
#include "bench/rows.h"
#include "common/job_archive.h"
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

// The calls that an archived buffer is described by.
struct BareArchive {
  BareArchive() {
    CreateDirectoryW(L"C:\\KelvaneBench", nullptr);
    CreateDirectoryW(L"C:\\KelvaneBench\\20261118", nullptr);
  }
  ~BareArchive() { sim::World::DeleteTree("C:\\KelvaneBench"); }
  BareArchive(const BareArchive&) = delete;
  BareArchive& operator=(const BareArchive&) = delete;
  static void Write(const BYTE* pBytes, DWORD cb) {
    const HANDLE hFile = CreateFileW(L"C:\\KelvaneBench\\20261118\\bare.prn", GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                     FILE_ATTRIBUTE_NORMAL, nullptr);
    if (SetFilePointer(hFile, 0, nullptr, FILE_END) > kMostBytes) {
      SetFilePointer(hFile, 0, nullptr, FILE_BEGIN);
      SetEndOfFile(hFile);
    }
    DWORD cbWritten = 0;
    WriteFile(hFile, pBytes, cb, &cbWritten, nullptr);
    CloseHandle(hFile);
  }
  static constexpr DWORD kMostBytes = 64'000'000;
};

// Natively and under Wine, whose system calls cost a round trip each.
#ifdef _WIN32
constexpr double kFileGoal = 1.20;
#else
constexpr double kFileGoal = 1.10;
#endif

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
      "written line", "the calls that it is described by", Goal::TimesAtMost, kFileGoal,
      [&] { bare.Write(strLine.data(), static_cast<DWORD>(strLine.size())); },
      [] { LogI(L"[pszPortName:%s, cbBuf:%d]", L"USB001", 16384); });
  Mask(0);

  const BareArchive archive;
  const std::vector<BYTE> buffer(64 * 1024, 'x');
  ArchivedFile file = {};
  DWORD cbArchived = 0;
  table.Time(
      "archived buffer of 64 KiB", "the calls that it is described by", Goal::TimesAtMost, kFileGoal,
      [&] { BareArchive::Write(buffer.data(), static_cast<DWORD>(buffer.size())); },
      [&] {
        constexpr wchar_t kFile[] = L"C:\\KelvaneBench\\20261118\\job.prn";
        cbArchived += static_cast<DWORD>(buffer.size());
        if (cbArchived > BareArchive::kMostBytes) {  // as the bare one begins anew
          const HANDLE hFile = CreateFileW(kFile, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
          SetEndOfFile(hFile);
          CloseHandle(hFile);
          cbArchived = 0;
        }
        gJob.OutputJobFile(kFile, buffer.data(), static_cast<DWORD>(buffer.size()), file);
      });
}

}  // namespace bench
