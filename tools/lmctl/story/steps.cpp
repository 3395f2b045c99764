#include "tools/lmctl/story/steps.h"

#include <array>
#include <string_view>
#include <unordered_map>

namespace lmctl {
namespace {

// A routine, the levels of its line, and how the message begins, or what is in it.
struct Row {
  std::string_view routine;
  std::string_view levels;
  std::string_view mark;
  bool bInside;
  Step step;
};
constexpr bool kBegins = false;
constexpr bool kInside = true;

// By routine; of a routine's rows the first that fits counts.
constexpr Row kRows[] = {
    {"InitializePrintMonitor2", "I", "[ServerName:", kBegins, Step::MonitorLoaded},
    {"MonOpenPortEx", "I", "[Port:", kBegins, Step::PortOpened},
    {"CreatePortEntry", "I", "pIniPort:", kBegins, Step::PortMade},
    {"DeletePortEntry", "T", "pIniPort:", kBegins, Step::PortFreed},
    {"MonClosePort", "I", "(*pIniPort->fn.pfnClosePort)", kBegins, Step::PortClosed},
    {"MonStartDocPort", "I", "pszPrinterName:", kBegins, Step::Start},
    {"MonStartDocPort", "W", "ERROR_BUSY [pszPrinterName:", kBegins, Step::Busy},
    {"MonStartDocPort", "E", "OpenPrinter [err:", kBegins, Step::RefusedQueue},
    {"MonStartDocPort", "E", "(*pIniPort->fn.pfnStartDocPort)", kBegins, Step::RefusedByPort},
    {"MonStartDocPort", "E", "GetJob", kBegins, Step::RefusedUnknownJob},
    {"MonStartDocPort", "E", "pJob=null", kBegins, Step::RefusedMemory},
    {"MonStartDocPort", "E", "Memory Error", kBegins, Step::RefusedMemory},
    {"MonStartDocPort", "E", "pSdkMng is NULL.", kBegins, Step::RefusedLibrary},
    {"MonStartDocPort", "E", "ERROR_INVALID_PARAMETER", kBegins, Step::RefusedCall},
    {"IsUseSdkSrv", "T", "", kBegins, Step::StartTraced},
    {"CSdk::OpenAndLock", "E", "SDK_SET_LOCK [e:", kBegins, Step::RefusedLock},
    {"CSdk::OpenAndLock", "T", "", kBegins, Step::StartOnDevice},
    {"CSdk::Open", "E", "SDK OPEN [e:", kBegins, Step::RefusedOpen},
    {"CSdk::SetSyncComm", "E", "SDK_SYNC_COM [err:", kBegins, Step::RefusedSync},
    {"ThreadJobCanMon", "T", "dwJobId:", kBegins, Step::Watch},
    {"ThreadJobCanMon", "IE", "CANCEL,Status:", kBegins, Step::WatcherSawCancel},
    {"IsCancelJob", "T", "pIniPort:", kBegins, Step::AskedCancel},
    {"IsCancelJob", "I", "CANCEL,Status:", kBegins, Step::SawCancel},
    {"MonWritePort", "I", "[pszPortName:", kBegins, Step::Offer},
    {"MonWritePort", "T", "on SDK [pszPortName:", kBegins, Step::OnDevice},
    {"MonWritePort", "W", "Cancel job [", kBegins, Step::Dropped},
    {"MonWritePort", "I", "(*pIniPort->fn.pfnWritePort) [pszPortName:", kBegins, Step::PortTook},
    {"MonWritePort", "E", "(*pIniPort->fn.pfnWritePort) [pszPortName:", kBegins, Step::PortFailed},
    {"CheckRealCmd", "T", "pIniPort:", kBegins, Step::Inspect},
    {"CashWriteData", "E", "CashWriteData", kBegins, Step::NoMemory},
    {"CSdk::Send", "T", "cbBuf:", kBegins, Step::SendBegins},
    {"CSdk::Send", "I", "*pdwWritten:", kBegins, Step::SendTook},
    {"CSdk::Send", "W", "SDK DIRECTIO time out", kBegins, Step::SendShort},
    {"CSdk::Send", "E", "SDK DIRECTIO [e:", kBegins, Step::SendFailed},
    {"CSdk::Read", "T", "dwFlags:0x20", kBegins, Step::Drain},
    {"CSdk::Read", "T", "dwFlags:", kBegins, Step::Read},
    {"CSdk::Reset", "T", "", kBegins, Step::Reset},
    {"CSdk::UnlockJob", "E", "SDK_CLR_LOCK [e:", kBegins, Step::UnlockFailed},
    {"WaitExecRespAndStatus", "T", "dwRetSize:", kBegins, Step::Answer},
    {"WaitExecRespAndStatus", "T", "]Detected printable status", kInside, Step::Ready},
    {"WaitExecRespAndStatus", "W", "]Wait exec resp stopped [status:", kInside, Step::Stopped},
    {"WaitExecRespAndStatus", "E", "Fail to get exec resp. [OFFLINE]", kBegins, Step::Offline},
    {"WaitExecRespAndStatus", "T", "Wait online", kBegins, Step::NotConnected},
    {"WriteReprintChkData", "E", "Fail to get exec resp. [OFFLINE]", kBegins, Step::Offline},
    {"ReprintDumpData", "D", "ReprintDumpData() done.", kInside, Step::SentAgain},
    {"ReprintDumpData", "W", "[OFFLINE]", kInside, Step::ResendOffline},
    {"ConfirmJobEndAndReprint", "E", "ReprintDumpData ERROR_INVALID_PARAMETER", kBegins, Step::ResendImpossible},
    {"ConfirmJobEndAndReprint", "D", "Finish [WAIT_EXEC_AT_PRINT]", kBegins, Step::GaveUp},
    {"MonEndDocPort", "I", "(*pIniPort->fn.pfnEndDocPort) [pszPortName:", kBegins, Step::EndOnPort},
    {"SendJobLastPageEjected", "T", "[pIniPort:", kBegins, Step::LastPage},
};

using Rows = std::unordered_map<std::string_view, std::pair<const Row*, const Row*>>;

Rows RowsByRoutine() {
  Rows rows;
  for (const Row& row : kRows) {
    const auto [it, bNew] = rows.emplace(row.routine, std::pair(&row, &row + 1));
    if (!bNew) it->second.second = &row + 1;
  }
  return rows;
}

}  // namespace

Step StepOf(const LogLine& line) {
  static const Rows rows = RowsByRoutine();
  const auto it = rows.find(line.routine);
  if (it == rows.end()) return Step::None;
  for (const Row* pRow = it->second.first; pRow != it->second.second; ++pRow) {
    if (pRow->levels.find(line.cLevel) == std::string_view::npos) continue;
    if (pRow->bInside ? line.message.find(pRow->mark) == std::string_view::npos : !line.message.starts_with(pRow->mark))
      continue;
    const bool bNamesFirst = pRow->step == Step::Start || pRow->step == Step::PortMade;  // names may have brackets
    const std::size_t nOpen = line.message.rfind('[');
    const std::size_t nClose = line.message.rfind(']');
    const bool bClosed = nOpen == std::string_view::npos || (nClose != std::string_view::npos && nClose > nOpen);
    return bNamesFirst || bClosed ? pRow->step : Step::CutOff;
  }
  return Step::None;
}

}  // namespace lmctl
