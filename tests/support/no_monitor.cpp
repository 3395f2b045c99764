// For programs that use the DLL instead of the monitor's objects: the two names that the world would otherwise link.
#include <windows.h>

#include <winspool.h>
#include <winsplp.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return FALSE; }
extern "C" LPMONITOR2 WINAPI InitializePrintMonitor2(PMONITORINIT, PHANDLE) { return nullptr; }
