#include "tools/fieldtest/machine.h"

#include <tlhelp32.h>
#include <winspool.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>

#include "tools/fieldtest/report.h"
#include "tools/common/registered_monitor.h"
#include "tools/common/service.h"

namespace fieldtest {
namespace {

constexpr DWORD kTurnMs = 300'000;

using lmctl::Service;

// Waits for a state that the spooler was asked for; not longer than it can still come.
std::string WaitFor(const Service& service, DWORD dwState, DWORD dwError) {
  SERVICE_STATUS_PROCESS status = service.Status();
  for (const DWORD dwStart = GetTickCount();
       status.dwCurrentState != dwState && dwError == ERROR_SUCCESS &&
       (dwState == SERVICE_STOPPED || status.dwCurrentState != SERVICE_STOPPED) && GetTickCount() - dwStart < kTurnMs;
       status = service.Status())
    Sleep(100);
  if (status.dwCurrentState == dwState) return "";
  return std::string(dwState == SERVICE_STOPPED ? "stop" : "start") + " with error " + std::to_string(dwError) +
         ", state " + std::to_string(status.dwCurrentState) + ", exit code " + std::to_string(status.dwWin32ExitCode);
}

// Lists through one of the spooler's enumerations.
template <class Info>
void EachOf(const std::function<BOOL(BYTE*, DWORD, DWORD*, DWORD*)>& list,
            const std::function<void(const Info&)>& visit) {
  DWORD cb = 0, dwCount = 0;
  list(nullptr, 0, &cb, &dwCount);
  std::vector<BYTE> bytes(cb + sizeof(Info));
  if (!list(bytes.data(), static_cast<DWORD>(bytes.size()), &cb, &dwCount)) return;
  for (DWORD n = 0; n < dwCount; ++n) visit(reinterpret_cast<const Info*>(bytes.data())[n]);
}

std::string Text(const wchar_t* psz) { return psz != nullptr ? Utf8(psz) : ""; }

}  // namespace

bool IsElevated() {
  HANDLE hToken = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &hToken)) return false;
  TOKEN_ELEVATION elevation = {};
  DWORD cb = 0;
  const bool bElevated =
      GetTokenInformation(hToken, TokenElevation, &elevation, sizeof elevation, &cb) && elevation.TokenIsElevated != 0;
  CloseHandle(hToken);
  return bElevated;
}

bool IsWine() { return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }

std::wstring SystemName() {
  const std::wstring key = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
  return lmctl::MachineText(key, L"ProductName") + L" " + lmctl::MachineText(key, L"DisplayVersion") + L", build " +
         lmctl::MachineText(key, L"CurrentBuild");
}

bool KeyExists(const std::wstring& key) {
  HKEY hKey = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, &hKey) != ERROR_SUCCESS) return false;
  RegCloseKey(hKey);
  return true;
}

bool ServiceExists(const wchar_t* pszService) { return ServiceState(pszService) != 0; }
DWORD ServiceState(const wchar_t* pszService) { return Service(pszService, SERVICE_QUERY_STATUS).State(); }

std::string StopSpooler() {
  const Service service(kSpooler, SERVICE_QUERY_STATUS | SERVICE_STOP);
  SERVICE_STATUS status = {};
  const BOOL bAsked = ControlService(service.Handle(), SERVICE_CONTROL_STOP, &status);
  return WaitFor(service, SERVICE_STOPPED, bAsked ? ERROR_SUCCESS : GetLastError());
}

std::string StartSpooler() {
  const Service service(kSpooler, SERVICE_QUERY_STATUS | SERVICE_START);
  const BOOL bAsked = StartServiceW(service.Handle(), 0, nullptr);
  return WaitFor(service, SERVICE_RUNNING, bAsked ? ERROR_SUCCESS : GetLastError());
}

std::filesystem::path SystemFolder() {
  wchar_t wsz[MAX_PATH] = {};
  GetSystemDirectoryW(wsz, MAX_PATH);
  return wsz;
}

std::filesystem::path ProgramFolder() {
  wchar_t wsz[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, wsz, MAX_PATH);
  return std::filesystem::path(wsz).parent_path();
}

std::filesystem::path LogFolder() {
  wchar_t wsz[MAX_PATH] = {};
  GetEnvironmentVariableW(L"ProgramData", wsz, MAX_PATH);
  return std::filesystem::path(wsz) / L"Kelvane";
}

std::filesystem::path InstalledTool() {
  wchar_t wsz[MAX_PATH] = {};
  GetEnvironmentVariableW(L"ProgramFiles", wsz, MAX_PATH);
  return std::filesystem::path(wsz) / L"Kelvane" / L"Language Monitor" / L"lmctl.exe";
}

bool SpoolerHasMonitor() {
  const DWORD dwProcess = Service(kSpooler, SERVICE_QUERY_STATUS).Status().dwProcessId;
  if (dwProcess == 0) return false;
  HANDLE hModules = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, dwProcess);
  // The list changed while it was taken.
  for (int n = 0; n < 50 && hModules == INVALID_HANDLE_VALUE && GetLastError() == ERROR_BAD_LENGTH; ++n) {
    Sleep(20);
    hModules = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, dwProcess);
  }
  if (hModules == INVALID_HANDLE_VALUE) return false;
  MODULEENTRY32W module = {};
  module.dwSize = sizeof module;
  bool bFound = false;
  for (BOOL b = Module32FirstW(hModules, &module); b && !bFound; b = Module32NextW(hModules, &module))
    bFound = _wcsicmp(module.szModule, lmctl::kMonitorDll) == 0;
  CloseHandle(hModules);
  return bFound;
}

// A loaded DLL cannot be opened to be written. A virus scanner that reads it, since it was opened so before, keeps nobody out.
bool IsMonitorHeld() {
  const HANDLE hFile =
      CreateFileW((SystemFolder() / lmctl::kMonitorDll).c_str(), GENERIC_WRITE,
                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0, nullptr);
  if (hFile == INVALID_HANDLE_VALUE) return true;
  CloseHandle(hFile);
  return false;
}

Ended RunCommand(const std::wstring& commandLine, const std::filesystem::path& output, DWORD dwTimeoutMs) {
  Ended ended;
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  const HANDLE hOutput =
      CreateFileW(output.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS, 0, nullptr);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = startup.hStdError = hOutput;
  PROCESS_INFORMATION process = {};
  std::wstring line = commandLine;
  if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
    if (WaitForSingleObject(process.hProcess, dwTimeoutMs) == WAIT_TIMEOUT) {
      TerminateProcess(process.hProcess, ~0u);
      WaitForSingleObject(process.hProcess, INFINITE);
    }
    GetExitCodeProcess(process.hProcess, &ended.dwExit);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
  }
  CloseHandle(hOutput);
  std::ifstream stream(output, std::ios::binary);
  ended.strOutput.assign(std::istreambuf_iterator<char>(stream), {});
  return ended;
}

std::vector<std::string> Inventory() {
  std::vector<std::string> lines;
  for (const std::wstring& name : lmctl::MonitorNames()) lines.push_back("monitor " + Utf8(name));
  std::wistringstream path(
      lmctl::MachineText(L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment", L"PATH"));
  for (std::wstring folder; std::getline(path, folder, L';');)
    if (!folder.empty()) lines.push_back("PATH " + Utf8(folder));
  lines.push_back("spooler's state " + std::to_string(ServiceState(kSpooler)));
  std::error_code error;
  for (const auto& place :
       {SystemFolder() / lmctl::kMonitorDll, InstalledTool().parent_path().parent_path(), LogFolder()})
    if (std::filesystem::exists(place, error)) lines.push_back("file " + Utf8(place.wstring()));
  for (const wchar_t* pszKey : {kProductKey, L"SOFTWARE\\Wow6432Node\\Kelvane"})
    if (KeyExists(pszKey)) lines.push_back("key " + Utf8(pszKey));
  if (ServiceExists(L"Norvex_Srv")) lines.emplace_back("service Norvex_Srv");
  EachOf<PRINTER_INFO_4W>(
      [](BYTE* p, DWORD cb, DWORD* pcb, DWORD* pn) {
        return EnumPrintersW(PRINTER_ENUM_LOCAL, nullptr, 4, p, cb, pcb, pn);
      },
      [&](const PRINTER_INFO_4W& printer) { lines.push_back("printer " + Text(printer.pPrinterName)); });
  EachOf<DRIVER_INFO_1W>(
      [](BYTE* p, DWORD cb, DWORD* pcb, DWORD* pn) { return EnumPrinterDriversW(nullptr, nullptr, 1, p, cb, pcb, pn); },
      [&](const DRIVER_INFO_1W& driver) { lines.push_back("driver " + Text(driver.pName)); });
  EachOf<PORT_INFO_1W>([](BYTE* p, DWORD cb, DWORD* pcb, DWORD* pn) { return EnumPortsW(nullptr, 1, p, cb, pcb, pn); },
                       [&](const PORT_INFO_1W& port) { lines.push_back("port " + Text(port.pName)); });
  std::sort(lines.begin(), lines.end());
  return lines;
}

}  // namespace fieldtest
