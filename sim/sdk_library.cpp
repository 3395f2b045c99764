#include "sim/sdk_library.h"

#include <algorithm>

#include "sim/spooler.h"
#include "sim/text.h"

namespace sim {
namespace {

constexpr DWORD kDevicePollMs = 20;
// Job data comes with this time-out, requests to the printer with a shorter one.
constexpr DWORD kDataTimeoutMs = 90'000;

}  // namespace

SdkLibrary::~SdkLibrary() {
  for (auto& [pPrinter, pDevice] : m_devices) CloseHandle(pDevice->hCancel);
}

void SdkLibrary::Connect(const std::string& strQueue, Printer& printer) {
  const Guard guard(m_lock);
  auto& pDevice = m_devices[&printer];
  if (!pDevice) pDevice = std::make_unique<Device>();
  if (pDevice->hCancel == nullptr) pDevice->hCancel = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  pDevice->pPrinter = &printer;
  m_queues[strQueue] = pDevice.get();
}

void SdkLibrary::Answer(const std::string& strRequest, DWORD dwCode, unsigned nTimes) {
  const Guard guard(m_lock);
  m_plans[strRequest] = {dwCode, nTimes};
}

bool SdkLibrary::Planned(const std::string& strRequest, DWORD& dwCode) {
  const Guard guard(m_lock);
  const auto it = m_plans.find(strRequest);
  if (it == m_plans.end() || it->second.nTimes == 0) return false;
  --it->second.nTimes;
  dwCode = it->second.dwCode;
  return true;
}

std::string SdkLibrary::DataOnWire(const std::string& strQueue) const {
  const Guard guard(m_lock);
  const auto it = m_wire.find(strQueue);
  return it != m_wire.end() ? it->second : std::string();
}

std::size_t SdkLibrary::OpenSessions() const {
  const Guard guard(m_lock);
  return m_sessions.size();
}

std::size_t SdkLibrary::HeldLocks() const {
  const Guard guard(m_lock);
  std::size_t n = 0;
  for (const auto& [pPrinter, pDevice] : m_devices) n += pDevice->dwLockedBy != 0 ? 1 : 0;
  return n;
}

SdkLibrary::Session SdkLibrary::SessionOf(DWORD dwSession) {
  const Guard guard(m_lock);
  const auto it = m_sessions.find(dwSession);
  return it != m_sessions.end() ? it->second : Session{};
}

void SdkLibrary::NoteOwner(const Device& device, DWORD dwSession, const std::string& strRequest) {
  const Guard guard(m_lock);
  if (device.dwLockedBy != dwSession) m_journal.Add("violation: " + strRequest + " without the device's lock");
}

DWORD SdkLibrary::OpenW(const wchar_t* pszPrinter, DWORD* pdwSession) {
  const std::string strPrinter = Narrow(pszPrinter);
  m_journal.Add(Format("sdk OpenW %s options=0x%x", strPrinter.c_str(), static_cast<unsigned>(*pdwSession)),
                strPrinter);
  if (IsImpersonating()) m_journal.Add("violation: OpenW impersonating the client");
  if (m_dwOpenDelay != 0) Sleep(m_dwOpenDelay);
  DWORD dwCode = 0;
  if (Planned("OpenW", dwCode)) return dwCode;
  if (const DWORD dwFault = FaultCode("sdk OpenW", ERROR_GEN_FAILURE)) return dwFault;
  const Guard guard(m_lock);
  const auto it = m_queues.find(strPrinter);
  if (it == m_queues.end()) return ERROR_FILE_NOT_FOUND;
  *pdwSession = m_dwNextSession++;
  m_sessions[*pdwSession] = {it->second, strPrinter};
  return ERROR_SUCCESS;
}

DWORD SdkLibrary::Close(DWORD dwSession) {
  m_journal.Add(IsImpersonating() ? "sdk Close as the client" : "sdk Close", SessionOf(dwSession).strQueue);
  DWORD dwCode = 0;
  if (Planned("Close", dwCode)) return dwCode;
  if (const DWORD dwFault = FaultCode("sdk Close", ERROR_GEN_FAILURE)) return dwFault;
  const Guard guard(m_lock);
  const auto it = m_sessions.find(dwSession);
  if (it == m_sessions.end()) return ERROR_INVALID_HANDLE;
  if (it->second.pDevice->dwLockedBy == dwSession) it->second.pDevice->dwLockedBy = 0;
  m_sessions.erase(it);
  return ERROR_SUCCESS;
}

DWORD SdkLibrary::SetLock(Device& device, DWORD dwSession, DWORD dwTimeoutMs) {
  const DWORD dwStart = GetTickCount();
  while (true) {
    {
      const Guard guard(m_lock);
      if (device.dwLockedBy == 0 || device.dwLockedBy == dwSession) {
        device.dwLockedBy = dwSession;
        return ERROR_SUCCESS;
      }
    }
    if (GetTickCount() - dwStart >= dwTimeoutMs) return ERROR_TIMEOUT;
    Sleep(kDevicePollMs);
  }
}

DWORD SdkLibrary::Send(Device& device, const std::string& strQueue, const BYTE* pIn, DWORD cbIn, DWORD* pdwWritten,
                       DWORD dwTimeoutMs) {
  ResetEvent(device.hCancel);
  m_journal.Add(Format("transfer begins timeout=%u", static_cast<unsigned>(dwTimeoutMs)), strQueue);
  const DWORD cbMost = m_cbMostPerSend != 0 ? std::min(m_cbMostPerSend, cbIn) : cbIn;
  const DWORD dwStart = GetTickCount();
  DWORD cbDone = 0;
  DWORD dwCode = ERROR_SUCCESS;
  while (cbDone < cbMost) {
    if (!device.pPrinter->Reachable()) {
      dwCode = ERROR_DEVICE_NOT_CONNECTED;
      break;
    }
    cbDone += static_cast<DWORD>(device.pPrinter->Accept(pIn + cbDone, cbMost - cbDone));
    if (cbDone == cbMost) break;
    const DWORD dwElapsed = GetTickCount() - dwStart;
    if (dwElapsed >= dwTimeoutMs) {
      dwCode = ERROR_TIMEOUT;
      break;
    }
    if (WaitForSingleObject(device.hCancel, std::min(kDevicePollMs, dwTimeoutMs - dwElapsed)) == WAIT_OBJECT_0) {
      dwCode = ERROR_OPERATION_ABORTED;
      break;
    }
  }
  if (dwCode == ERROR_SUCCESS && cbDone < cbIn) dwCode = ERROR_TIMEOUT;
  *pdwWritten = cbDone + m_cbSurplus;
  const Guard guard(m_lock);
  if (dwTimeoutMs == kDataTimeoutMs) m_wire[strQueue].append(reinterpret_cast<const char*>(pIn), cbDone);
  return dwCode;
}

DWORD SdkLibrary::DevIoCtrl(DWORD dwSession, const wchar_t* pszRequest, const BYTE* pIn, DWORD cbIn, DWORD* pdwWritten,
                            BYTE* pOut, DWORD cbOut, DWORD* pdwValue, DWORD dwTimeoutMs) {
  const std::string strRequest = pszRequest != nullptr ? Narrow(pszRequest) : "send";
  const bool bRead = strRequest.starts_with("GET_RAW_DATA");
  const Session session = SessionOf(dwSession);
  if (!bRead && strRequest != "send") {
    std::string strEntry = Format("sdk %s timeout=%u", strRequest.c_str(), static_cast<unsigned>(dwTimeoutMs));
    if (strRequest == "SDK_SET_LOCK")
      strEntry += Format(" value=0x%x", static_cast<unsigned>(pdwValue != nullptr ? *pdwValue : 0));
    if (strRequest == "SDK_SYNC_COM")
      strEntry += Format(" setting=%s length=%u", Narrow(reinterpret_cast<const wchar_t*>(pIn)).c_str(),
                         static_cast<unsigned>(cbIn));
    m_journal.Add(strEntry, session.strQueue);
  }
  if (strRequest == "send") m_journal.Add("send is called", session.strQueue);
  DWORD dwCode = 0;
  if (Planned(strRequest, dwCode)) return dwCode;
  if (const DWORD dwFault = FaultCode(("sdk " + strRequest).c_str(), ERROR_GEN_FAILURE)) return dwFault;
  Device* pDevice = session.pDevice;
  if (pDevice == nullptr) return ERROR_INVALID_HANDLE;
  if (strRequest == "send" || strRequest == "SDK_SET_RESET") NoteOwner(*pDevice, dwSession, strRequest);
  // Device work is done in the spooler's own context; only a device may be released as the client.
  if (IsImpersonating() && strRequest != "SDK_CLR_LOCK")
    m_journal.Add("violation: " + strRequest + " impersonating the client");
  if (strRequest == "send" && m_nEmptySends != 0) return --m_nEmptySends % 2 == 0 ? ERROR_SUCCESS : ERROR_TIMEOUT;
  if (strRequest == "send") {
    dwCode = Send(*pDevice, session.strQueue, pIn, cbIn, pdwWritten, dwTimeoutMs);
    m_journal.Add(
        Format("sdk send %u/%u timeout=%u code=%u", static_cast<unsigned>(*pdwWritten), static_cast<unsigned>(cbIn),
               static_cast<unsigned>(dwTimeoutMs), static_cast<unsigned>(dwCode)),
        session.strQueue);
    return dwCode;
  }
  if (bRead) {
    *pdwValue = 0;
    if (!pDevice->pPrinter->Reachable()) return ERROR_DEVICE_NOT_CONNECTED;
    *pdwValue = static_cast<DWORD>(pDevice->pPrinter->TakeAnswers(pOut, cbOut));
    return ERROR_SUCCESS;
  }
  if (strRequest == "SDK_SET_LOCK") return SetLock(*pDevice, dwSession, dwTimeoutMs);
  if (strRequest == "SDK_CLR_LOCK") {
    const Guard guard(m_lock);
    if (pDevice->dwLockedBy != dwSession) return ERROR_NOT_LOCKED;
    pDevice->dwLockedBy = 0;
    return ERROR_SUCCESS;
  }
  if (strRequest == "SDK_CANCEL_IO_EX") {
    SetEvent(pDevice->hCancel);
    return ERROR_SUCCESS;
  }
  if (strRequest == "SDK_SET_RESET") {
    if (!pDevice->pPrinter->Reachable()) return ERROR_DEVICE_NOT_CONNECTED;
    pDevice->pPrinter->Reset();
    return ERROR_SUCCESS;
  }
  if (strRequest == "SDK_SYNC_COM") return ERROR_SUCCESS;
  return ERROR_INVALID_FUNCTION;
}

}  // namespace sim
