#include "log/log.h"

#include <cstdarg>

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
