// What the registry says about logging: the level mask and how long files stay.
#pragma once

#include <windows.h>

#include <atomic>

// Values under HKEY_LOCAL_MACHINE "SOFTWARE\Kelvane\ThermalPrinterSdk", or its 32-bit view when that key is missing. They
// are read at the first call and then at most every 15 seconds, by whichever thread logs; each value is one atomic word.
class CLogSetting {
 public:
  // Brings the values up to date. Returns false when neither key can be opened: nothing is logged then.
  bool LoadSetting() noexcept;

  DWORD LevelMask() const noexcept { return m_dwLogLevelPos.load(std::memory_order_relaxed); }
  LONG LifeDays() const noexcept { return m_nLogLifeDays.load(std::memory_order_relaxed); }
  DWORD MaxDumpSize() const noexcept { return m_dwMaxDumpSize.load(std::memory_order_relaxed); }

 private:
  std::atomic<DWORD> m_dwLogLevelPos{0};    // "LogLevelPos"
  std::atomic<LONG> m_nLogLifeDays{10};     // "LogLifeDays"
  std::atomic<DWORD> m_dwMaxDumpSize{256};  // "MaxDumpSize": kept, used by nothing
  std::atomic<bool> m_bLoaded{false};
};
