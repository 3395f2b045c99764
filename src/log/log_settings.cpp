#include "log/log_settings.h"

#include "base/registry.h"
#include "base/setting_names.h"
#include "log/level.h"

namespace {

// The levels that a mask lets through as lines or as trace records.
constexpr DWORD WantedLevels(DWORD dwMask) noexcept {
  if ((dwMask & LOG_OFF) != 0) return 0;
  return dwMask | ((dwMask & LOG_LEVEL_E) != 0 ? kTracedLevels : 0);
}

}  // namespace

LogGate g_logGate;

bool CLogSetting::LoadSetting() noexcept {
  if (m_bLoaded.load(std::memory_order_acquire)) {
    const DWORD dwNow = GetTickCount();
    if (dwNow - g_logGate.dwLoadTick.load(std::memory_order_relaxed) < kLogReloadMs) return true;
    g_logGate.dwLoadTick.store(dwNow, std::memory_order_relaxed);
  }
  const UniqueKey key = OpenMachineKey(kLogKey, kLogKey32);
  if (!key) return false;
  const DWORD dwMask = ReadDword(key.get(), kLogLevelValue, 0);
  m_dwLogLevelPos.store(dwMask, std::memory_order_relaxed);
  m_nLogLifeDays.store(static_cast<LONG>(ReadDword(key.get(), kLogLifeDaysValue, 10)), std::memory_order_relaxed);
  m_dwMaxDumpSize.store(ReadDword(key.get(), L"MaxDumpSize", 256), std::memory_order_relaxed);
  g_logGate.dwLevels.store(WantedLevels(dwMask), std::memory_order_relaxed);
  m_bLoaded.store(true, std::memory_order_release);
  return true;
}
