// What the installation does beyond the installer's own tables. The library lies in the package; the installer loads it and
// calls each routine by its name, in the order that kelvane_lm.wxs gives. The first two run before anything is changed, with
// the rights of whoever started it (a double click: an administrator's, filtered): they may refuse, ask only what every user
// may, and change nothing. The others run with the system's rights.
#include <windows.h>

#include <msi.h>
#include <msiquery.h>

#include <optional>
#include <string>
#include <vector>

#include "base/setting_names.h"
#include "log/level.h"
#include "package/spooler_service.h"
#include "tools/common/machine_kind.h"
#include "tools/common/registered_monitor.h"

namespace {

constexpr wchar_t kDefaultMonitorName[] = L"Kelvane Language Monitor";

std::wstring Property(MSIHANDLE hInstall, const wchar_t* pszName) {
  DWORD cch = 0;
  wchar_t szNone[1] = {};
  MsiGetPropertyW(hInstall, pszName, szNone, &cch);
  std::wstring value(cch, L'\0');
  ++cch;
  if (MsiGetPropertyW(hInstall, pszName, value.data(), &cch) != ERROR_SUCCESS) return {};
  return value;
}

// A silent installation has it in its log. The sentence is a field of the record, whose format would take its brackets away.
void Tell(MSIHANDLE hInstall, INSTALLMESSAGE kind, const std::wstring& sentence) {
  const MSIHANDLE hRecord = MsiCreateRecord(1);
  MsiRecordSetStringW(hRecord, 0, L"[1]");
  MsiRecordSetStringW(hRecord, 1, sentence.c_str());
  MsiProcessMessage(hInstall, kind, hRecord);
  MsiCloseHandle(hRecord);
}

// Ends the installation with a sentence.
UINT Refuse(MSIHANDLE hInstall, const std::wstring& sentence) {
  Tell(hInstall, INSTALLMESSAGE_ERROR, sentence);
  return ERROR_INSTALL_FAILURE;
}

std::wstring RegisteredName() { return lmctl::MachineText(setup::kKey, setup::kMonitorNameValue); }

// A number, decimal or 0x with hexadecimal digits, or letters of the log's levels.
std::optional<DWORD> Number(const std::wstring& text) {
  wchar_t* pEnd = nullptr;
  const bool bHex = text.starts_with(L"0x") || text.starts_with(L"0X");
  if (text.empty() || text.size() > 10 || text[0] < L'0' || text[0] > L'9') return std::nullopt;
  const unsigned long long ull = std::wcstoull(text.c_str(), &pEnd, bHex ? 16 : 10);
  if (*pEnd != 0 || ull > MAXDWORD) return std::nullopt;
  return static_cast<DWORD>(ull);
}

std::optional<DWORD> Levels(const std::wstring& text) {
  if (const auto dwMask = Number(text)) return dwMask;
  if (_wcsicmp(text.c_str(), L"off") == 0) return LOG_OFF;
  DWORD dwMask = 0;
  return LogMaskOf(text, dwMask) ? std::optional(dwMask) : std::nullopt;
}

// Sets the property that the registry table writes: the value that was given, or the one that the machine has, so that a
// repair or an upgrade changes nothing. False when what was given is none.
bool SetMachineSetting(MSIHANDLE hInstall, const wchar_t* pszProperty, const wchar_t* pszTarget,
                       const wchar_t* pszValue, std::optional<DWORD> (*pfnRead)(const std::wstring&)) {
  const std::wstring given = Property(hInstall, pszProperty);
  DWORD dwValue = 0;
  DWORD cb = sizeof dwValue;
  if (!given.empty()) {
    const auto dwGiven = pfnRead(given);
    if (!dwGiven) return false;
    dwValue = *dwGiven;
  } else if (RegGetValueW(HKEY_LOCAL_MACHINE, kLogKey, pszValue, RRF_RT_REG_DWORD, nullptr, &dwValue, &cb) !=
             ERROR_SUCCESS) {
    return true;
  }
  MsiSetPropertyW(hInstall, pszTarget, (L"#" + std::to_wstring(static_cast<int>(dwValue))).c_str());
  return true;
}

// A user who may start a repair is not one who may change the machine's settings. On a first installation somebody with the
// rights has consented.
bool IsAdministrator() {
  BYTE sid[SECURITY_MAX_SID_SIZE];
  DWORD cb = sizeof sid;
  BOOL bMember = FALSE;
  return CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &cb) &&
         CheckTokenMembership(nullptr, sid, &bMember) && bMember;
}

// What the end of a setup leaves, whether it succeeded or not.
void LeaveSpoolerAsItWas(MSIHANDLE hInstall) {
  const std::wstring sentence = setup::StartSpooler();
  if (!sentence.empty()) Tell(hInstall, INSTALLMESSAGE_WARNING, sentence);
  if (RegisteredName().empty()) RegDeleteKeyW(HKEY_LOCAL_MACHINE, setup::kKey);  // refused while something is below it
}

}  // namespace

// Settles what the tables need: MONITORNAME, the machine's settings, whether the spooler is left alone.
extern "C" UINT WINAPI PrepareSetup(MSIHANDLE hInstall) {
  const bool bRemoves = Property(hInstall, L"REMOVE") == L"ALL";
  if (!bRemoves && lmctl::IsArm64())
    return Refuse(hInstall, L"The spooler of an ARM64 machine loads no x64 language monitor.");
  if (!Property(hInstall, L"NEWERVERSION").empty())
    return Refuse(hInstall, L"A newer version is installed. Uninstall it first to go back to this one.");
  const std::wstring registered = RegisteredName();
  std::wstring name = Property(hInstall, L"MONITORNAME");
  if (name.empty()) {
    const std::vector<std::wstring> byHand = lmctl::MonitorNames();
    name = !registered.empty() ? registered : !byHand.empty() ? byHand.front() : kDefaultMonitorName;
  } else if (!registered.empty() && _wcsicmp(name.c_str(), registered.c_str()) != 0) {
    return Refuse(hInstall, L"The monitor is registered as \"" + registered +
                                L"\". To give it another name, uninstall it first.");
  }
  // The registry table reads a text that begins with # as a number.
  if (name.size() > 255 || name.find(L'\\') != std::wstring::npos || name.starts_with(L'#'))
    return Refuse(hInstall,
                  L"MONITORNAME must be a name of at most 255 characters without a backslash, "
                  L"and begin with another sign than #.");
  MsiSetPropertyW(hInstall, L"MONITORNAME", name.c_str());

  const bool bGiven = !Property(hInstall, L"LOGLEVEL").empty() || !Property(hInstall, L"LOGLIFEDAYS").empty();
  if (bGiven && !Property(hInstall, L"Installed").empty() && !IsAdministrator())
    return Refuse(hInstall, L"LOGLEVEL and LOGLIFEDAYS of an installed package are an administrator's to change.");
  if (!SetMachineSetting(hInstall, L"LOGLEVEL", L"LogLevelData", kLogLevelValue, Levels))
    return Refuse(hInstall, L"LOGLEVEL must be letters of " LOG_LEVEL_LETTERS ", a number, or off.");
  if (!SetMachineSetting(hInstall, L"LOGLIFEDAYS", L"LogLifeDaysData", kLogLifeDaysValue, Number))
    return Refuse(hInstall, L"LOGLIFEDAYS must be a number of days.");

  if (setup::SpoolerIsDisabled()) MsiSetPropertyW(hInstall, L"SpoolerIsDisabled", L"1");
  if (!bRemoves && lmctl::IsProtectedPrintMode())
    Tell(hInstall, INSTALLMESSAGE_WARNING,
         L"Windows' protected print mode is on: the spooler loads no language monitor. Turn it off to print with this "
         L"one.");
  return ERROR_SUCCESS;
}

// A driver whose monitor is gone prints no more, under whatever name the DLL is registered as well.
extern "C" UINT WINAPI RefuseWhileInUse(MSIHANDLE hInstall) {
  std::vector<std::wstring> names = lmctl::MonitorNames();
  names.push_back(Property(hInstall, L"MONITORNAME"));
  std::wstring list;
  for (const std::wstring& driver : lmctl::DriversNaming(names)) list += (list.empty() ? L"" : L", ") + driver;
  if (list.empty()) return ERROR_SUCCESS;
  return Refuse(hInstall,
                L"These printer drivers still name the monitor: " + list +
                    L". Change their queues to another driver and delete them first, or uninstall with FORCE=1.");
}

// Before anything is changed.
extern "C" UINT WINAPI BeginSetup(MSIHANDLE hInstall) {
  const std::wstring sentence = setup::StopSpooler();
  return sentence.empty() ? ERROR_SUCCESS : Refuse(hInstall, sentence);
}

// Behind everything that can fail.
extern "C" UINT WINAPI EndSetup(MSIHANDLE hInstall) {
  LeaveSpoolerAsItWas(hInstall);
  return ERROR_SUCCESS;
}

// When the installation failed, behind what the installer itself takes back.
extern "C" UINT WINAPI TakeBackSetup(MSIHANDLE hInstall) {
  LeaveSpoolerAsItWas(hInstall);
  return ERROR_SUCCESS;
}
