#include "log/log.h"

#include <cstdarg>
#include <cstdio>

#include "base/owners.h"
#include "log/log_object.h"

void OutputLogEx(DWORD dwLevel, const char* pszModule, const char* pszRoutine, const char* /*pszSourceFile*/, int nLine,
                 DWORD dwProcessId, DWORD dwThreadId, const wchar_t* pwszFormat, ...) noexcept {
  const KeepLastError keep;
  CInterface& log = LogObject();
  switch (log.CheckLogLevel(dwLevel)) {
    case LogOutcome::Drop: log.PurgeOldLogs(); break;
    case LogOutcome::Write: {
      if (pwszFormat == nullptr || *pwszFormat == 0) break;
      va_list args;
      va_start(args, pwszFormat);
      log.OutputLogMessage({dwLevel, pszModule, pszRoutine, nLine, dwProcessId, dwThreadId}, pwszFormat, args);
      va_end(args);
      break;
    }
    case LogOutcome::Trace: log.Ring().Push(dwProcessId, dwThreadId, pszRoutine, nLine); break;
    case LogOutcome::DumpBinary:
    case LogOutcome::Dump: Assert(".\\Log", "OutputLogEx", 59, GetLastError()); break;
  }
}

void Assert(const char* pszSourceFile, const char* pszRoutine, int nLine, DWORD dwSystemErrorCode) noexcept {
  const KeepLastError keep;
  char szText[512];
  std::snprintf(szText, sizeof szText, "Assert!! \r\nFile:%s(line:%d)/ %s\r\n(system error code :%d)", pszSourceFile,
                nLine, pszRoutine, static_cast<int>(dwSystemErrorCode));
  wchar_t wszText[512] = {};
  MultiByteToWideChar(CP_ACP, 0, szText, -1, wszText, 512);
  OutputDebugStringW(wszText);
}
