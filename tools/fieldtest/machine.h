// The machine that a field test runs on: what it is, what of ours it holds, and the few things that the test does to it.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>
#include <vector>

namespace fieldtest {

inline constexpr wchar_t kSpooler[] = L"Spooler";
inline constexpr wchar_t kProductKey[] = L"SOFTWARE\\Kelvane";

bool IsElevated();
// Windows programs run here without a Windows: its spooler loads no monitor.
bool IsWine();
std::wstring SystemName();  // name and build, as the registry tells them

bool KeyExists(const std::wstring& key);  // below HKEY_LOCAL_MACHINE
bool ServiceExists(const wchar_t* pszService);
DWORD ServiceState(const wchar_t* pszService);  // SERVICE_RUNNING and so on; 0: there is no such service
// Stops or starts the spooler and waits, five minutes at most. Returns why it is not stopped, or does not run, then; empty: it is so.
std::string StopSpooler();
std::string StartSpooler();

std::filesystem::path SystemFolder();
std::filesystem::path ProgramFolder();  // this program's
std::filesystem::path LogFolder();
std::filesystem::path InstalledTool();

// Whether a running spooler has the DLL loaded.
bool SpoolerHasMonitor();
// Whether a program keeps the installed DLL from being replaced.
bool IsMonitorHeld();

struct Ended {
  DWORD dwExit = ~0u;  // of a program that could not be started as well
  std::string strOutput;
};
// Runs a command line to its end, its output into a file. Text of the program's own encoding.
Ended RunCommand(const std::wstring& commandLine, const std::filesystem::path& output, DWORD dwTimeoutMs);

// What an installation could change, one line each, in order; to be compared.
std::vector<std::string> Inventory();

}  // namespace fieldtest
