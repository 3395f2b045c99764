// lmctl settings: what is set, where it comes from, what it means; and setting it within what the monitor reads.
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "base/setting_names.h"
#include "log/level.h"
#include "tools/lmctl/commands/commands.h"
#include "tools/lmctl/log/text_encoding.h"
#include "tools/lmctl/windows/wide.h"

namespace lmctl {
namespace {

enum class Kind { Levels, Number, Switch, Text, SixBytes };

struct Setting {
  const wchar_t* pszName;
  const wchar_t* pszKey;  // null: printer data of a queue
  const wchar_t* pszKey32;
  Kind kind;
  const char* pszDefault;
  const char* pszMeaning;
  const char* pszEffect;
};

constexpr Setting kSettings[] = {
    {kLogLevelValue, kLogKey, kLogKey32, Kind::Levels, "-",
     "levels that are logged, letters of " LOG_LEVEL_LETTERS "; \"off\": nothing at all", "within 15 seconds"},
    {kLogLifeDaysValue, kLogKey, kLogKey32, Kind::Number, "10", "days that log files stay", "within 15 seconds"},
    {kOpenWithStartDocValue, kDriverKey, kDriverKey32, Kind::Switch, "0", "1: the device is opened with each job",
     "with the next job"},
    {kAutoReprintValue, nullptr, nullptr, Kind::Switch, "0",
     "1: jobs are confirmed by the printer and sent again when lost",
     "1 with the next job, 0 when the port is opened again"},
    {kJobFilePathValue, nullptr, nullptr, Kind::Text, "-", "root folder of the job archive", "with the next job"},
    {kJobSettingFlagsValue, nullptr, nullptr, Kind::Switch, "0", "1: archive on", "with the next job"},
    {kJobValidDaysValue, nullptr, nullptr, Kind::Number, "1", "days that the archive keeps", "with the next job"},
    {kLogSettingFlagsValue, nullptr, nullptr, Kind::SixBytes, "-",
     "in place of the two values above for PX-5, PX-9 and DT-2: byte 1 the days' index 0 to 4, byte 5 the switch",
     "with the next job"},
    {kUtilityGuidValue, nullptr, nullptr, Kind::Text, "-",
     "names the key where the archive's last tidying is remembered", "with the next job"},
};

std::string Letters(DWORD dwMask) {
  if ((dwMask & LOG_OFF) != 0) return "off";
  std::string str;
  for (const char c : std::string_view(LOG_LEVEL_LETTERS))
    if ((dwMask & LogLevelOf(static_cast<unsigned char>(c))) != 0) str += c;
  return str.empty() ? "-" : str;
}

std::string Show(const Setting& setting, const std::vector<BYTE>& bytes) {
  if (setting.kind == Kind::Text) return TextOf(bytes);
  if (setting.kind == Kind::SixBytes) {
    std::string str;
    for (const BYTE by : bytes) str += (str.empty() ? "" : " ") + std::to_string(by);
    return str;
  }
  if (bytes.size() > sizeof(DWORD)) return "(" + std::to_string(bytes.size()) + " bytes)";
  DWORD dwValue = 0;
  std::memcpy(&dwValue, bytes.data(), bytes.size());
  return setting.kind == Kind::Levels ? Letters(dwValue) : std::to_string(static_cast<LONG>(dwValue));
}

// Whether the monitor would take the value.
bool IsRead(const Setting& setting, const std::vector<BYTE>& bytes) {
  switch (setting.kind) {
    case Kind::SixBytes: return bytes.size() == 6;
    case Kind::Text: return setting.pszName != kUtilityGuidValue || bytes.size() <= 128;
    default: return setting.pszName == kJobSettingFlagsValue ? bytes.size() == 4 : bytes.size() <= 4;
  }
}

std::optional<std::vector<BYTE>> MachineValue(const Setting& setting, const wchar_t* pszKey) {
  HKEY hKey = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, pszKey, 0, KEY_QUERY_VALUE, &hKey) != ERROR_SUCCESS) return std::nullopt;
  std::vector<BYTE> bytes(1024);
  auto cb = static_cast<DWORD>(bytes.size());
  const LSTATUS lError = RegQueryValueExW(hKey, setting.pszName, nullptr, nullptr, bytes.data(), &cb);
  RegCloseKey(hKey);
  bytes.resize(lError == ERROR_SUCCESS ? cb : 0);
  return bytes;  // empty: the key is there, the value is not
}

void ShowOne(const Setting& setting, const Printer* pPrinter) {
  DWORD dwType = 0;
  std::vector<BYTE> bytes;
  std::string strSource = "default";
  if (setting.pszKey == nullptr) {
    if (pPrinter->Data(setting.pszName, dwType, bytes)) strSource = "queue";
  } else if (const auto value = MachineValue(setting, setting.pszKey)) {
    bytes = *value;
    if (!bytes.empty()) strSource = "registry";
  } else if (const auto fallback = MachineValue(setting, setting.pszKey32)) {
    bytes = *fallback;
    if (!bytes.empty()) strSource = "registry, 32-bit view";
  }
  std::string strValue = bytes.empty() ? setting.pszDefault : Show(setting, bytes);
  if (!bytes.empty() && !IsRead(setting, bytes)) strSource += ", wrong size: the monitor ignores it";
  std::printf("%-18s %-28s %-22s %s\n", Narrow(setting.pszName).c_str(), Printable(strValue).c_str(), strSource.c_str(),
              setting.pszMeaning);
}

struct NewValue {
  DWORD dwType = REG_DWORD;
  std::vector<BYTE> bytes;
};

NewValue Parse(const Setting& setting, const std::string& strValue) {
  const auto refuse = [&](const char* pszWhat) {
    throw std::invalid_argument(Narrow(setting.pszName) + " takes " + pszWhat + ", not \"" + strValue + "\"");
  };
  const auto dword = [](DWORD dw) {
    NewValue value;
    value.bytes.resize(sizeof dw);
    std::memcpy(value.bytes.data(), &dw, sizeof dw);
    return value;
  };
  char* pszEnd = nullptr;
  const long n = std::strtol(strValue.c_str(), &pszEnd, 0);
  const bool bNumber = pszEnd != strValue.c_str() && *pszEnd == 0;
  switch (setting.kind) {
    case Kind::Levels: {
      if (strValue == "off") return dword(LOG_OFF);
      DWORD dwMask = 0;
      if (!LogMaskOf(strValue, dwMask)) refuse("letters of " LOG_LEVEL_LETTERS ", or off");
      return dword(dwMask);
    }
    case Kind::Number:
      if (!bNumber || n < 0 || n > 36'500) refuse("a number of days from 0 on");
      return dword(static_cast<DWORD>(n));
    case Kind::Switch:
      if (!bNumber || n < 0 || n > 1) refuse("0 or 1");
      return dword(static_cast<DWORD>(n));
    case Kind::Text: {
      const std::wstring text = Wide(strValue);
      const std::size_t cb = (text.size() + 1) * sizeof(wchar_t);
      if (setting.pszName == kUtilityGuidValue && cb > 128) refuse("at most 63 characters");
      const bool bFull = text.size() >= 3 && text[1] == L':' && (text[2] == L'\\' || text[2] == L'/');
      if (setting.pszName == kJobFilePathValue && !bFull && !text.starts_with(L"\\\\"))
        refuse("a full path with a drive");
      NewValue value{REG_SZ, std::vector<BYTE>(cb)};
      std::memcpy(value.bytes.data(), text.c_str(), cb);
      return value;
    }
    case Kind::SixBytes: break;
  }
  NewValue value{REG_BINARY, {}};
  unsigned an[6] = {};
  char cRest = 0;
  if (std::sscanf(strValue.c_str(), "%u %u %u %u %u %u%c", &an[0], &an[1], &an[2], &an[3], &an[4], &an[5], &cRest) !=
          6 ||
      an[1] > 4)
    refuse("six numbers from 0 to 255, the second of them from 0 to 4");
  for (const unsigned by : an) {
    if (by > 255) refuse("six numbers from 0 to 255, the second of them from 0 to 4");
    value.bytes.push_back(static_cast<BYTE>(by));
  }
  return value;
}

void Fails(const Setting& setting, DWORD dwError) {
  throw std::runtime_error(Narrow(setting.pszName) + " cannot be set: " + ErrorText(dwError) +
                           (dwError == ERROR_ACCESS_DENIED ? " Run as an administrator." : ""));
}

void Set(const Setting& setting, const std::string& strValue, const std::string& strQueue) {
  if (setting.pszKey == nullptr) {
    if (strQueue.empty()) throw std::invalid_argument(Narrow(setting.pszName) + " is a queue's: name the queue first");
    const NewValue value = strValue.empty() ? NewValue{} : Parse(setting, strValue);
    const Printer printer(strQueue, PRINTER_ACCESS_ADMINISTER);
    auto* pszName = const_cast<wchar_t*>(setting.pszName);
    const DWORD dwError = strValue.empty() ? DeletePrinterDataW(printer.Handle(), pszName)
                                           : SetPrinterDataW(printer.Handle(), pszName, value.dwType,
                                                             const_cast<BYTE*>(value.bytes.data()),
                                                             static_cast<DWORD>(value.bytes.size()));
    if (dwError != ERROR_SUCCESS && !(strValue.empty() && dwError == ERROR_FILE_NOT_FOUND)) Fails(setting, dwError);
  } else {
    const NewValue value = strValue.empty() ? NewValue{} : Parse(setting, strValue);
    HKEY hKey = nullptr;
    LSTATUS lError =
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, setting.pszKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &hKey, nullptr);
    if (lError != ERROR_SUCCESS) Fails(setting, static_cast<DWORD>(lError));
    lError = strValue.empty() ? RegDeleteValueW(hKey, setting.pszName)
                              : RegSetValueExW(hKey, setting.pszName, 0, value.dwType, value.bytes.data(),
                                               static_cast<DWORD>(value.bytes.size()));
    RegCloseKey(hKey);
    if (lError != ERROR_SUCCESS && !(strValue.empty() && lError == ERROR_FILE_NOT_FOUND))
      Fails(setting, static_cast<DWORD>(lError));
  }
  std::printf("%s %s; takes effect %s\n", Narrow(setting.pszName).c_str(),
              strValue.empty() ? "removed" : ("= " + strValue).c_str(), setting.pszEffect);
}

}  // namespace

int Settings(const Options& options) {
  std::string strQueue;
  std::vector<std::string> changes;
  for (const std::string& strArgument : options.settings) {
    if (strArgument.find('=') != std::string::npos) {
      changes.push_back(strArgument);
    } else if (strQueue.empty() && changes.empty()) {
      strQueue = strArgument;
    } else {
      throw std::invalid_argument("one queue, then NAME=VALUE: \"" + strArgument + "\" is neither");
    }
  }
  for (const std::string& strChange : changes) {
    const std::string strName = strChange.substr(0, strChange.find('='));
    const Setting* pSetting = nullptr;
    for (const Setting& setting : kSettings)
      if (_stricmp(Narrow(setting.pszName).c_str(), strName.c_str()) == 0) pSetting = &setting;
    if (pSetting == nullptr)
      throw std::invalid_argument("there is no setting " + strName + ": lmctl settings shows them");
    Set(*pSetting, strChange.substr(strName.size() + 1), strQueue);
  }
  if (!changes.empty()) return kExitWell;
  std::optional<Printer> printer;
  if (!strQueue.empty()) printer.emplace(strQueue, PRINTER_ACCESS_USE);
  for (const Setting& setting : kSettings)
    if ((setting.pszKey == nullptr) == printer.has_value()) ShowOne(setting, printer ? &*printer : nullptr);
  return kExitWell;
}

}  // namespace lmctl
