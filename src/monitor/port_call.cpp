#include "monitor/port_call.h"

#include <cstdint>

#include "base/owners.h"

namespace {

constexpr std::size_t kBuckets = 256;
constexpr DWORD kCallsPollMs = 10;

// A lock and a table that need no construction before the first use and no destruction behind the last.
SRWLOCK g_lock = SRWLOCK_INIT;
IniPort* g_pBuckets[kBuckets];

class TableLock {
 public:
  TableLock() noexcept { AcquireSRWLockExclusive(&g_lock); }
  ~TableLock() { ReleaseSRWLockExclusive(&g_lock); }
  TableLock(const TableLock&) = delete;
  TableLock& operator=(const TableLock&) = delete;
};

// Records are heap blocks, whose low address bits are all alike.
IniPort** LinkTo(const void* pPort) noexcept {
  const auto ullAddress = reinterpret_cast<std::uintptr_t>(pPort);
  IniPort** ppLink = &g_pBuckets[((ullAddress >> 4) ^ (ullAddress >> 12)) % kBuckets];
  while (*ppLink != nullptr && *ppLink != pPort) ppLink = &(*ppLink)->pNextInBucket;
  return ppLink;
}

}  // namespace

PortCall::PortCall(HANDLE hPort) noexcept {
  const TableLock lock;
  m_pIniPort = hPort != nullptr ? *LinkTo(hPort) : nullptr;
  if (m_pIniPort != nullptr) ++m_pIniPort->dwCallsInFlight;
}

PortCall::~PortCall() {
  if (m_pIniPort == nullptr) return;
  const TableLock lock;
  --m_pIniPort->dwCallsInFlight;
}

void AddPortHandle(IniPort* pIniPort) noexcept {
  const TableLock lock;
  IniPort** ppLink = LinkTo(pIniPort);
  if (*ppLink == nullptr) *ppLink = pIniPort;
}

IniPort* RemovePortHandle(HANDLE hPort) noexcept {
  IniPort* pIniPort = nullptr;
  {
    const TableLock lock;
    IniPort** ppLink = LinkTo(hPort);
    pIniPort = *ppLink;
    if (pIniPort == nullptr) return nullptr;
    *ppLink = pIniPort->pNextInBucket;
    pIniPort->pNextInBucket = nullptr;
  }
  const auto busy = [&] {
    const TableLock lock;
    return pIniPort->dwCallsInFlight != 0;
  };
  while (busy()) Sleep(kCallsPollMs);
  return pIniPort;
}

DWORD SignatureOf(HANDLE hPort) noexcept {
  DWORD dwSignature = 0;
  SIZE_T cbRead = 0;
  if (hPort == nullptr || !ReadProcessMemory(GetCurrentProcess(), hPort, &dwSignature, sizeof dwSignature, &cbRead))
    return 0;
  return dwSignature;
}
