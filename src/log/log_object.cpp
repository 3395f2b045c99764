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

// Opens the day's file: by its full path if it is the one that was found before, else from the root down. False: no line is to
// be written. Where the file cannot be had the line is held.
bool CInterface::OpenFile(LogThreadBuffers& buffers, const char* pszModule, const LogName& name) noexcept {
  PathText path;
  const bool bQuick = m_logfile.MakeFilePath(path, name);
  const bool bTurn = m_logStream.TakeTurn();
  if (bTurn && bQuick && m_logStream.OpenKnown(buffers, path.Text())) return true;
  LogFolder folder;
  const bool bFolder = m_logfile.CreateLogFolder(pszModule, folder);
  if (!bTurn) return bFolder;
  if (bFolder) {
    m_logStream.Open(buffers, folder.module, name);
  } else {
    m_logStream.GiveUp();
  }
  return bFolder;
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

  LogName name;
  MakeDayFileName(name, stLine);
  if (OpenFile(buffers, call.pszModule, name)) {
    if ((call.dwLevel & LOG_LEVEL_E) != 0) m_logStream.Write(buffers, m_traceRing.Collect(buffers.szCollect));
    if (pszLine != nullptr) m_logStream.Write(buffers, pszLine);
    if (m_logStream.Close(buffers) > kRotateAbove) m_logfile.Rotate(name, stLine);
  } else {
    Assert(".\\Interface", "CInterface::OutputLogMessage", 107, GetLastError());
  }
  SetEvent(m_hTurnEvent.get());
  PurgeOldLogs();
}
