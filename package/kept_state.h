// The state that an installation finds, kept until it has succeeded: the DLL, the tool, the monitor's registration and the
// tool's folder in PATH. Windows' installer takes a failed installation back by itself; others only remove what they had
// put in place, which would leave neither the old version nor the new one.
#pragma once

namespace setup {

// What a setup leaves for the next one; only administrators write there.
inline constexpr wchar_t kKey[] = L"SOFTWARE\\Kelvane\\LanguageMonitor";
inline constexpr wchar_t kMonitorNameValue[] = L"MonitorName";

// Copies what is there. What an installation that was killed has kept stays: it is older.
void KeepState();

// Brings back what was kept and is no longer so. A file that another program holds is replaced with the machine's next start.
void RestoreState();

// Removes the copies.
void DropKeptState();

}  // namespace setup
