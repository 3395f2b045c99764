// The process-wide log object: the level filter, and the way of one accepted call into the shared file.
#pragma once

#include <windows.h>

#include <cstdarg>

#include "base/owners.h"
#include "log/log_folder.h"
#include "log/log_message.h"
#include "log/log_settings.h"
#include "log/log_stream.h"
#include "log/trace_ring.h"

// What becomes of a call.
enum class LogOutcome { Drop = 0, Write = 1, DumpBinary = 2, Dump = 3, Trace = 4 };

// Constructed when the module is loaded, before its process-attach notification, and destroyed after process detach.
// Everything that a line needs (time stamp, file names, texts) belongs to the call that writes it, so a call that goes on
// without its turn disturbs no other.
class CInterface {
 public:
  CInterface() noexcept;
  ~CInterface() = default;
  CInterface(const CInterface&) = delete;
  CInterface& operator=(const CInterface&) = delete;

  // Chooses the module's log folder; called at process attach.
  void SetModuleFolder(const char* pszModule) noexcept { m_logfile.SetModuleFolder(pszModule); }

  // What becomes of a call of this level under the current mask. Has the settings brought up to date first.
  LogOutcome CheckLogLevel(DWORD dwLevel) noexcept;

  // Writes one line to the day's file, an E line with the trace records in front of it.
  void OutputLogMessage(const LogCall& call, const wchar_t* pwszFormat, va_list args) noexcept;

  void PurgeOldLogs() noexcept { m_logfile.PurgeOldLogs(m_setting.LifeDays()); }
  CTraceRing& Ring() noexcept { return m_traceRing; }
  CLogSetting& Setting() noexcept { return m_setting; }

 private:
  bool OpenFile(LogThreadBuffers& buffers, const char* pszModule, const LogName& name) noexcept;

  CLogSetting m_setting;
  CLogfile m_logfile;
  CLogStream m_logStream;
  CTraceRing m_traceRing;
  UniqueHandle m_hTurnEvent;  // auto-reset: the turn for one whole line; a call waits for it 1,000 ms at most
};

// The one instance of this process.
CInterface& LogObject() noexcept;
