#include "sim/spooler.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "sim/text.h"
#include "sim/world.h"

namespace sim {

Queue& Spooler::AddQueue(const Queue& queue) {
  const Guard guard(lock);
  auto& pQueue = m_queues[queue.strName];
  pQueue = std::make_unique<Queue>(queue);
  return *pQueue;
}

Queue* Spooler::FindQueue(const std::string& strName) {
  const Guard guard(lock);
  for (auto& [strKnown, pQueue] : m_queues)
    if (SameText(strKnown, strName)) return pQueue.get();
  return nullptr;
}

DataValue Spooler::Dword(DWORD dw) {
  DataValue value{REG_DWORD, std::vector<BYTE>(sizeof dw), 0};
  std::memcpy(value.bytes.data(), &dw, sizeof dw);
  return value;
}

DataValue Spooler::Text(const std::string& strText) {
  const WideString wide = Wide(strText);
  DataValue value{REG_SZ, std::vector<BYTE>((wide.size() + 1) * sizeof(wchar_t)), 0};
  std::memcpy(value.bytes.data(), wide.c_str(), value.bytes.size());
  return value;
}

DataValue Spooler::Bytes(std::vector<BYTE> bytes) { return {REG_BINARY, std::move(bytes), 0}; }

DWORD Spooler::NewJob(const std::string& strQueue, const std::string& strDatatype, const std::string& strDocument) {
  const Guard guard(lock);
  auto pJob = std::make_unique<Job>();
  pJob->dwId = m_dwNextJob++;
  pJob->strQueue = strQueue;
  pJob->strDatatype = strDatatype;
  pJob->strDocument = strDocument;
  const DWORD dwId = pJob->dwId;
  m_jobs[dwId] = std::move(pJob);
  return dwId;
}

Job* Spooler::FindJob(DWORD dwId) {
  const Guard guard(lock);
  const auto it = m_jobs.find(dwId);
  return it != m_jobs.end() ? it->second.get() : nullptr;
}

void Spooler::SetStatus(DWORD dwId, DWORD dwAdd) {
  const Guard guard(lock);
  const auto it = m_jobs.find(dwId);
  if (it == m_jobs.end()) return;
  it->second->dwStatus |= dwAdd;
  World::Get().journal.Add(
      Format("user changes job %u: 0x%x", static_cast<unsigned>(dwId), static_cast<unsigned>(dwAdd)),
      it->second->strQueue);
}

void Spooler::ClearStatus(DWORD dwId, DWORD dwRemove) {
  const Guard guard(lock);
  const auto it = m_jobs.find(dwId);
  if (it != m_jobs.end()) it->second->dwStatus &= ~dwRemove;
}

DWORD Spooler::StatusOf(DWORD dwId) {
  const Guard guard(lock);
  const auto it = m_jobs.find(dwId);
  return it != m_jobs.end() && !it->second->bGone ? it->second->dwStatus : JOB_STATUS_DELETED;
}

void Spooler::RemoveJob(DWORD dwId) {
  const Guard guard(lock);
  const auto it = m_jobs.find(dwId);
  if (it != m_jobs.end()) it->second->bGone = true;
}

void Spooler::ForgetJob(DWORD dwId) {
  const Guard guard(lock);
  m_jobs.erase(dwId);
}

bool Spooler::Call(const char* pszSlot, const std::function<BOOL()>& call) {
  constexpr DWORD kStale = 0x2BAD;
  SetLastError(kStale);
  if (call()) return true;
  const DWORD dwError = GetLastError();
  if (dwError == kStale || dwError == ERROR_SUCCESS)
    World::Get().journal.Add(std::string("violation: ") + pszSlot + " is refused without an error of its own");
  SetLastError(dwError);
  return false;
}

HANDLE Spooler::OpenPort(const std::string& strPort, const std::string& strPrinter) {
  const ActAsClient client;
  WideString port = Wide(strPort);
  WideString printer = Wide(strPrinter);
  HANDLE hPort = nullptr;
  const bool bOpened = Call("OpenPortEx", [&] {
    return pMonitor->pfnOpenPortEx(hMonitor, nullptr, port.data(), printer.data(), &hPort, pPortMonitor);
  });
  if (!bOpened) return nullptr;
  const Guard guard(lock);
  m_openPorts.insert(hPort);
  return hPort;
}

bool Spooler::ClosePort(HANDLE hPort) {
  {
    const Guard guard(lock);
    m_openPorts.erase(hPort);
  }
  const ActAsClient client;
  return Call("ClosePort", [&] { return pMonitor->pfnClosePort(hPort); });
}

void Spooler::CloseAllPorts() {
  while (!m_openPorts.empty()) ClosePort(*m_openPorts.begin());
}

bool Spooler::StartDoc(HANDLE hPort, DWORD dwJobId) {
  const ActAsClient client;
  std::string strQueue;
  std::string strDatatype;
  {
    const Guard guard(lock);
    strQueue = m_jobs.at(dwJobId)->strQueue;
    strDatatype = m_jobs.at(dwJobId)->strDatatype;
  }
  WideString printer = Wide(strQueue);
  WideString datatype = Wide(strDatatype);
  WideString document = Wide("receipt");
  DOC_INFO_1W info = {};
  info.pDocName = document.data();
  info.pDatatype = datatype.data();
  return Call("StartDocPort", [&] {
    return pMonitor->pfnStartDocPort(hPort, printer.data(), dwJobId, 1, reinterpret_cast<BYTE*>(&info));
  });
}

bool Spooler::EndDoc(HANDLE hPort) {
  const ActAsClient client;
  return Call("EndDocPort", [&] { return pMonitor->pfnEndDocPort(hPort); });
}

bool Spooler::Ask(HANDLE hPort, const std::string& strValue, DWORD dwControlId) {
  const ActAsClient client;
  WideString value = Wide(strValue);
  DWORD dwFlags = 0;
  DWORD cb = 0;
  return Call("GetPrinterDataFromPort", [&] {
    return pMonitor->pfnGetPrinterDataFromPort(hPort, dwControlId, value.data(), nullptr, 0,
                                               reinterpret_cast<wchar_t*>(&dwFlags), sizeof dwFlags, &cb);
  });
}

bool Spooler::Write(HANDLE hPort, std::vector<BYTE>& chunk, DWORD& cbWritten) {
  const ActAsClient client;
  return Call("WritePort", [&] {
    return pMonitor->pfnWritePort(hPort, chunk.data(), static_cast<DWORD>(chunk.size()), &cbWritten);
  });
}

PrintResult Spooler::Print(HANDLE hPort, DWORD dwJobId, const std::string& strData, const PrintOptions& options) {
  PrintResult result;
  result.bStarted = StartDoc(hPort, dwJobId);
  if (!result.bStarted) {
    result.dwError = GetLastError();
    result.nRefused = 1;
    return result;
  }
  std::vector<BYTE> chunk;
  unsigned nOffers = 0;
  while (result.ullDelivered < strData.size()) {
    if (options.onProgress) options.onProgress(result.ullDelivered);
    if (options.bStopWhenDeleted && (StatusOf(dwJobId) & JOB_STATUS_DELETING) != 0) break;
    const std::size_t cb = std::min<std::size_t>(options.cbChunk, strData.size() - result.ullDelivered);
    // The monitor may change the buffer in place; an offer that was not taken is repeated with the same buffer.
    if (chunk.empty())
      chunk.assign(strData.begin() + static_cast<std::ptrdiff_t>(result.ullDelivered),
                   strData.begin() + static_cast<std::ptrdiff_t>(result.ullDelivered + cb));
    DWORD cbWritten = 0xDDDDDDDD;  // what a caller happens to have there
    if (!Write(hPort, chunk, cbWritten)) {
      result.dwError = GetLastError();
      ++result.nRefused;
      break;
    }
    if (cbWritten > chunk.size()) World::Get().journal.Add("violation: WritePort takes more than it was given");
    if (cbWritten == 0) {
      ++result.nRefused;
      result.nMostOffers = std::max(result.nMostOffers, ++nOffers);
      Sleep(options.dwRetryMs);
      continue;
    }
    nOffers = 0;
    cbWritten = std::min(cbWritten, static_cast<DWORD>(chunk.size()));
    chunk.erase(chunk.begin(), chunk.begin() + cbWritten);
    result.ullDelivered += cbWritten;
  }
  if (options.onProgress) options.onProgress(result.ullDelivered);
  EndDoc(hPort);
  result.bDelivered = result.ullDelivered == strData.size();
  return result;
}

DWORD WINAPI Spooler::Running::Main(LPVOID pArgument) {
  auto& running = *static_cast<Running*>(pArgument);
  running.result = running.m_work();
  return 0;
}

PrintResult& Spooler::Running::Join() {
  if (m_hThread != nullptr) {
    WaitForSingleObject(m_hThread, INFINITE);
    CloseHandle(m_hThread);
    m_hThread = nullptr;
  }
  return result;
}

std::unique_ptr<Spooler::Running> Spooler::PrintAsync(HANDLE hPort, DWORD dwJobId, std::string strData,
                                                      PrintOptions options) {
  auto pRunning = std::make_unique<Running>();
  pRunning->m_work = [this, hPort, dwJobId, strData = std::move(strData), options = std::move(options)] {
    return Print(hPort, dwJobId, strData, options);
  };
  DWORD dwThreadId = 0;
  pRunning->m_hThread = CreateThread(nullptr, 0, Running::Main, pRunning.get(), 0, &dwThreadId);
  return pRunning;
}

namespace {

thread_local bool t_bClient = false;
std::atomic<unsigned> g_nClient{1};

void Impersonate(bool bClient) {
  t_bClient = bClient;
  ActFor(bClient ? g_nClient.load() : 0);
}

}  // namespace

bool IsImpersonating() { return t_bClient; }
void SetClient(unsigned nClient) { g_nClient = nClient; }
ActAsClient::ActAsClient() : m_bBefore(t_bClient) { Impersonate(true); }
ActAsClient::~ActAsClient() { Impersonate(m_bBefore); }

}  // namespace sim

extern "C" {

HANDLE WINAPI RevertToPrinterSelf() {
  if (sim::FaultHere("RevertToPrinterSelf", ERROR_NO_TOKEN)) return nullptr;
  if (!sim::t_bClient) return nullptr;
  sim::Impersonate(false);
  return reinterpret_cast<HANDLE>(0x70);
}

BOOL WINAPI ImpersonatePrinterClient(HANDLE hToken) {
  if (sim::FaultHere("ImpersonatePrinterClient", ERROR_ACCESS_DENIED)) return FALSE;
  if (hToken == nullptr) {
    SetLastError(ERROR_NO_TOKEN);
    return FALSE;
  }
  sim::Impersonate(true);
  return TRUE;
}

}  // extern "C"
