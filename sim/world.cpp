#include "sim/world.h"

#include <shlobj.h>

#ifndef _WIN32
#include "posix/control.h"
#endif

extern "C" BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, LPVOID pReserved);

namespace sim {
namespace {

World* g_pWorld = nullptr;
constexpr char kLogKey[] = "SOFTWARE\\Kelvane\\ThermalPrinterSdk";

}  // namespace

World& World::Get() { return *g_pWorld; }

World::World() {
  g_pWorld = this;
  SetLogLevel(0x596);
  InstallLibrary(true);
}

World::~World() {
  if (m_bAttached) {
    spooler.pMonitor->pfnShutdown(spooler.hMonitor);
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
  }
  g_pWorld = nullptr;
}

void World::Attach() {
  DllMain(reinterpret_cast<HINSTANCE>(GetModuleHandleW(nullptr)), DLL_PROCESS_ATTACH, nullptr);
  m_serverName = Wide("\\\\TILL");
  m_monitorReg.cbSize = sizeof m_monitorReg;
  m_monitorInit.cbSize = sizeof m_monitorInit;
  m_monitorInit.hSpooler = this;
  m_monitorInit.hckRegistryRoot = reinterpret_cast<decltype(m_monitorInit.hckRegistryRoot)>(this);
  m_monitorInit.pMonitorReg = &m_monitorReg;
  m_monitorInit.bLocal = TRUE;
  m_monitorInit.pszServerName = m_serverName.c_str();
  HANDLE hMonitor = nullptr;
  MONITOR2* pTable = InitializePrintMonitor2(&m_monitorInit, &hMonitor);
  Use(pTable, hMonitor);
  m_bAttached = true;
}

void World::Use(MONITOR2* pTable, HANDLE hMonitor) {
  spooler.pMonitor = pTable;
  spooler.hMonitor = hMonitor;
  spooler.pPortMonitor = &portMonitor.table;
}

Queue& World::AddPrinter(const std::string& strQueue, const std::string& strPort, const std::string& strDriver,
                         const PrinterSettings& settings) {
  auto& pPrinter = m_printers[strPort];
  pPrinter = std::make_unique<Printer>();
  pPrinter->Configure(settings);
  return AddQueueOn(*pPrinter, strQueue, strPort, strDriver);
}

Queue& World::AddQueueOn(Printer& printer, const std::string& strQueue, const std::string& strPort,
                         const std::string& strDriver) {
  portMonitor.Port(strPort).pPrinter = &printer;
  library.Connect(strQueue, printer);
  Queue queue;
  queue.strName = strQueue;
  queue.strPort = strPort;
  queue.strDriver = strDriver;
  return spooler.AddQueue(queue);
}

Printer& World::PrinterOf(const std::string& strPort) { return *portMonitor.Port(strPort).pPrinter; }

// ---- the device-access library as the monitor finds it ---------------------------------------------------------------

extern "C" {

#ifdef _WIN32
#define SIM_EXPORT __declspec(dllexport)
#else
#define SIM_EXPORT
#endif

// On Windows the library file next to the program hands its calls to these exports of the program.
SIM_EXPORT DWORD WINAPI SimSdkOpenW(LPCWSTR pszPrinter, DWORD* pdwSession) {
  return World::Get().library.OpenW(pszPrinter, pdwSession);
}
SIM_EXPORT DWORD WINAPI SimSdkClose(DWORD dwSession) { return World::Get().library.Close(dwSession); }
SIM_EXPORT DWORD WINAPI SimSdkDevIoCtrl(DWORD dwSession, LPCWSTR pszRequest, const void* pIn, DWORD cbIn,
                                        DWORD* pdwWritten, void* pOut, DWORD cbOut, DWORD* pdwValue, DWORD dwTimeout) {
  return World::Get().library.DevIoCtrl(dwSession, pszRequest, static_cast<const BYTE*>(pIn), cbIn, pdwWritten,
                                        static_cast<BYTE*>(pOut), cbOut, pdwValue, dwTimeout);
}

}  // extern "C"

#ifdef _WIN32
// The library lies next to the program; the process's current folder decides whether the monitor finds it.
void World::InstallLibrary(bool bInstalled, int) {
  wchar_t wszFolder[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, wszFolder, MAX_PATH);
  wchar_t* pszCut = wszFolder + WideTraits::length(wszFolder);
  while (pszCut > wszFolder && *pszCut != L'\\') --pszCut;
  *pszCut = 0;
  if (!bInstalled) GetTempPathW(MAX_PATH, wszFolder);
  SetCurrentDirectoryW(wszFolder);
}
#else
void World::InstallLibrary(bool bInstalled, int nOrdinals) {
  constexpr wchar_t kFile[] = L".\\Norvex_SDK.dll";
  const auto any = [](auto pfn) { return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(pfn)); };
  const FARPROC entryPoints[] = {any(&SimSdkOpenW), any(&SimSdkClose), any(&SimSdkDevIoCtrl)};
  w32::ProvideLibrary(kFile, entryPoints, nOrdinals);
  if (bInstalled) {
    WriteWholeFile(".\\Norvex_SDK.dll", "stand-in");
  } else {
    DeleteFileW(kFile);
  }
}
#endif

// ---- registry ---------------------------------------------------------------------------------------------------------

namespace {

void SetMachineValue(const char* pszKey, const std::string& strValue, DWORD dwType, const void* pData, DWORD cbData) {
  HKEY hKey = nullptr;
  if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, Wide(pszKey).c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_SET_VALUE, nullptr,
                      &hKey, nullptr) != ERROR_SUCCESS)
    return;
  RegSetValueExW(hKey, Wide(strValue).c_str(), 0, dwType, static_cast<const BYTE*>(pData), cbData);
  RegCloseKey(hKey);
}

}  // namespace

void World::SetMachineDword(const char* pszKey, const char* pszValue, DWORD dwValue) {
  SetMachineValue(pszKey, pszValue, REG_DWORD, &dwValue, sizeof dwValue);
}

void World::DeleteMachineKey(const char* pszKey) { RegDeleteTreeW(HKEY_LOCAL_MACHINE, Wide(pszKey).c_str()); }

LSTATUS World::OpenClientKey(const std::string& strKey, REGSAM sam, HKEY* phKey, bool bMake) {
  const ActAsClient client;
  HKEY hHive = nullptr;
  if (const LSTATUS lError = RegOpenCurrentUser(KEY_QUERY_VALUE | KEY_CREATE_SUB_KEY, &hHive)) return lError;
  const LSTATUS lError = bMake ? RegCreateKeyExW(hHive, Wide(strKey).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, sam,
                                                 nullptr, phKey, nullptr)
                               : RegOpenKeyExW(hHive, Wide(strKey).c_str(), 0, sam, phKey);
  RegCloseKey(hHive);
  return lError;
}

void World::AddSerialDevice(const std::string& strDevice, const std::string& strPort) {
  const WideString port = Wide(strPort);
  SetMachineValue("HARDWARE\\DEVICEMAP\\SERIALCOMM", strDevice, REG_SZ, port.c_str(),
                  static_cast<DWORD>((port.size() + 1) * sizeof(wchar_t)));
}

// ---- log and files ----------------------------------------------------------------------------------------------------

void World::SetLogLevel(DWORD dwMask) { SetMachineDword(kLogKey, "LogLevelPos", dwMask); }

std::string World::LogFolder() {
  wchar_t wszData[MAX_PATH] = {};
  SHGetSpecialFolderPathW(nullptr, wszData, CSIDL_COMMON_APPDATA, FALSE);
  return Narrow(wszData) + "\\Kelvane\\Logs\\PrinterDriver";
}

std::string World::LogText() {
  std::string strAll;
  for (const std::string& strName : ListFolder(LogFolder())) {
    std::string strText;
    if (ReadWholeFile(LogFolder() + "\\" + strName, strText)) strAll += strText;
  }
  return strAll;
}

std::size_t World::LogCount(const std::string& strPart) {
  const std::string strText = LogText();
  std::size_t n = 0;
  for (std::size_t nAt = strText.find(strPart); nAt != std::string::npos; nAt = strText.find(strPart, nAt + 1)) ++n;
  return n;
}

bool World::ReadWholeFile(const std::string& strPath, std::string& strBytes) {
  strBytes.clear();
  const HANDLE hFile = CreateFileW(Wide(strPath).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (hFile == INVALID_HANDLE_VALUE) return false;
  std::vector<char> block(64 * 1024);
  DWORD cbRead = 0;
  while (ReadFile(hFile, block.data(), static_cast<DWORD>(block.size()), &cbRead, nullptr) && cbRead > 0)
    strBytes.append(block.data(), cbRead);
  CloseHandle(hFile);
  return true;
}

bool World::WriteWholeFile(const std::string& strPath, const std::string& strBytes) {
  const HANDLE hFile =
      CreateFileW(Wide(strPath).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (hFile == INVALID_HANDLE_VALUE) return false;
  DWORD cbWritten = 0;
  const bool bWritten =
      WriteFile(hFile, strBytes.data(), static_cast<DWORD>(strBytes.size()), &cbWritten, nullptr) != FALSE;
  CloseHandle(hFile);
  return bWritten;
}

std::vector<std::string> World::ListFolder(const std::string& strFolder) {
  std::vector<std::string> names;
  WIN32_FIND_DATAW entry;
  const HANDLE hFind = FindFirstFileW(Wide(strFolder + "\\*.*").c_str(), &entry);
  if (hFind == INVALID_HANDLE_VALUE) return names;
  do {
    const std::string strName = Narrow(entry.cFileName);
    if (strName != "." && strName != "..") names.push_back(strName);
  } while (FindNextFileW(hFind, &entry));
  FindClose(hFind);
  return names;
}

std::map<std::string, std::string> World::ArchivedFiles(const std::string& strRoot) {
  std::map<std::string, std::string> files;
  for (const std::string& strDay : ListFolder(strRoot))
    for (const std::string& strName : ListFolder(strRoot + "\\" + strDay))
      ReadWholeFile(strRoot + "\\" + strDay + "\\" + strName, files[strDay + "\\" + strName]);
  return files;
}

void World::DeleteTree(const std::string& strFolder) {
  for (const std::string& strName : ListFolder(strFolder)) {
    const std::string strPath = strFolder + "\\" + strName;
    const DWORD dwAttributes = GetFileAttributesW(Wide(strPath).c_str());
    if (dwAttributes != INVALID_FILE_ATTRIBUTES && (dwAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      DeleteTree(strPath);
    } else {
      SetFileAttributesW(Wide(strPath).c_str(), FILE_ATTRIBUTE_NORMAL);
      DeleteFileW(Wide(strPath).c_str());
    }
  }
  RemoveDirectoryW(Wide(strFolder).c_str());
}

void World::CleanMachine() {
  DeleteMachineKey("SOFTWARE\\Kelvane\\ThermalPrinterSdk");
  DeleteMachineKey("SOFTWARE\\Kelvane\\PrinterDriver");
  DeleteMachineKey("SOFTWARE\\Wow6432Node\\Kelvane");
  RegDeleteTreeW(HKEY_CURRENT_USER, L"SOFTWARE\\Kelvane");
  HKEY hKey = nullptr;
  if (OpenClientKey("SOFTWARE", KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_ENUMERATE_SUB_KEYS | DELETE, &hKey) ==
      ERROR_SUCCESS) {
    RegDeleteTreeW(hKey, L"Kelvane");
    RegCloseKey(hKey);
  }
  for (const std::string& strName : ListFolder(LogFolder())) DeleteFileW(Wide(LogFolder() + "\\" + strName).c_str());
}

}  // namespace sim
