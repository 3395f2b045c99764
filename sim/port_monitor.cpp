#include "sim/port_monitor.h"

#include <algorithm>

#include "sim/world.h"

namespace sim {
namespace {

constexpr DWORD kPollMs = 20;
constexpr DWORD kWriteTimeoutMs = 5000;

void NoteContext(const char* pszCall) {
  if (!IsImpersonating())
    World::Get().journal.Add(std::string("violation: port monitor's ") + pszCall + " in the spooler's context");
}

BOOL WINAPI PmOpenPort(HANDLE, LPWSTR pszName, PHANDLE phPort) {
  World& world = World::Get();
  const std::string strName = Narrow(pszName);
  world.journal.Add("port OpenPort " + strName);
  NoteContext("OpenPort");
  if (FaultHere("pfnOpenPort", ERROR_ACCESS_DENIED)) return FALSE;
  MonitorPort& port = world.portMonitor.Port(strName);
  if (port.dwRefuseOpen != 0) {
    SetLastError(port.dwRefuseOpen);
    return FALSE;
  }
  port.bOpen = true;
  *phPort = &port;
  return TRUE;
}

BOOL WINAPI PmStartDocPort(HANDLE hPort, LPWSTR, DWORD dwJobId, DWORD, LPBYTE) {
  auto& port = *static_cast<MonitorPort*>(hPort);
  World::Get().journal.Add(Format("port StartDocPort %s job=%u", port.strName.c_str(), static_cast<unsigned>(dwJobId)));
  NoteContext("StartDocPort");
  if (FaultHere("pfnStartDocPort", ERROR_BUSY)) return FALSE;
  if (port.dwRefuseStart == 0) return TRUE;
  SetLastError(port.dwRefuseStart);
  return FALSE;
}

BOOL WINAPI PmWritePort(HANDLE hPort, LPBYTE pBuf, DWORD cbBuf, LPDWORD pcbWritten) {
  auto& port = *static_cast<MonitorPort*>(hPort);
  *pcbWritten = 0;
  NoteContext("WritePort");
  if (FaultHere("pfnWritePort", ERROR_WRITE_FAULT)) return FALSE;
  if (port.nRefuseWrites > 0) {
    --port.nRefuseWrites;
    SetLastError(ERROR_WRITE_FAULT);
    return FALSE;
  }
  if (port.nZeroWrites > 0) {
    --port.nZeroWrites;
    return TRUE;
  }
  const DWORD cbMost = port.cbMostPerWrite != 0 ? std::min(port.cbMostPerWrite, cbBuf) : cbBuf;
  if (port.pPrinter == nullptr) {
    *pcbWritten = cbMost;
  } else {
    const DWORD dwStart = GetTickCount();
    while (*pcbWritten < cbMost && GetTickCount() - dwStart < kWriteTimeoutMs) {
      if (port.pPrinter->Reachable())
        *pcbWritten += static_cast<DWORD>(port.pPrinter->Accept(pBuf + *pcbWritten, cbMost - *pcbWritten));
      if (*pcbWritten < cbMost) Sleep(kPollMs);
    }
  }
  port.strDelivered.append(reinterpret_cast<char*>(pBuf), *pcbWritten);
  return TRUE;
}

BOOL WINAPI PmReadPort(HANDLE, LPBYTE, DWORD, LPDWORD pcbRead) {
  *pcbRead = 0;
  return TRUE;
}

BOOL WINAPI PmEndDocPort(HANDLE hPort) {
  World::Get().journal.Add("port EndDocPort " + static_cast<MonitorPort*>(hPort)->strName);
  NoteContext("EndDocPort");
  return TRUE;
}

BOOL WINAPI PmClosePort(HANDLE hPort) {
  auto& port = *static_cast<MonitorPort*>(hPort);
  port.bOpen = false;
  World::Get().journal.Add("port ClosePort " + port.strName);
  return TRUE;
}

BOOL WINAPI PmGetPrinterDataFromPort(HANDLE hPort, DWORD dwControlId, LPWSTR pszValue, LPWSTR, DWORD, LPWSTR, DWORD,
                                     LPDWORD) {
  const auto& port = *static_cast<MonitorPort*>(hPort);
  World::Get().journal.Add(Format("port GetPrinterDataFromPort %s control=%u value=%s", port.strName.c_str(),
                                  static_cast<unsigned>(dwControlId), Narrow(pszValue).c_str()));
  if (port.hHoldRequests != nullptr) WaitForSingleObject(port.hHoldRequests, INFINITE);
  return TRUE;
}

}  // namespace

MONITOR2 PortMonitor::MakeTable() {
  MONITOR2 table = {};
  table.cbSize = sizeof table;
  table.pfnOpenPort = PmOpenPort;
  table.pfnStartDocPort = PmStartDocPort;
  table.pfnWritePort = PmWritePort;
  table.pfnReadPort = PmReadPort;
  table.pfnEndDocPort = PmEndDocPort;
  table.pfnClosePort = PmClosePort;
  table.pfnGetPrinterDataFromPort = PmGetPrinterDataFromPort;
  return table;
}

MonitorPort& PortMonitor::Port(const std::string& strName) {
  const Guard guard(m_lock);
  auto& pPort = m_ports[strName];
  if (!pPort) {
    pPort = std::make_unique<MonitorPort>();
    pPort->strName = strName;
  }
  return *pPort;
}

MonitorPort* PortMonitor::FindPort(const std::string& strName) {
  const Guard guard(m_lock);
  const auto it = m_ports.find(strName);
  return it != m_ports.end() ? it->second.get() : nullptr;
}

}  // namespace sim
