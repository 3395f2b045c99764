// The spooler and the services that depend on it: stopped for a setup, and started behind it.
#pragma once

#include <string>

namespace setup {

// What a setup leaves for the next one; only administrators write there.
inline constexpr wchar_t kKey[] = L"SOFTWARE\\Kelvane\\LanguageMonitor";
inline constexpr wchar_t kMonitorNameValue[] = L"MonitorName";

// Whether the spooler is disabled: it could not be started again, so nobody stops it. Asks for rights that every user has.
bool SpoolerIsDisabled();

// Stops the spooler behind the running services that depend on it and waits for each: a write of the monitor may last 90
// seconds, so it waits five minutes. What ran is noted first; a setup that is killed leaves the note, and the next one starts
// what is in it. Returns a sentence when something does not stop, else an empty text. Needs an administrator's rights.
std::wstring StopSpooler();

// Starts what was noted, the spooler first, and waits; one that is still stopping has its time to stop. The note goes when the
// spooler runs. A spooler that was started meanwhile by somebody else starts anew, since it may not know the monitor.
// Returns a sentence when something does not start.
std::wstring StartSpooler();

}  // namespace setup
