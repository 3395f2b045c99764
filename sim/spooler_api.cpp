// The spooler routines that the monitor calls, answered by the simulated world.
#include <algorithm>
#include <cstring>
#include <set>

#include "sim/world.h"

using namespace sim;

namespace {

// What a printer handle stands for: a queue, or the configuration channel of a port.
struct PrinterHandle {
  Queue* pQueue = nullptr;
  MonitorPort* pXcvPort = nullptr;
  ACCESS_MASK access = 0;
};

std::set<PrinterHandle*>& Handles() {
  static std::set<PrinterHandle*> handles;  // guarded by the spooler's lock
  return handles;
}

PrinterHandle* HandleOf(HANDLE hPrinter) {
  auto* pHandle = static_cast<PrinterHandle*>(hPrinter);
  const Guard guard(World::Get().spooler.lock);
  if (Handles().count(pHandle) != 0) return pHandle;
  SetLastError(ERROR_INVALID_HANDLE);
  return nullptr;
}

// Builds an information record with its texts behind it, by the buffer-size protocol of the spooler.
template <class Info>
class Record {
 public:
  void Text(LPWSTR Info::*pField, const std::string& strText) { m_texts.push_back({pField, Wide(strText)}); }
  Info info = {};

  BOOL Deliver(BYTE* pBuf, DWORD cbBuf, DWORD* pcbNeeded) {
    std::size_t cb = sizeof(Info);
    for (const auto& [pField, text] : m_texts) cb += (text.size() + 1) * sizeof(wchar_t);
    *pcbNeeded = static_cast<DWORD>(cb);
    if (pBuf == nullptr || cbBuf < cb) {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    BYTE* pText = pBuf + sizeof(Info);
    for (const auto& [pField, text] : m_texts) {
      const std::size_t cbText = (text.size() + 1) * sizeof(wchar_t);
      std::memcpy(pText, text.c_str(), cbText);
      info.*pField = reinterpret_cast<LPWSTR>(pText);
      pText += cbText;
    }
    std::memcpy(pBuf, &info, sizeof info);
    return TRUE;
  }

 private:
  std::vector<std::pair<LPWSTR Info::*, WideString>> m_texts;
};

BOOL Fail(DWORD dwError) {
  SetLastError(dwError);
  return FALSE;
}

}  // namespace

extern "C" {

BOOL WINAPI OpenPrinterW(LPWSTR pszName, LPHANDLE phPrinter, LPPRINTER_DEFAULTSW pDefaults) {
  if (FaultHere("OpenPrinterW", ERROR_INVALID_PRINTER_NAME)) return FALSE;
  World& world = World::Get();
  const std::string strName = Narrow(pszName);
  PrinterHandle handle;
  constexpr char kXcv[] = ",XcvPort ";
  if (strName.starts_with(kXcv)) {
    world.journal.Add("OpenPrinter " + strName);
    handle.pXcvPort = world.portMonitor.FindPort(strName.substr(sizeof kXcv - 1));
    if (handle.pXcvPort == nullptr) return Fail(ERROR_INVALID_PRINTER_NAME);
  } else {
    handle.pQueue = world.spooler.FindQueue(strName);
    if (handle.pQueue == nullptr) return Fail(ERROR_INVALID_PRINTER_NAME);
    if (pDefaults != nullptr) handle.access = pDefaults->DesiredAccess;
    if (IsImpersonating() && (handle.access & PRINTER_ACCESS_ADMINISTER) != 0)
      world.journal.Add("violation: OpenPrinter to administer, impersonating the client");
  }
  auto* pHandle = new PrinterHandle(handle);
  const Guard guard(world.spooler.lock);
  Handles().insert(pHandle);
  Book(Owned::PrinterHandle, 1);
  *phPrinter = pHandle;
  return TRUE;
}

BOOL WINAPI ClosePrinter(HANDLE hPrinter) {
  const Guard guard(World::Get().spooler.lock);
  auto* pHandle = static_cast<PrinterHandle*>(hPrinter);
  if (Handles().erase(pHandle) == 0) return Fail(ERROR_INVALID_HANDLE);
  Book(Owned::PrinterHandle, -1);
  delete pHandle;
  return TRUE;
}

BOOL WINAPI GetJobW(HANDLE hPrinter, DWORD dwJobId, DWORD dwLevel, LPBYTE pBuf, DWORD cbBuf, LPDWORD pcbNeeded) {
  *pcbNeeded = 0;
  if (FaultHere("GetJobW", ERROR_INVALID_PARAMETER)) return FALSE;
  if (HandleOf(hPrinter) == nullptr) return FALSE;
  Spooler& spooler = World::Get().spooler;
  Job job;
  {
    const Job* pJob = spooler.FindJob(dwJobId);
    const Guard guard(spooler.lock);
    if (pJob == nullptr || pJob->bGone) return Fail(ERROR_INVALID_PARAMETER);
    job = *pJob;
  }
  constexpr DWORD kOver = JOB_STATUS_DELETING | JOB_STATUS_DELETED | JOB_STATUS_RESTART;
  if (dwLevel == 1 && pBuf != nullptr && (job.dwStatus & kOver) != 0)
    World::Get().journal.Add(Format("GetJob %u tells of its deletion", static_cast<unsigned>(dwJobId)), job.strQueue);
  const auto fill = [&](auto& record) {
    using Info = std::remove_reference_t<decltype(record.info)>;
    record.info.JobId = job.dwId;
    record.info.Status = job.dwStatus;
    record.Text(&Info::pPrinterName, job.strQueue);
    record.Text(&Info::pDocument, job.strDocument);
    record.Text(&Info::pDatatype, job.strDatatype);
    return record.Deliver(pBuf, cbBuf, pcbNeeded);
  };
  if (dwLevel == 1) {
    Record<JOB_INFO_1W> record;
    return fill(record);
  }
  Record<JOB_INFO_2W> record;
  return fill(record);
}

BOOL WINAPI SetJobW(HANDLE hPrinter, DWORD dwJobId, DWORD, LPBYTE, DWORD dwCommand) {
  if (FaultHere("SetJobW", ERROR_ACCESS_DENIED)) return FALSE;
  if (HandleOf(hPrinter) == nullptr) return FALSE;
  World& world = World::Get();
  Job* pJob = world.spooler.FindJob(dwJobId);
  const Guard guard(world.spooler.lock);
  if (pJob == nullptr || pJob->bGone) return Fail(ERROR_INVALID_PARAMETER);
  if (dwCommand == JOB_CONTROL_SENT_TO_PRINTER) {
    ++pJob->nSentToPrinter;
    if (pJob->nLastPageEjected >= pJob->nSentToPrinter)
      world.journal.Add("violation: sent-to-printer after last-page-ejected");
    world.journal.Add(Format("SetJob %u sent-to-printer", static_cast<unsigned>(dwJobId)), pJob->strQueue);
  } else if (dwCommand == JOB_CONTROL_LAST_PAGE_EJECTED) {
    ++pJob->nLastPageEjected;
    world.journal.Add(Format("SetJob %u last-page-ejected", static_cast<unsigned>(dwJobId)), pJob->strQueue);
  } else {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  return TRUE;
}

BOOL WINAPI GetPrinterW(HANDLE hPrinter, DWORD, LPBYTE pBuf, DWORD cbBuf, LPDWORD pcbNeeded) {
  *pcbNeeded = 0;
  if (FaultHere("GetPrinterW", ERROR_ACCESS_DENIED)) return FALSE;
  const PrinterHandle* pHandle = HandleOf(hPrinter);
  if (pHandle == nullptr || pHandle->pQueue == nullptr) return Fail(ERROR_INVALID_HANDLE);
  Record<PRINTER_INFO_2W> record;
  const Guard guard(World::Get().spooler.lock);
  const Queue& queue = *pHandle->pQueue;
  record.Text(&PRINTER_INFO_2W::pPrinterName, queue.strName);
  record.Text(&PRINTER_INFO_2W::pPortName, queue.strPort);
  record.Text(&PRINTER_INFO_2W::pDriverName, queue.strDriver);
  if (!queue.strShare.empty()) record.Text(&PRINTER_INFO_2W::pShareName, queue.strShare);
  record.info.Attributes = queue.dwAttributes;
  return record.Deliver(pBuf, cbBuf, pcbNeeded);
}

BOOL WINAPI SetPrinterW(HANDLE hPrinter, DWORD, LPBYTE pBuf, DWORD) {
  if (FaultHere("SetPrinterW", ERROR_ACCESS_DENIED)) return FALSE;
  const PrinterHandle* pHandle = HandleOf(hPrinter);
  if (pHandle == nullptr || pHandle->pQueue == nullptr) return Fail(ERROR_INVALID_HANDLE);
  if ((pHandle->access & PRINTER_ACCESS_ADMINISTER) == 0) return Fail(ERROR_ACCESS_DENIED);
  const auto& info = *reinterpret_cast<PRINTER_INFO_2W*>(pBuf);
  World& world = World::Get();
  const Guard guard(world.spooler.lock);
  pHandle->pQueue->strShare = Narrow(info.pShareName);
  pHandle->pQueue->dwAttributes = info.Attributes;
  world.journal.Add("SetPrinter " + pHandle->pQueue->strName + " share=" + pHandle->pQueue->strShare);
  if (IsImpersonating()) world.journal.Add("violation: SetPrinter impersonating the client");
  return TRUE;
}

DWORD WINAPI GetPrinterDataW(HANDLE hPrinter, LPWSTR pszValue, LPDWORD pdwType, LPBYTE pData, DWORD cbData,
                             LPDWORD pcbNeeded) {
  *pcbNeeded = 0;
  if (const DWORD dwFault = FaultCode("GetPrinterDataW", ERROR_ACCESS_DENIED)) return dwFault;
  const PrinterHandle* pHandle = HandleOf(hPrinter);
  if (pHandle == nullptr || pHandle->pQueue == nullptr) return ERROR_INVALID_HANDLE;
  const Guard guard(World::Get().spooler.lock);
  const auto it = pHandle->pQueue->data.find(Narrow(pszValue));
  if (it == pHandle->pQueue->data.end()) return ERROR_FILE_NOT_FOUND;
  const DataValue& value = it->second;
  if (pdwType != nullptr) *pdwType = value.dwType;
  const auto cb = static_cast<DWORD>(value.bytes.size());
  *pcbNeeded = pData == nullptr && value.cbReported != 0 ? value.cbReported : cb;
  if (pData == nullptr || cbData < cb) return ERROR_MORE_DATA;
  std::copy(value.bytes.begin(), value.bytes.end(), pData);
  return ERROR_SUCCESS;
}

// Answers "GetConfigInfo" for standard TCP/IP ports; other port monitors do not know the request.
BOOL WINAPI XcvDataW(HANDLE hXcv, PCWSTR pszRequest, PBYTE pIn, DWORD cbIn, PBYTE pOut, DWORD cbOut, PDWORD pcbNeeded,
                     PDWORD pdwStatus) {
  *pcbNeeded = 0;
  *pdwStatus = ERROR_SUCCESS;
  if (FaultHere("XcvDataW", ERROR_ACCESS_DENIED)) return FALSE;
  const PrinterHandle* pHandle = HandleOf(hXcv);
  if (pHandle == nullptr || pHandle->pXcvPort == nullptr) return Fail(ERROR_INVALID_HANDLE);
  const bool bKnown = Narrow(pszRequest) == "GetConfigInfo" && pHandle->pXcvPort->nProtocol != 0;
  if (!bKnown) {
    *pdwStatus = ERROR_INVALID_PARAMETER;
    return TRUE;
  }
  if (cbIn != sizeof(CONFIG_INFO_DATA_1) || reinterpret_cast<CONFIG_INFO_DATA_1*>(pIn)->dwVersion != 1 ||
      cbOut < sizeof(PORT_DATA_1)) {
    *pdwStatus = ERROR_INVALID_DATA;
    return TRUE;
  }
  reinterpret_cast<PORT_DATA_1*>(pOut)->dwProtocol = static_cast<DWORD>(pHandle->pXcvPort->nProtocol);
  return TRUE;
}

}  // extern "C"
