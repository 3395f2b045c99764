// winspool.drv and spoolss.dll of the Windows tests: every call goes to the export of the same name of the program that
// runs the simulated world.
#include <windows.h>

namespace {

template <class Result, class... Arguments>
Result Forward(const char* pszName, Arguments... arguments) {
  const auto pfn = reinterpret_cast<Result(WINAPI*)(Arguments...)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(nullptr), pszName)));
  return pfn != nullptr ? pfn(arguments...) : Result{};
}

}  // namespace

extern "C" {

BOOL WINAPI OpenPrinterW(void* a, void* b, void* c) { return Forward<BOOL>("OpenPrinterW", a, b, c); }
BOOL WINAPI ClosePrinter(HANDLE a) { return Forward<BOOL>("ClosePrinter", a); }
BOOL WINAPI GetJobW(HANDLE a, DWORD b, DWORD c, void* d, DWORD e, void* f) {
  return Forward<BOOL>("GetJobW", a, b, c, d, e, f);
}
BOOL WINAPI SetJobW(HANDLE a, DWORD b, DWORD c, void* d, DWORD e) { return Forward<BOOL>("SetJobW", a, b, c, d, e); }
BOOL WINAPI GetPrinterW(HANDLE a, DWORD b, void* c, DWORD d, void* e) {
  return Forward<BOOL>("GetPrinterW", a, b, c, d, e);
}
BOOL WINAPI SetPrinterW(HANDLE a, DWORD b, void* c, DWORD d) { return Forward<BOOL>("SetPrinterW", a, b, c, d); }
DWORD WINAPI GetPrinterDataW(HANDLE a, void* b, void* c, void* d, DWORD e, void* f) {
  return Forward<DWORD>("GetPrinterDataW", a, b, c, d, e, f);
}
BOOL WINAPI XcvDataW(HANDLE a, void* b, void* c, DWORD d, void* e, DWORD f, void* g, void* h) {
  return Forward<BOOL>("XcvDataW", a, b, c, d, e, f, g, h);
}
HANDLE WINAPI RevertToPrinterSelf() { return Forward<HANDLE>("RevertToPrinterSelf"); }
BOOL WINAPI ImpersonatePrinterClient(HANDLE a) { return Forward<BOOL>("ImpersonatePrinterClient", a); }

}  // extern "C"
