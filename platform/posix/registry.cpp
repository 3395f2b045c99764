// The registry: in-memory trees that belong to the process.
#include "scheduler.h"

#include <cstring>
#include <map>
#include <set>

namespace w32 {
namespace {

struct NoCase {
  bool operator()(const std::u16string& left, const std::u16string& right) const { return Fold(left) < Fold(right); }
  static std::u16string Fold(std::u16string str) {
    for (char16_t& ch : str)
      if (ch >= u'A' && ch <= u'Z') ch = static_cast<char16_t>(ch + 32);
    return str;
  }
};

struct Value {
  DWORD dwType = REG_NONE;
  std::vector<BYTE> data;
};

struct Key {
  std::map<std::u16string, std::shared_ptr<Key>, NoCase> children;
  std::vector<std::pair<std::u16string, Value>> values;  // in order of creation, as the enumeration shows them

  Value* Find(const std::u16string& strName) {
    for (auto& [strKnown, value] : values)
      if (NoCase::Fold(strKnown) == NoCase::Fold(strName)) return &value;
    return nullptr;
  }
};

struct OpenKey {
  std::shared_ptr<Key> pKey;
  REGSAM samDesired;
};

std::mutex g_registryMutex;
thread_local unsigned t_nClient = 0;
std::set<unsigned>& RefusedHives() {
  static auto* pClients = new std::set<unsigned>;
  return *pClients;
}

// The hive of a client; 0 is the process's own user.
std::shared_ptr<Key>& HiveOf(unsigned nClient) {
  static auto* pHives = new std::map<unsigned, std::shared_ptr<Key>>;
  auto& pHive = (*pHives)[nClient];
  if (!pHive) pHive = std::make_shared<Key>();
  return pHive;
}

std::shared_ptr<Key>& Root(HKEY hKey) {
  static auto* pMachine = new std::shared_ptr<Key>(std::make_shared<Key>());
  return hKey == HKEY_CURRENT_USER ? HiveOf(0) : *pMachine;
}

std::u16string Wide(LPCWSTR psz) {
  std::u16string str;
  for (; psz != nullptr && *psz != 0; ++psz) str += static_cast<char16_t>(*psz);
  return str;
}

// A key handle is the address of its record plus one, so that it is never mistaken for a kernel handle.
HKEY HandleOf(OpenKey* pOpen) { return reinterpret_cast<HKEY>(reinterpret_cast<std::uintptr_t>(pOpen) + 1); }
OpenKey* RecordOf(HKEY hKey) { return reinterpret_cast<OpenKey*>(reinterpret_cast<std::uintptr_t>(hKey) - 1); }
bool IsRoot(HKEY hKey) { return hKey == HKEY_CURRENT_USER || hKey == HKEY_LOCAL_MACHINE; }

std::shared_ptr<Key> KeyOf(HKEY hKey) {
  if (IsRoot(hKey)) return Root(hKey);
  if (hKey == nullptr) Unsupported("a null registry key");
  return RecordOf(hKey)->pKey;
}

std::shared_ptr<Key> Walk(std::shared_ptr<Key> pKey, const std::u16string& strPath, bool bCreate) {
  std::size_t nStart = 0;
  while (pKey && nStart < strPath.size()) {
    std::size_t nEnd = strPath.find(u'\\', nStart);
    if (nEnd == std::u16string::npos) nEnd = strPath.size();
    const std::u16string strName = strPath.substr(nStart, nEnd - nStart);
    nStart = nEnd + 1;
    if (strName.empty()) continue;
    const auto it = pKey->children.find(strName);
    if (it != pKey->children.end()) {
      pKey = it->second;
    } else if (bCreate) {
      pKey = pKey->children[strName] = std::make_shared<Key>();
    } else {
      pKey = nullptr;
    }
  }
  return pKey;
}

LSTATUS Open(const char* pszApi, HKEY hKey, const std::u16string& strPath, REGSAM samDesired, PHKEY phkResult) {
  PlatformCall(pszApi);
  if (const DWORD dwFault = FaultCode(pszApi, ERROR_ACCESS_DENIED)) return static_cast<LSTATUS>(dwFault);
  const LayerLock lock(g_registryMutex);
  const auto pKey = Walk(KeyOf(hKey), strPath, false);
  if (!pKey) return ERROR_FILE_NOT_FOUND;
  *phkResult = HandleOf(new OpenKey{pKey, samDesired});
  Book(Account::Keys, 1);
  return ERROR_SUCCESS;
}

// The buffer-size protocol of a value read: no buffer asks for the size.
LSTATUS Deliver(const Value& value, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData) {
  if (lpType != nullptr) *lpType = value.dwType;
  if (lpcbData == nullptr)
    return lpData == nullptr ? static_cast<LSTATUS>(ERROR_SUCCESS) : static_cast<LSTATUS>(ERROR_INVALID_PARAMETER);
  const DWORD cbRoom = *lpcbData;
  *lpcbData = static_cast<DWORD>(value.data.size());
  if (lpData == nullptr) return ERROR_SUCCESS;
  if (value.data.size() > cbRoom) return ERROR_MORE_DATA;
  if (!value.data.empty()) std::memcpy(lpData, value.data.data(), value.data.size());
  return ERROR_SUCCESS;
}

bool Allows(HKEY hKey, REGSAM sam) { return IsRoot(hKey) || (RecordOf(hKey)->samDesired & sam) == sam; }

}  // namespace
void ActFor(unsigned nClient) noexcept { t_nClient = nClient; }
void RefuseHive(unsigned nClient, bool bRefuse) {
  const LayerLock lock(g_registryMutex);
  if (bRefuse) {
    RefusedHives().insert(nClient);
  } else {
    RefusedHives().erase(nClient);
  }
}
unsigned Client() noexcept { return t_nClient; }

}  // namespace w32

using namespace w32;

extern "C" {

LSTATUS WINAPI RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, REGSAM samDesired, PHKEY phkResult) {
  return Open("RegOpenKeyExW", hKey, Wide(lpSubKey), samDesired, phkResult);
}

LSTATUS WINAPI RegOpenCurrentUser(REGSAM samDesired, PHKEY phkResult) {
  PlatformCall();
  if (const DWORD dwFault = FaultCode("RegOpenCurrentUser", ERROR_ACCESS_DENIED)) return static_cast<LSTATUS>(dwFault);
  const LayerLock lock(g_registryMutex);
  if (RefusedHives().contains(t_nClient)) return ERROR_FILE_NOT_FOUND;
  *phkResult = HandleOf(new OpenKey{HiveOf(t_nClient), samDesired});
  Book(Account::Keys, 1);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD, REGSAM samDesired, PHKEY phkResult) {
  return Open("RegOpenKeyExA", hKey, std::u16string(lpSubKey, lpSubKey + std::strlen(lpSubKey)), samDesired, phkResult);
}

LSTATUS WINAPI RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, LPWSTR, DWORD, REGSAM samDesired,
                               const LPSECURITY_ATTRIBUTES, PHKEY phkResult, LPDWORD lpdwDisposition) {
  if (lpdwDisposition != nullptr) Unsupported("RegCreateKeyExW with a disposition");
  PlatformCall();
  if (const DWORD dwFault = FaultCode("RegCreateKeyExW", ERROR_ACCESS_DENIED)) return static_cast<LSTATUS>(dwFault);
  const LayerLock lock(g_registryMutex);
  *phkResult = HandleOf(new OpenKey{Walk(KeyOf(hKey), Wide(lpSubKey), true), samDesired});
  Book(Account::Keys, 1);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD, LPDWORD lpType, LPBYTE lpData,
                                LPDWORD lpcbData) {
  PlatformCall();
  if (const DWORD dwFault = FaultCode("RegQueryValueExW", ERROR_ACCESS_DENIED)) return static_cast<LSTATUS>(dwFault);
  const LayerLock lock(g_registryMutex);
  if (!Allows(hKey, KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
  const Value* pValue = KeyOf(hKey)->Find(Wide(lpValueName));
  if (pValue == nullptr) return ERROR_FILE_NOT_FOUND;
  return Deliver(*pValue, lpType, lpData, lpcbData);
}

LSTATUS WINAPI RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD, LPDWORD lpType, LPBYTE lpData,
                                LPDWORD lpcbData) {
  PlatformCall();
  if (const DWORD dwFault = FaultCode("RegQueryValueExA", ERROR_ACCESS_DENIED)) return static_cast<LSTATUS>(dwFault);
  Value stored;
  {
    const LayerLock lock(g_registryMutex);
    if (!Allows(hKey, KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
    const Value* pValue = KeyOf(hKey)->Find(std::u16string(lpValueName, lpValueName + std::strlen(lpValueName)));
    if (pValue == nullptr) return ERROR_FILE_NOT_FOUND;
    stored = *pValue;
  }
  Value narrow = stored;
  if (narrow.dwType == REG_SZ) {  // texts are stored wide
    const auto* pWide = reinterpret_cast<const wchar_t*>(stored.data.data());
    const int cch = static_cast<int>(stored.data.size() / sizeof(wchar_t));
    narrow.data.resize(static_cast<std::size_t>(cch));
    if (cch > 0)
      WideCharToMultiByte(CP_ACP, 0, pWide, cch, reinterpret_cast<char*>(narrow.data.data()), cch, nullptr, nullptr);
  }
  return Deliver(narrow, lpType, lpData, lpcbData);
}

LSTATUS WINAPI RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD, DWORD dwType, const BYTE* lpData, DWORD cbData) {
  PlatformCall();
  if (const DWORD dwFault = FaultCode("RegSetValueExW", ERROR_ACCESS_DENIED)) return static_cast<LSTATUS>(dwFault);
  const LayerLock lock(g_registryMutex);
  if (!Allows(hKey, KEY_SET_VALUE)) return ERROR_ACCESS_DENIED;
  Key& key = *KeyOf(hKey);
  const std::u16string strName = Wide(lpValueName);
  Value* pValue = key.Find(strName);
  if (pValue == nullptr) pValue = &key.values.emplace_back(strName, Value{}).second;
  pValue->dwType = dwType;
  pValue->data.assign(lpData, lpData + cbData);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName, LPDWORD,
                             LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData) {
  PlatformCall();
  if (const DWORD dwFault = FaultCode("RegEnumValueW", ERROR_ACCESS_DENIED)) return static_cast<LSTATUS>(dwFault);
  const LayerLock lock(g_registryMutex);
  if (!IsRoot(hKey) && (RecordOf(hKey)->samDesired & KEY_QUERY_VALUE) == 0) return ERROR_ACCESS_DENIED;
  const Key& key = *KeyOf(hKey);
  if (dwIndex >= key.values.size()) return ERROR_NO_MORE_ITEMS;
  const auto& [strName, value] = key.values[dwIndex];
  if (strName.size() >= *lpcchValueName) return ERROR_MORE_DATA;
  for (std::size_t n = 0; n < strName.size(); ++n) lpValueName[n] = static_cast<wchar_t>(strName[n]);
  lpValueName[strName.size()] = 0;
  *lpcchValueName = static_cast<DWORD>(strName.size());
  return Deliver(value, lpType, lpData, lpcbData);
}

LSTATUS WINAPI RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName) {
  const LayerLock lock(g_registryMutex);
  const std::u16string strName = NoCase::Fold(Wide(lpValueName));
  const auto nErased = std::erase_if(KeyOf(hKey)->values, [&](auto& v) { return NoCase::Fold(v.first) == strName; });
  return nErased > 0 ? static_cast<LSTATUS>(ERROR_SUCCESS) : static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND);
}

LSTATUS WINAPI RegDeleteTreeW(HKEY hKey, LPCWSTR lpSubKey) {
  const LayerLock lock(g_registryMutex);
  const std::u16string strPath = Wide(lpSubKey);
  const std::size_t nCut = strPath.rfind(u'\\');
  const auto pParent = nCut == std::u16string::npos ? KeyOf(hKey) : Walk(KeyOf(hKey), strPath.substr(0, nCut), false);
  const std::u16string strName = nCut == std::u16string::npos ? strPath : strPath.substr(nCut + 1);
  return pParent && pParent->children.erase(strName) > 0 ? static_cast<LSTATUS>(ERROR_SUCCESS)
                                                         : static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND);
}

LSTATUS WINAPI RegCloseKey(HKEY hKey) {
  PlatformCall();
  if (IsRoot(hKey)) return ERROR_SUCCESS;
  if (hKey == nullptr) return ERROR_INVALID_HANDLE;
  Book(Account::Keys, -1);
  delete RecordOf(hKey);
  return ERROR_SUCCESS;
}

}  // extern "C"
