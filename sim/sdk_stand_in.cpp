// Norvex_SDK.dll for Windows: the library's three entry points, which hand every call to the program that runs the
// simulated world.
#include <windows.h>

namespace {

template <class Routine>
Routine Find(const char* pszName) {
  return reinterpret_cast<Routine>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(nullptr), pszName)));
}

}  // namespace

extern "C" {

DWORD WINAPI OpenW(LPCWSTR pszPrinter, DWORD* pdwSession) {
  const auto pfn = Find<DWORD(WINAPI*)(LPCWSTR, DWORD*)>("SimSdkOpenW");
  return pfn != nullptr ? pfn(pszPrinter, pdwSession) : ERROR_GEN_FAILURE;
}

DWORD WINAPI Close(DWORD dwSession) {
  const auto pfn = Find<DWORD(WINAPI*)(DWORD)>("SimSdkClose");
  return pfn != nullptr ? pfn(dwSession) : ERROR_GEN_FAILURE;
}

DWORD WINAPI DevIoCtrl(DWORD dwSession, LPCWSTR pszRequest, const void* pIn, DWORD cbIn, DWORD* pdwWritten, void* pOut,
                       DWORD cbOut, DWORD* pdwValue, DWORD dwTimeout) {
  const auto pfn =
      Find<DWORD(WINAPI*)(DWORD, LPCWSTR, const void*, DWORD, DWORD*, void*, DWORD, DWORD*, DWORD)>("SimSdkDevIoCtrl");
  return pfn != nullptr ? pfn(dwSession, pszRequest, pIn, cbIn, pdwWritten, pOut, cbOut, pdwValue, dwTimeout)
                        : ERROR_GEN_FAILURE;
}

}  // extern "C"
