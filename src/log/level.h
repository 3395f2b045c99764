// The level bits of the log, and which of them lead to anything at the moment: below the front end and all its pieces.
#pragma once

#include <windows.h>

#include <atomic>

// Level bits; a call carries exactly one. The mask in the registry value "LogLevelPos" is made of the same bits.
inline constexpr DWORD LOG_LEVEL_E = 0x002;  // failures
inline constexpr DWORD LOG_LEVEL_W = 0x004;  // anomalies that are handled
inline constexpr DWORD LOG_LEVEL_I = 0x010;  // routine entry, calls into the port monitor, cancel and status events
inline constexpr DWORD LOG_LEVEL_D = 0x080;  // details of device traffic and settings
inline constexpr DWORD LOG_LEVEL_T = 0x100;  // fine trace
inline constexpr DWORD LOG_LEVEL_V = 0x400;  // not used by this system
inline constexpr DWORD LOG_LEVEL_DUMP = 0x203000;  // dump bits; a call that carries one is reported with Assert
inline constexpr DWORD LOG_OFF = 0x80000000;       // mask bit: no logging at all, not even trace records

// With E in the mask, calls of these levels that are off leave trace records.
inline constexpr DWORD kTracedLevels = LOG_LEVEL_W | LOG_LEVEL_I | LOG_LEVEL_D | LOG_LEVEL_T;

// The letter that a line shows for a level; of a level with several bits, the first of I, D, T, E, W, V.
struct LogLevelLetter {
  char cLetter;
  DWORD dwLevel;
};
inline constexpr LogLevelLetter kLogLevelLetters[] = {{'I', LOG_LEVEL_I}, {'D', LOG_LEVEL_D}, {'T', LOG_LEVEL_T},
                                                      {'E', LOG_LEVEL_E}, {'W', LOG_LEVEL_W}, {'V', LOG_LEVEL_V}};

// All letters, in the order in which people name them; a macro, so that texts are put together with it.
#define LOG_LEVEL_LETTERS "EWIDTV"

// The level of a letter; 0 for a letter of none.
constexpr DWORD LogLevelOf(wchar_t cLetter) noexcept {
  for (const LogLevelLetter& known : kLogLevelLetters)
    if (cLetter == static_cast<wchar_t>(known.cLetter)) return known.dwLevel;
  return 0;
}

// The mask of letters, "EWI" for example; FALSE when one of them is of no level.
template <class Text>
constexpr bool LogMaskOf(const Text& letters, DWORD& dwMask) noexcept {
  dwMask = 0;
  for (const auto cLetter : letters) {
    const DWORD dwLevel = LogLevelOf(static_cast<wchar_t>(cLetter));
    if (dwLevel == 0) return false;
    dwMask |= dwLevel;
  }
  return true;
}

// The settings are read again when a call comes this long after the last time.
inline constexpr DWORD kLogReloadMs = 15'000;

// What every log call looks at first. Atomic words, written by whichever thread reads the settings.
struct LogGate {
  std::atomic<DWORD> dwLevels{
      0xFFFFFFFF};                   // levels that become a line or a trace record; all until the settings are known
  std::atomic<DWORD> dwLoadTick{0};  // GetTickCount of the last periodic re-read
};
extern LogGate g_logGate;

// Whether a call of this level has anything to do: write, trace, or bring the settings up to date. One comparison with one
// tick count.
inline bool IsLogWanted(DWORD dwLevel) noexcept {
  return (dwLevel & g_logGate.dwLevels.load(std::memory_order_relaxed)) != 0 ||
         GetTickCount() - g_logGate.dwLoadTick.load(std::memory_order_relaxed) >= kLogReloadMs;
}
