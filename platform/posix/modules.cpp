// Loadable libraries: those that a program provides, and the two system routines that are looked up by name.
#include "files.h"

#include <shlwapi.h>

#include <cstring>
#include <map>

namespace w32 {
namespace {

struct Module {
  std::vector<FARPROC> entryPoints;
};

std::mutex g_moduleMutex;
std::map<std::string, Module>& Provided() {
  static auto* pModules = new std::map<std::string, Module>;
  return *pModules;
}

std::string FileNameOf(const wchar_t* pszPath) {
  const std::string strPath = ToUtf8(pszPath);
  std::string strName = strPath.substr(strPath.find_last_of("\\/") + 1);
  for (char& c : strName)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return strName;
}

Module* Kernel() {
  static Module* pKernel = new Module;
  return pKernel;
}

Module* Native() {
  static Module* pNative = new Module;
  return pNative;
}

void NativeSystemInfo(LPSYSTEM_INFO pInfo) {
  *pInfo = {};
  pInfo->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
  pInfo->dwNumberOfProcessors = 1;
}

BOOL Wow64Process(HANDLE, PBOOL pbWow64) {
  *pbWow64 = FALSE;
  return TRUE;
}

}  // namespace

void ProvideLibrary(const wchar_t* pszFileName, FARPROC const* ppEntryPoints, int nEntryPoints) {
  const LayerLock lock(g_moduleMutex);
  Provided()[FileNameOf(pszFileName)].entryPoints.assign(ppEntryPoints, ppEntryPoints + nEntryPoints);
}

}  // namespace w32

using namespace w32;

extern "C" {

HMODULE WINAPI LoadLibraryW(LPCWSTR lpLibFileName) {
  PlatformCall();
  if (FaultHere("LoadLibraryW", ERROR_MOD_NOT_FOUND)) return nullptr;
  const bool bThere = PathFileExistsW(lpLibFileName) != FALSE;
  const LayerLock lock(g_moduleMutex);
  const auto it = Provided().find(FileNameOf(lpLibFileName));
  if (it == Provided().end() || !bThere) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  Book(Account::Modules, 1);
  return new Module(it->second);
}

BOOL WINAPI FreeLibrary(HMODULE hLibModule) {
  PlatformCall();
  if (hLibModule == nullptr || hLibModule == Kernel() || hLibModule == Native()) Unsupported("freeing this module");
  Book(Account::Modules, -1);
  delete static_cast<Module*>(hLibModule);
  return TRUE;
}

FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName) {
  PlatformCall();
  if (FaultHere("GetProcAddress", ERROR_PROC_NOT_FOUND)) return nullptr;
  FARPROC pfn = nullptr;
  if (hModule == Kernel()) {
    if (std::strcmp(lpProcName, "GetNativeSystemInfo") == 0)
      pfn = reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&NativeSystemInfo));
    if (std::strcmp(lpProcName, "IsWow64Process") == 0)
      pfn = reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Wow64Process));
  } else if (hModule == Native()) {
    pfn = NativeRoutine(lpProcName);
  } else if (const auto nOrdinal = reinterpret_cast<std::uintptr_t>(lpProcName); nOrdinal <= 0xFFFF) {
    const auto& entryPoints = static_cast<Module*>(hModule)->entryPoints;
    if (nOrdinal >= 1 && nOrdinal <= entryPoints.size()) pfn = entryPoints[nOrdinal - 1];
  }
  if (pfn == nullptr) SetLastError(ERROR_PROC_NOT_FOUND);
  return pfn;
}

HMODULE WINAPI GetModuleHandleW(LPCWSTR lpModuleName) {
  PlatformCall();
  if (FaultHere("GetModuleHandleW", ERROR_MOD_NOT_FOUND)) return nullptr;
  if (ToUtf8(lpModuleName) == "kernel32") return Kernel();
  if (ToUtf8(lpModuleName) == "ntdll") return Native();
  SetLastError(ERROR_MOD_NOT_FOUND);
  return nullptr;
}

BOOL WINAPI DisableThreadLibraryCalls(HMODULE) { return TRUE; }

}  // extern "C"
