#include "package/kept_state.h"

#include <windows.h>

#include <string>
#include <vector>

#include "tools/lmctl/registered_monitor.h"

namespace setup {
namespace {

constexpr wchar_t kKeptKey[] = L"SOFTWARE\\Kelvane\\LanguageMonitor\\Kept";
constexpr wchar_t kCompleteValue[] = L"Complete";
constexpr wchar_t kInPathValue[] = L"InPath";
// One value for each name that the monitor is registered under, with the DLL's name.
constexpr wchar_t kKeptMonitorsKey[] = L"SOFTWARE\\Kelvane\\LanguageMonitor\\Kept\\Monitors";
constexpr wchar_t kEnvironmentKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";

std::wstring ToolFolder() {
  wchar_t wszPrograms[MAX_PATH] = {};
  GetEnvironmentVariableW(L"ProgramFiles", wszPrograms, MAX_PATH);
  return std::wstring(wszPrograms) + L"\\Kelvane\\Language Monitor";
}

// A file and where its copy lies: not in the tool's folder, which goes with the tool.
struct KeptFile {
  std::wstring place, copy;
};
std::vector<KeptFile> Files() {
  wchar_t wszSystem[MAX_PATH] = {};
  GetSystemDirectoryW(wszSystem, MAX_PATH);
  const std::wstring dll = std::wstring(wszSystem) + L"\\" + lmctl::kMonitorDll;
  return {{dll, dll + L".kept"},
          {ToolFolder() + L"\\lmctl.exe", std::wstring(wszSystem) + L"\\kelvane_lmctl.exe.kept"}};
}

void Restore(const KeptFile& file) {
  if (GetFileAttributesW(file.copy.c_str()) == INVALID_FILE_ATTRIBUTES) return;
  for (std::size_t n = file.place.find(L'\\', 3); n != std::wstring::npos; n = file.place.find(L'\\', n + 1))
    CreateDirectoryW(file.place.substr(0, n).c_str(), nullptr);
  if (!MoveFileExW(file.copy.c_str(), file.place.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED))
    MoveFileExW(file.copy.c_str(), file.place.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_DELAY_UNTIL_REBOOT);
}

std::wstring MonitorKey(const std::wstring& name) { return std::wstring(lmctl::kMonitorsKey) + L"\\" + name; }

void PutText(const std::wstring& key, const wchar_t* pszValue, const std::wstring& text, DWORD dwType = REG_SZ) {
  RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), pszValue, dwType, text.c_str(),
                  static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

bool IsKept(const wchar_t* pszValue) {
  return RegGetValueW(HKEY_LOCAL_MACHINE, kKeptKey, pszValue, RRF_RT_REG_DWORD, nullptr, nullptr, nullptr) ==
         ERROR_SUCCESS;
}

void Mark(const wchar_t* pszValue) {
  const DWORD dwOne = 1;
  RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKeptKey, pszValue, REG_DWORD, &dwOne, sizeof dwOne);
}

bool ToolIsInPath() { return lmctl::MachineText(kEnvironmentKey, L"PATH").find(ToolFolder()) != std::wstring::npos; }

void RestoreMonitors() {
  HKEY hKey = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKeptMonitorsKey, 0, KEY_READ, &hKey) != ERROR_SUCCESS) return;
  wchar_t wszName[256];
  DWORD cch = 256;
  for (DWORD n = 0; RegEnumValueW(hKey, n, wszName, &cch, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS; ++n) {
    PutText(MonitorKey(wszName), L"Driver", lmctl::MachineText(kKeptMonitorsKey, wszName));
    cch = 256;
  }
  RegCloseKey(hKey);
}

}  // namespace

void KeepState() {
  if (IsKept(kCompleteValue)) return;
  DropKeptState();
  for (const KeptFile& file : Files()) CopyFileW(file.place.c_str(), file.copy.c_str(), FALSE);
  for (const std::wstring& name : lmctl::MonitorNames())
    PutText(kKeptMonitorsKey, name.c_str(), lmctl::MachineText(MonitorKey(name), L"Driver"));
  const std::wstring name = lmctl::MachineText(kKey, kMonitorNameValue);
  if (!name.empty()) PutText(kKeptKey, kMonitorNameValue, name);
  if (ToolIsInPath()) Mark(kInPathValue);
  Mark(kCompleteValue);
}

void RestoreState() {
  if (!IsKept(kCompleteValue)) return;
  for (const KeptFile& file : Files()) Restore(file);
  RestoreMonitors();
  const std::wstring name = lmctl::MachineText(kKeptKey, kMonitorNameValue);
  if (!name.empty()) PutText(kKey, kMonitorNameValue, name);
  if (IsKept(kInPathValue) && !ToolIsInPath())
    PutText(kEnvironmentKey, L"PATH", lmctl::MachineText(kEnvironmentKey, L"PATH") + L";" + ToolFolder(),
            REG_EXPAND_SZ);
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKeptKey);
}

void DropKeptState() {
  for (const KeptFile& file : Files()) DeleteFileW(file.copy.c_str());
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKeptKey);
}

}  // namespace setup
