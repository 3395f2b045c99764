// The setup's actions that run before anything is changed, with the rights of whoever started it. The library is loaded as the
// installer loads it; its imports lead to stand-ins that refuse what a user without rights may not ask for.
#include <gtest/gtest.h>
#include <windows.h>

#include <msi.h>
#include <msiquery.h>

#include <functional>
#include <map>
#include <string>

namespace {

// What one action asked for, and what it left.
struct Call {
  std::map<std::wstring, std::wstring> properties;
  std::wstring format, sentence;  // of the last message
  int nMessages = 0;
  bool bAdministrator = false;
  bool bServicesRefused = false;
  USHORT wMachine = IMAGE_FILE_MACHINE_AMD64;
  unsigned nTooMuch = 0;  // rights and changes that such a user is refused
} g_call;

bool Refused(DWORD dwAsked, DWORD dwAllowed) {
  if ((dwAsked & ~dwAllowed) == 0) return false;
  ++g_call.nTooMuch;
  SetLastError(ERROR_ACCESS_DENIED);
  return true;
}

UINT WINAPI GetProperty(MSIHANDLE, LPCWSTR pszName, LPWSTR pszValue, LPDWORD pcch) {
  const std::wstring& value = g_call.properties[pszName];
  const bool bFits = *pcch > value.size();
  *pcch = static_cast<DWORD>(value.size());
  if (bFits) wcscpy(pszValue, value.c_str());
  return bFits ? ERROR_SUCCESS : ERROR_MORE_DATA;
}
UINT WINAPI SetProperty(MSIHANDLE, LPCWSTR pszName, LPCWSTR pszValue) {
  g_call.properties[pszName] = pszValue;
  return ERROR_SUCCESS;
}
UINT WINAPI SetRecord(MSIHANDLE, UINT nField, LPCWSTR psz) {
  (nField == 0 ? g_call.format : g_call.sentence) = psz;
  return ERROR_SUCCESS;
}
int WINAPI ProcessMessage(MSIHANDLE, INSTALLMESSAGE, MSIHANDLE) { return ++g_call.nMessages; }
SC_HANDLE WINAPI OpenManager(LPCWSTR, LPCWSTR, DWORD dwAccess) {
  return Refused(dwAccess, SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE)
             ? nullptr
             : OpenSCManagerW(nullptr, nullptr, dwAccess);
}
SC_HANDLE WINAPI OpenOneService(SC_HANDLE hManager, LPCWSTR pszName, DWORD dwAccess) {
  if (g_call.bServicesRefused) return nullptr;
  return Refused(dwAccess, SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG) ? nullptr
                                                                        : OpenServiceW(hManager, pszName, dwAccess);
}
LSTATUS WINAPI OpenKey(HKEY hKey, LPCWSTR pszKey, DWORD dwOptions, REGSAM access, PHKEY phKey) {
  return Refused(access, KEY_READ) ? ERROR_ACCESS_DENIED : RegOpenKeyExW(hKey, pszKey, dwOptions, access, phKey);
}
BOOL WINAPI IsMember(HANDLE, PSID, PBOOL pbMember) {
  *pbMember = g_call.bAdministrator;
  return TRUE;
}
BOOL WINAPI NativeMachine(HANDLE, USHORT* pwProcess, USHORT* pwNative) {
  *pwProcess = 0;
  *pwNative = g_call.wMachine;
  return TRUE;
}
FARPROC WINAPI ProcAddress(HMODULE hModule, LPCSTR pszName) {
  return std::string(pszName) == "IsWow64Process2" ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&NativeMachine))
                                                   : GetProcAddress(hModule, pszName);
}
// Stands for whatever changes something: its arguments do not matter.
DWORD_PTR Changes() { return Refused(1, 0) ? 0 : 1; }

template <class Routine>
void* Pointer(Routine* pfn) {
  return reinterpret_cast<void*>(pfn);
}

class SetupRights : public ::testing::Test {
 protected:
  void SetUp() override {
    g_call = {};
    m_hActions = LoadLibraryW(L"setup_actions.dll");
    ASSERT_NE(m_hActions, nullptr) << GetLastError();
    const std::map<std::string, void*> stands = {
        {"MsiGetPropertyW", Pointer(GetProperty)},   {"MsiSetPropertyW", Pointer(SetProperty)},
        {"MsiRecordSetStringW", Pointer(SetRecord)}, {"MsiProcessMessage", Pointer(ProcessMessage)},
        {"OpenSCManagerW", Pointer(OpenManager)},    {"OpenServiceW", Pointer(OpenOneService)},
        {"RegOpenKeyExW", Pointer(OpenKey)},         {"CheckTokenMembership", Pointer(IsMember)},
        {"GetProcAddress", Pointer(ProcAddress)}};
    unsigned nReplaced = 0;
    ForEachImport([&](const std::string& strName, void*& pImport) {
      const auto it = stands.find(strName);
      nReplaced += it != stands.end() ? 1 : 0;
      if (it != stands.end()) pImport = it->second;
      for (const char* pszVerb : {"RegSet", "RegCreate", "RegDelete", "ControlService", "StartService", "DeleteFile",
                                  "MoveFile", "CopyFile", "CreateDirectory", "CreateProcess"})
        if (strName.starts_with(pszVerb)) pImport = Pointer(Changes);
    });
    ASSERT_EQ(nReplaced, stands.size());
  }
  void TearDown() override { FreeLibrary(m_hActions); }

  UINT Run(const char* pszAction) {
    return reinterpret_cast<UINT(WINAPI*)(MSIHANDLE)>(Pointer(GetProcAddress(m_hActions, pszAction)))(1);
  }

 private:
  void ForEachImport(const std::function<void(const std::string&, void*&)>& visit) {
    auto* pBase = reinterpret_cast<BYTE*>(m_hActions);
    const auto* pHeaders =
        reinterpret_cast<const IMAGE_NT_HEADERS64*>(pBase + reinterpret_cast<const IMAGE_DOS_HEADER*>(pBase)->e_lfanew);
    const DWORD dwImports = pHeaders->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* p = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(pBase + dwImports); p->Name != 0; ++p) {
      const auto* pNames = reinterpret_cast<const IMAGE_THUNK_DATA64*>(pBase + p->OriginalFirstThunk);
      auto* pPlaces = reinterpret_cast<void**>(pBase + p->FirstThunk);
      for (; pNames->u1.AddressOfData != 0; ++pNames, ++pPlaces) {
        DWORD dwBefore = 0;
        ASSERT_TRUE(VirtualProtect(pPlaces, sizeof *pPlaces, PAGE_READWRITE, &dwBefore));
        visit(reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(pBase + pNames->u1.AddressOfData)->Name, *pPlaces);
      }
    }
  }
  HMODULE m_hActions = nullptr;
};

// A key below HKEY_LOCAL_MACHINE with one value, while it lives.
class MachineValue {
 public:
  MachineValue(const wchar_t* pszKey, const wchar_t* pszName, DWORD dwType, const void* pData, DWORD cb)
      : m_psz(pszKey) {
    EXPECT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, pszKey, pszName, dwType, pData, cb), ERROR_SUCCESS);
  }
  ~MachineValue() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, m_psz); }

 private:
  const wchar_t* m_psz;
};

TEST_F(SetupRights, PreparingAsksForNoMoreThanEveryUserMay) {
  EXPECT_EQ(Run("PrepareSetup"), UINT{ERROR_SUCCESS});
  EXPECT_EQ(g_call.properties[L"MONITORNAME"], L"Kelvane Language Monitor");
  g_call.bServicesRefused = true;  // not even asked: the actions with the system's rights see for themselves
  EXPECT_EQ(Run("PrepareSetup"), UINT{ERROR_SUCCESS});
  EXPECT_EQ(Run("RefuseWhileInUse"), UINT{ERROR_SUCCESS});
  EXPECT_EQ(g_call.nTooMuch, 0u);
  EXPECT_EQ(g_call.nMessages, 0);
  Run("EndSetup");  // one that does change something
  EXPECT_GT(g_call.nTooMuch, 0u);
}

TEST_F(SetupRights, MachinesWhoseSpoolerLoadsNoMonitorAreTold) {
  g_call.wMachine = 0xAA64;
  EXPECT_EQ(Run("PrepareSetup"), UINT{ERROR_INSTALL_FAILURE});
  EXPECT_NE(g_call.sentence.find(L"ARM64"), std::wstring::npos);
  g_call.wMachine = IMAGE_FILE_MACHINE_AMD64;
  const DWORD dwOn = 1;
  const MachineValue policy(L"SOFTWARE\\Policies\\Microsoft\\Windows NT\\Printers\\WPP",
                            L"WindowsProtectedPrintGroupPolicyState", REG_DWORD, &dwOn, sizeof dwOn);
  EXPECT_EQ(Run("PrepareSetup"), UINT{ERROR_SUCCESS});
  EXPECT_NE(g_call.sentence.find(L"protected print mode"), std::wstring::npos);
}

TEST_F(SetupRights, SettingsOfAnInstalledPackageAreAnAdministratorsToChange) {
  g_call.properties = {{L"Installed", L"00:00:00"}, {L"LOGLEVEL", L"EWI"}};
  EXPECT_EQ(Run("PrepareSetup"), UINT{ERROR_INSTALL_FAILURE});
  EXPECT_EQ(g_call.properties[L"LogLevelData"], L"");
  g_call.bAdministrator = true;
  EXPECT_EQ(Run("PrepareSetup"), UINT{ERROR_SUCCESS});
  EXPECT_EQ(g_call.properties[L"LogLevelData"], L"#22");
}

TEST_F(SetupRights, NamesReachTheTablesAndTheReaderWhole) {
  g_call.properties[L"MONITORNAME"] = L"#1";
  EXPECT_EQ(Run("PrepareSetup"), UINT{ERROR_INSTALL_FAILURE});
  // The DLL is registered by hand as B, which a driver names; the package calls it otherwise.
  const MachineValue monitor(L"SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors\\B", L"Driver", REG_SZ,
                             L"kelvane_lm.dll", sizeof L"kelvane_lm.dll");
  const MachineValue driver(
      L"SYSTEM\\CurrentControlSet\\Control\\Print\\Environments\\Windows x64\\Drivers\\Version-3\\HM [1]", L"Monitor",
      REG_SZ, L"B", sizeof L"B");
  g_call.properties[L"MONITORNAME"] = L"A";
  EXPECT_EQ(Run("RefuseWhileInUse"), UINT{ERROR_INSTALL_FAILURE});
  EXPECT_EQ(g_call.format, L"[1]");
  EXPECT_NE(g_call.sentence.find(L"HM [1]."), std::wstring::npos);
}

}  // namespace
