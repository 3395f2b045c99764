#include "log/log_settings.h"

#include "base/registry.h"

namespace {

constexpr DWORD kReloadMs = 15'000;
constexpr wchar_t kKey[] = L"SOFTWARE\\Kelvane\\ThermalPrinterSdk";
constexpr wchar_t kKey32[] = L"SOFTWARE\\Wow6432Node\\Kelvane\\ThermalPrinterSdk";

}  // namespace

bool CLogSetting::LoadSetting() noexcept {
  if (m_bLoaded.load(std::memory_order_acquire)) {
    const DWORD dwNow = GetTickCount();
    if (dwNow - m_dwLastLoadTick.load(std::memory_order_relaxed) < kReloadMs) return true;
    m_dwLastLoadTick.store(dwNow, std::memory_order_relaxed);
  }
  const UniqueKey key = OpenMachineKey(kKey, kKey32);
  if (!key) return false;
  m_dwLogLevelPos.store(ReadDword(key.get(), L"LogLevelPos", 0), std::memory_order_relaxed);
  m_nLogLifeDays.store(static_cast<LONG>(ReadDword(key.get(), L"LogLifeDays", 10)), std::memory_order_relaxed);
  m_dwMaxDumpSize.store(ReadDword(key.get(), L"MaxDumpSize", 256), std::memory_order_relaxed);
  m_bLoaded.store(true, std::memory_order_release);
  return true;
}
