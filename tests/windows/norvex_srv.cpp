// A real Windows service that does nothing but run: the stand-in for the device-access library's service.
#include <windows.h>

namespace {

SERVICE_STATUS_HANDLE g_hStatus;
HANDLE g_hStop;

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
  Report(SERVICE_STOPPED);
}

}  // namespace

int main() {
  g_hStop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  wchar_t szName[] = L"Norvex_Srv";
  const SERVICE_TABLE_ENTRYW table[] = {{szName, Service}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
