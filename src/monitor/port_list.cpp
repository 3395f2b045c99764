#include "monitor/port_list.h"

#include <cwchar>
#include <memory>
#include <new>

#include "base/memory.h"
#include "base/owners.h"
#include "monitor/log_module.h"
#include "monitor/sdk_select.h"

CRITICAL_SECTION csMonitor;
IniPort* pIniFirstPort;
BYTE bySeqCounter;

IniPort* FindIniPort(const wchar_t* pszPortName) noexcept {
  LogT(L"pIniPort:0x%08x", LogAddress(pIniFirstPort));
  if (pszPortName == nullptr || *pszPortName == 0) return nullptr;
  IniPort* pIniPort = pIniFirstPort;
  while (pIniPort != nullptr && _wcsicmp(pIniPort->pszPortName, pszPortName) != 0) pIniPort = pIniPort->pNext;
  return pIniPort;
}

IniPort* CreatePortEntry(const wchar_t* pszPrinterName, const wchar_t* pszPortName) noexcept {
  HeapPtr<void> record(AllocZeroed(sizeof(IniPort)));
  HeapPtr<wchar_t> portName(DupWideString(pszPortName));
  HeapPtr<wchar_t> printerName(DupWideString(pszPrinterName));
  UniqueHandle hEvent(CreateEventW(nullptr, FALSE, TRUE, nullptr));
  LogI(L"pIniPort:0x%08x, pPortName:%s, pPrinterName:%s", LogAddress(record.get()), pszPortName, printerName.get());
  if (!printerName || !portName || !record || !hEvent) {
    LogE(L"Memory error [pIniPort:0x%08x, Port:%s, Printer:%s, hEvent:0x%08x]", LogAddress(record.get()), pszPortName,
         pszPrinterName, LogAddress(hEvent.get()));
    return nullptr;
  }
  auto* pIniPort = new (record.release()) IniPort{};
  pIniPort->signature = kPortSignature;
  pIniPort->pNext = pIniFirstPort;
  pIniPort->pPrinterName = printerName.release();
  pIniPort->pszPortName = portName.release();
  pIniPort->hEvent = hEvent.release();
  pIniFirstPort = pIniPort;
  return pIniPort;
}

static void FreeIniJobs(IniPort* pIniPort) noexcept {
  LogT(L"pIniPort:0x%08x", LogAddress(pIniPort));
  const SectionLock lock(csMonitor);
  IniJob* pIniJob = pIniPort->pIniJob;
  pIniPort->pIniJob = nullptr;
  while (pIniJob != nullptr) {
    IniJob* pNext = pIniJob->pNext != pIniJob ? pIniJob->pNext : nullptr;
    FreeIniJob(pIniJob);
    pIniJob = pNext;
  }
}

void DeletePortEntry(IniPort* pIniPort) noexcept {
  LogT(L"pIniPort:0x%08x,", LogAddress(pIniPort));
  IniPort** ppLink = &pIniFirstPort;
  while (*ppLink != nullptr && *ppLink != pIniPort) ppLink = &(*ppLink)->pNext;
  if (*ppLink == nullptr) {
    LogW(L"DeletePortEntry port not found");
    return;
  }
  *ppLink = pIniPort->pNext;
  pIniPort->pDevData = nullptr;
  FreeIniJobs(pIniPort);
  ReleaseMemory(pIniPort->reprintMng.pBuf);
  ReleaseMemory(pIniPort->pPrinterName);
  ReleaseMemory(pIniPort->pszPortName);
  CloseHandle(pIniPort->hEvent);
  FreeMngObj(&pIniPort->pSdkMng);
  pIniPort->signature = 0;  // a handle used after the close is refused for as long as the memory is not used anew
  std::destroy_at(pIniPort);
  ReleaseMemory(pIniPort);
}

void FreeIniJob(IniJob* pIniJob) noexcept {
  LogT(L"pIniJob:0x%08x", LogAddress(pIniJob));
  ReleaseMemory(pIniJob->pJob);
  if (pIniJob->hPrinter != nullptr) ClosePrinter(pIniJob->hPrinter);
  ReleaseMemory(pIniJob->pszJobDataPath);
  ReleaseMemory(pIniJob->pszJobFilePath);
  ReleaseMemory(pIniJob);
}

void SendLastPageEjectedForIniJob(IniPort* pIniPort, IniJob* pIniJob) noexcept {
  LogT(L"pIniPort:0x%08x, pIniJob:0x%08x", LogAddress(pIniPort), LogAddress(pIniJob));
  SetJobW(pIniJob->hPrinter, pIniJob->JobId, 0, nullptr, JOB_CONTROL_LAST_PAGE_EJECTED);
}

IniJob* FindIniJobFromJobId(IniPort* pIniPort, DWORD dwJobId, IniJob** ppPrev) noexcept {
  LogT(L"pIniPort:0x%08x, dwJobId:0x%08x", LogAddress(pIniPort), dwJobId);
  if (ppPrev == nullptr) return nullptr;
  *ppPrev = nullptr;
  IniJob* pMatch = nullptr;
  IniJob* pPrev = nullptr;
  for (IniJob* pCur = pIniPort->pIniJob; pCur != nullptr; pPrev = pCur, pCur = pCur->pNext) {
    if (pCur->JobId == dwJobId) {
      pMatch = pCur;
      *ppPrev = pPrev;
    }
    if (pCur == pCur->pNext) {
      LogW(L"pCur == pCur->pNext [pCur:0x%08x]", LogAddress(pCur));
      break;
    }
  }
  return pMatch;
}

void SendJobLastPageEjected(IniPort* pIniPort, DWORD dwValue) noexcept {
  LogT(L"[pIniPort:0x%08x, nValue:%d]", LogAddress(pIniPort), dwValue);
  const SectionLock lock(csMonitor);
  IniJob* pIniJob = nullptr;
  if (dwValue == ALL_JOBS) {
    pIniJob = pIniPort->pIniJob;
    pIniPort->pIniJob = nullptr;
  } else {
    IniJob* pPrev = nullptr;
    pIniJob = FindIniJobFromJobId(pIniPort, dwValue, &pPrev);
    if (pIniJob == nullptr) return;
    (pPrev != nullptr ? pPrev->pNext : pIniPort->pIniJob) = nullptr;
  }
  while (pIniJob != nullptr) {
    IniJob* pNext = pIniJob->pNext;
    if (pNext == pIniJob) {
      LogW(L"pIniJob==pIniJob->pNext [pIniJob:0x%08x]", LogAddress(pIniJob));
      pNext = nullptr;
    }
    SendLastPageEjectedForIniJob(pIniPort, pIniJob);
    FreeIniJob(pIniJob);
    pIniJob = pNext;
  }
}
