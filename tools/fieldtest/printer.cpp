#include "tools/fieldtest/printer.h"

#include <winspool.h>

#include <fstream>
#include <iterator>
#include <vector>

#include "base/folder_access.h"

namespace fieldtest {
namespace {

wchar_t g_szDriver[] = L"Kelvane Field Test Driver";
wchar_t g_szModel[] = L"Generic / Text Only";  // comes with every Windows, in its store of drivers
wchar_t g_szEnvironment[] = L"Windows x64";
constexpr DWORD kPrintMs = 60'000;

std::string Failed(const char* pszCall, DWORD dwError = GetLastError()) {
  return std::string(pszCall) + " failed with " + std::to_string(dwError);
}

// Makes a folder that every user may write to.
std::string MakeSharedFolder(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directory(folder, error);
  const HANDLE hFolder =
      CreateFileW(folder.c_str(), READ_CONTROL | WRITE_DAC, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (hFolder == INVALID_HANDLE_VALUE) return Failed("opening the folder of the port's file");
  const bool bGranted = GrantUsersFullAccess(hFolder);
  CloseHandle(hFolder);
  return bGranted ? "" : "the folder of the port's file takes no access list";
}

// Reads the files of an installed driver. The record points into the bytes.
bool FindDriver(const wchar_t* pszDriver, std::vector<BYTE>& bytes, DRIVER_INFO_3W& driver) {
  DWORD cb = 0, dwCount = 0;
  EnumPrinterDriversW(nullptr, g_szEnvironment, 3, nullptr, 0, &cb, &dwCount);
  bytes.resize(cb + sizeof driver);
  EnumPrinterDriversW(nullptr, g_szEnvironment, 3, bytes.data(), static_cast<DWORD>(bytes.size()), &cb, &dwCount);
  for (DWORD n = 0; n < dwCount; ++n) {
    driver = reinterpret_cast<const DRIVER_INFO_3W*>(bytes.data())[n];
    if (driver.pName != nullptr && _wcsicmp(driver.pName, pszDriver) == 0) return true;
  }
  driver = {};
  return false;
}

// Has the system install a driver of its own, which need not be in the list of drivers yet.
bool InstallFromStore(const wchar_t* pszDriver) {
  using Install = HRESULT(WINAPI*)(const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*, DWORD);
  const auto pfnInstall = reinterpret_cast<Install>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"winspool.drv"), "InstallPrinterDriverFromPackageW")));
  return pfnInstall != nullptr && SUCCEEDED(pfnInstall(nullptr, nullptr, pszDriver, g_szEnvironment, 0));
}

}  // namespace

Printer::Printer(const std::filesystem::path& folder, const std::wstring& queue)
    : m_folder(folder), m_port(folder / L"port" / L"port.prn"), m_queue(queue) {
  PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PRINTER_ALL_ACCESS};
  if (!OpenPrinterW(m_queue.data(), &m_hQueue, &defaults)) m_hQueue = nullptr;
  TakeAway();
}

Printer::~Printer() { TakeAway(); }

void Printer::TakeAway() {
  if (m_hQueue != nullptr) {
    SetPrinterW(m_hQueue, 0, nullptr, PRINTER_CONTROL_PURGE);
    DeletePrinter(m_hQueue);
    ClosePrinter(m_hQueue);
    m_hQueue = nullptr;
  }
  // One of ours is in use for some moments after its queue has gone.
  for (int n = 1; !DeletePrinterDriverExW(nullptr, g_szEnvironment, g_szDriver, 0, 0) && m_bDriver && n < 50; ++n)
    Sleep(200);
  m_bDriver = false;
  if (m_bModel) DeletePrinterDriverExW(nullptr, g_szEnvironment, g_szModel, DPD_DELETE_UNUSED_FILES, 0);
  m_bModel = false;
  Port(L"DeletePort");
  std::error_code error;
  std::filesystem::remove_all(m_port.parent_path(), error);
}

std::string Printer::Port(const wchar_t* pszAction) {
  wchar_t szMonitor[] = L",XcvMonitor Local Port";
  PRINTER_DEFAULTSW defaults = {nullptr, nullptr, SERVER_ACCESS_ADMINISTER};
  HANDLE hMonitor = nullptr;
  if (!OpenPrinterW(szMonitor, &hMonitor, &defaults)) return Failed("OpenPrinter of the local ports");
  std::wstring port = m_port.wstring();
  DWORD cb = 0, dwStatus = 0;
  const BOOL bDone = XcvDataW(hMonitor, pszAction, reinterpret_cast<BYTE*>(port.data()),
                              static_cast<DWORD>((port.size() + 1) * sizeof(wchar_t)), nullptr, 0, &cb, &dwStatus);
  const std::string strFailed = !bDone ? Failed("XcvData") : dwStatus != 0 ? Failed("the port", dwStatus) : "";
  ClosePrinter(hMonitor);
  return strFailed;
}

std::string Printer::AddDriver(const std::wstring& monitor) {
  std::vector<BYTE> bytes;
  DRIVER_INFO_3W driver = {};
  std::wstring file = (m_folder / L"driver.dll").wstring();
  if (!FindDriver(g_szModel, bytes, driver)) {
    m_bModel = InstallFromStore(g_szModel);
    if (!FindDriver(g_szModel, bytes, driver)) {
      // A driver of nothing: the spooler takes RAW jobs all the same where it checks no signatures.
      std::ofstream(m_folder / L"driver.dll") << "no driver";
      driver.cVersion = 3;
      driver.pDriverPath = driver.pDataFile = driver.pConfigFile = file.data();
    }
  }
  std::wstring name = monitor;
  driver.pName = g_szDriver;
  driver.pEnvironment = g_szEnvironment;
  driver.pMonitorName = name.data();
  m_bDriver = AddPrinterDriverExW(nullptr, 3, reinterpret_cast<BYTE*>(&driver),
                                  APD_COPY_NEW_FILES | APD_COPY_FROM_DIRECTORY) != FALSE;
  return m_bDriver ? "" : Failed("AddPrinterDriverEx");
}

std::string Printer::AddQueue() {
  std::string strFailed = MakeSharedFolder(m_port.parent_path());
  if (strFailed.empty()) strFailed = Port(L"AddPort");
  if (!strFailed.empty()) return strFailed;
  std::wstring port = m_port.wstring();
  PRINTER_INFO_2W queue = {};
  wchar_t szProcessor[] = L"winprint", szRaw[] = L"RAW";
  queue.pPrinterName = m_queue.data();
  queue.pPortName = port.data();
  queue.pDriverName = g_szDriver;
  queue.pPrintProcessor = szProcessor;
  queue.pDatatype = szRaw;
  m_hQueue = AddPrinterW(nullptr, 2, reinterpret_cast<BYTE*>(&queue));
  return m_hQueue != nullptr ? "" : Failed("AddPrinter");
}

std::string Printer::WriteDocument(const std::wstring& document, const std::string& strData, DWORD& dwJob) {
  HANDLE hQueue = nullptr;
  if (!OpenPrinterW(m_queue.data(), &hQueue, nullptr)) return Failed("OpenPrinter");
  std::wstring name = document;
  wchar_t szRaw[] = L"RAW";
  DOC_INFO_1W info = {name.data(), nullptr, szRaw};
  dwJob = StartDocPrinterW(hQueue, 1, reinterpret_cast<BYTE*>(&info));
  std::string strFailed = dwJob == 0 ? Failed("StartDocPrinter") : "";
  std::string strBytes = strData;
  DWORD cb = 0;
  if (dwJob != 0 &&
      (!WritePrinter(hQueue, strBytes.data(), static_cast<DWORD>(strBytes.size()), &cb) || !EndDocPrinter(hQueue)))
    strFailed = Failed("WritePrinter");
  ClosePrinter(hQueue);
  return strFailed;
}

std::string Printer::WaitUntilEmpty() {
  for (const DWORD dwStart = GetTickCount(); GetTickCount() - dwStart < kPrintMs; Sleep(100)) {
    DWORD cb = 0, dwCount = 0;
    if (EnumJobsW(m_hQueue, 0, 100, 1, nullptr, 0, &cb, &dwCount) && dwCount == 0) return "";
  }
  return "a job is still in the queue after a minute";
}

std::string Printer::Print(const std::wstring& document, const std::string& strData, HANDLE hUser) {
  std::error_code error;
  std::filesystem::remove(m_port, error);
  if (!OnPort().empty()) return "the port's file of the document before is still there";
  if (hUser != nullptr && !ImpersonateLoggedOnUser(hUser)) return Failed("ImpersonateLoggedOnUser");
  DWORD dwJob = 0;
  const std::string strFailed = WriteDocument(document, strData, dwJob);
  if (hUser != nullptr) RevertToSelf();
  for (const DWORD dwStart = GetTickCount();
       strFailed.empty() && OnPort().size() < strData.size() && GetTickCount() - dwStart < kPrintMs;)
    Sleep(100);
  return strFailed;
}

std::string Printer::PrintAndDelete(const std::wstring& document, const std::string& strData) {
  if (!SetPrinterW(m_hQueue, 0, nullptr, PRINTER_CONTROL_PAUSE)) return Failed("pausing the queue");
  DWORD dwJob = 0;
  std::string strFailed = WriteDocument(document, strData, dwJob);
  if (strFailed.empty() && !SetJobW(m_hQueue, dwJob, 0, nullptr, JOB_CONTROL_DELETE)) strFailed = Failed("SetJob");
  if (!SetPrinterW(m_hQueue, 0, nullptr, PRINTER_CONTROL_RESUME)) return Failed("resuming the queue");
  return strFailed.empty() ? WaitUntilEmpty() : strFailed;
}

std::string Printer::OnPort() const {
  std::ifstream stream(m_port, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace fieldtest
