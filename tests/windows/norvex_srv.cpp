// A real Windows service that does nothing but run: the stand-in for the device-access library's service, and for others. Its
// argument is the number of seconds that it takes to stop.
#include <windows.h>

#include <cstdlib>

namespace {

SERVICE_STATUS_HANDLE g_hStatus;
HANDLE g_hStop;
DWORD g_dwStopMs;

void Report(DWORD dwState) {
  SERVICE_STATUS status = {};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = dwState;
  status.dwControlsAccepted = dwState == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
  SetServiceStatus(g_hStatus, &status);
}

void WINAPI Control(DWORD dwControl) {
  if (dwControl == SERVICE_CONTROL_STOP) SetEvent(g_hStop);
}

void WINAPI Service(DWORD, LPWSTR*) {
  g_hStatus = RegisterServiceCtrlHandlerW(L"Norvex_Srv", Control);
  Report(SERVICE_RUNNING);
  WaitForSingleObject(g_hStop, INFINITE);
  Report(SERVICE_STOP_PENDING);
  Sleep(g_dwStopMs);
  Report(SERVICE_STOPPED);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) g_dwStopMs = 1000 * static_cast<DWORD>(std::atoi(argv[1]));
  g_hStop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  wchar_t szName[] = L"Norvex_Srv";
  const SERVICE_TABLE_ENTRYW table[] = {{szName, Service}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
