#include "log/log_object.h"

#include "log/assert.h"
#include "log/level.h"

namespace {

constexpr DWORD kTurnTimeoutMs = 1000;
constexpr LONGLONG kRotateAbove = 32'000'000;  // bytes

CInterface g_log;

}  // namespace

CInterface& LogObject() noexcept { return g_log; }

CInterface::CInterface() noexcept : m_hTurnEvent(CreateEventW(nullptr, FALSE, TRUE, nullptr)) {}

LogOutcome CInterface::CheckLogLevel(DWORD dwLevel) noexcept {
  if (!m_setting.LoadSetting()) return LogOutcome::Drop;
  const DWORD dwMask = m_setting.LevelMask();
  if ((dwMask & LOG_OFF) != 0) return LogOutcome::Drop;
  if ((dwLevel & dwMask) != 0) {
    if ((dwLevel & LOG_LEVEL_DUMP) == 0) return LogOutcome::Write;
    return (dwMask & 0x3000) != 0 ? LogOutcome::DumpBinary : LogOutcome::Dump;
  }
  return (dwMask & LOG_LEVEL_E) != 0 && (dwLevel & kTracedLevels) != 0 ? LogOutcome::Trace : LogOutcome::Drop;
}

void CInterface::OutputLogMessage(const LogCall& call, const wchar_t* pwszFormat, va_list args) noexcept {
  const DWORD dwTurn = WaitForSingleObject(m_hTurnEvent.get(), kTurnTimeoutMs);
  if (dwTurn != WAIT_OBJECT_0 && dwTurn != WAIT_TIMEOUT)
    Assert(".\\Interface", "CInterface::OutputLogMessage", 95, GetLastError());

  LogThreadBuffers buffers;
  SYSTEMTIME stLine;
  GetLocalTime(&stLine);
  m_logfile.NoteLineTime(stLine);
  const char* pszLine = CMessage::BuildLine(buffers, call, stLine, m_logfile.ModuleTag(), pwszFormat, args);

  LogFolder folder;
  if (m_logfile.CreateLogFolder(call.pszModule, folder)) {
    LogName name;
    MakeDayFileName(name, stLine);
    m_logStream.Open(buffers, folder.module, name);
    if ((call.dwLevel & LOG_LEVEL_E) != 0) m_logStream.Write(buffers, m_traceRing.Collect(buffers.szCollect));
    if (pszLine != nullptr) m_logStream.Write(buffers, pszLine);
    if (m_logStream.Close(buffers) > kRotateAbove) m_logfile.Rotate(folder.module, name, stLine);
  } else {
    Assert(".\\Interface", "CInterface::OutputLogMessage", 107, GetLastError());
  }
  SetEvent(m_hTurnEvent.get());
  PurgeOldLogs();
}
