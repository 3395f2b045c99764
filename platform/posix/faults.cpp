// Fault points, the thread's error code and the accounts of what is open.
#include "scheduler.h"

#include <cstring>

namespace w32 {
namespace {

thread_local DWORD t_dwLastError = 0;
thread_local bool t_bSubject = false;

struct CallPlan {
  std::string strApi;
  unsigned nTimes = 0;
  unsigned nSkip = 0;
  DWORD dwError = 0;
  DWORD dwDelayMs = 0;  // not 0: the call only takes so long
};

// One lock for the plans; a point takes it only while something is planned or counted.
struct Plans {
  std::mutex mutex;
  std::atomic<bool> bActive{false};
  std::uint64_t ullPassed = 0;
  std::uint64_t ullFailAt = 0;
  unsigned nPerMille = 0;
  std::vector<CallPlan> calls;
  std::string strLastFailed;
};

Plans& ThePlans() {
  static Plans* pPlans = new Plans;
  return *pPlans;
}

std::array<std::atomic<int>, static_cast<std::size_t>(Account::Count)> g_balance;

}  // namespace

bool SubjectToFaults() { return t_bSubject; }

FaultsOn::FaultsOn(bool bOn) noexcept : m_bBefore(t_bSubject) { t_bSubject = bOn; }
FaultsOn::~FaultsOn() { t_bSubject = m_bBefore; }

void ResetFaults() noexcept {
  Plans& plans = ThePlans();
  const LayerLock lock(plans.mutex);
  plans.ullPassed = 0;
  plans.ullFailAt = 0;
  plans.nPerMille = 0;
  plans.calls.clear();
  plans.strLastFailed.clear();
  plans.bActive = true;
}

std::uint64_t FaultPointsPassed() noexcept {
  Plans& plans = ThePlans();
  const LayerLock lock(plans.mutex);
  return plans.ullPassed;
}

void FailPoint(std::uint64_t ullPoint) noexcept {
  Plans& plans = ThePlans();
  const LayerLock lock(plans.mutex);
  plans.ullFailAt = ullPoint;
  plans.bActive = true;
}

void FailCalls(const char* pszApi, unsigned nTimes, unsigned nSkip, DWORD dwError) noexcept {
  Plans& plans = ThePlans();
  const LayerLock lock(plans.mutex);
  plans.calls.push_back(CallPlan{pszApi, nTimes, nSkip, dwError, 0});
  plans.bActive = true;
}

void SlowCall(const char* pszApi, DWORD dwMilliseconds, unsigned nSkip) noexcept {
  Plans& plans = ThePlans();
  const LayerLock lock(plans.mutex);
  plans.calls.push_back(CallPlan{pszApi, 1, nSkip, 0, dwMilliseconds});
  plans.bActive = true;
}

void FailRandomly(unsigned nPerMille) noexcept {
  Plans& plans = ThePlans();
  const LayerLock lock(plans.mutex);
  plans.nPerMille = nPerMille;
  plans.bActive = true;
}

std::string LastFailedApi() {
  Plans& plans = ThePlans();
  const LayerLock lock(plans.mutex);
  return plans.strLastFailed;
}

DWORD FaultCode(const char* pszApi, DWORD dwUsualError) noexcept {
  Plans& plans = ThePlans();
  if (!t_bSubject || !plans.bActive.load(std::memory_order_relaxed)) return ERROR_SUCCESS;
  const LayerLock lock(plans.mutex);
  ++plans.ullPassed;
  bool bFail = plans.ullPassed == plans.ullFailAt;
  DWORD dwError = dwUsualError;
  for (CallPlan& call : plans.calls) {
    if (call.nTimes == 0 || call.strApi != pszApi) continue;
    if (call.nSkip > 0) {
      --call.nSkip;
      continue;
    }
    --call.nTimes;
    if (call.dwDelayMs != 0) {
      AdvanceClock(call.dwDelayMs);
      continue;
    }
    bFail = true;
    if (call.dwError != 0) dwError = call.dwError;
    break;
  }
  if (!bFail && plans.nPerMille > 0) bFail = Scheduler::Get().Random() % 1000 < plans.nPerMille;
  if (!bFail) return ERROR_SUCCESS;
  plans.strLastFailed = pszApi;
  return dwError;
}

bool FaultHere(const char* pszApi, DWORD dwUsualError) noexcept {
  const DWORD dwError = FaultCode(pszApi, dwUsualError);
  if (dwError != ERROR_SUCCESS) t_dwLastError = dwError;
  return dwError != ERROR_SUCCESS;
}

const char* AccountName(Account account) noexcept {
  static constexpr const char* kNames[] = {
      "handles",       "threads",      "critical sections", "heap blocks",     "local blocks",   "SIDs",
      "registry keys", "find handles", "modules",           "printer handles", "service handles"};
  return kNames[static_cast<std::size_t>(account)];
}

void Book(Account account, int nChange) noexcept {
  g_balance[static_cast<std::size_t>(account)].fetch_add(nChange, std::memory_order_relaxed);
}

Balance CurrentBalance() noexcept {
  Balance balance{};
  for (std::size_t n = 0; n < balance.size(); ++n) balance[n] = g_balance[n].load(std::memory_order_relaxed);
  return balance;
}

std::string Leaks(const Balance& before) {
  const Balance now = CurrentBalance();
  std::string str;
  for (std::size_t n = 0; n < now.size(); ++n)
    if (now[n] != before[n])
      str.append(AccountName(static_cast<Account>(n)))
          .append(": ")
          .append(std::to_string(now[n] - before[n]))
          .append("\n");
  return str;
}

}  // namespace w32

extern "C" {

DWORD WINAPI GetLastError() { return w32::t_dwLastError; }
VOID WINAPI SetLastError(DWORD dwErrCode) { w32::t_dwLastError = dwErrCode; }

}  // extern "C"
