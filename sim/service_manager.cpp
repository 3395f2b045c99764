// The service calls of the monitor, answered by the simulated world instead of the system.
#include "sim/world.h"

using sim::World;

namespace {

const SC_HANDLE kManager = reinterpret_cast<SC_HANDLE>(0x51);
const SC_HANDLE kService = reinterpret_cast<SC_HANDLE>(0x52);

}  // namespace

extern "C" {

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR, LPCWSTR, DWORD) {
  if (sim::FaultHere("OpenSCManagerW", ERROR_ACCESS_DENIED)) return nullptr;
  sim::Book(sim::Owned::ServiceHandle, 1);
  return kManager;
}

SC_HANDLE WINAPI OpenServiceW(SC_HANDLE, LPCWSTR pszName, DWORD) {
  if (sim::FaultHere("OpenServiceW", ERROR_ACCESS_DENIED)) return nullptr;
  if (!World::Get().services.bInstalled || sim::Narrow(pszName) != "Norvex_Srv") {
    SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
    return nullptr;
  }
  sim::Book(sim::Owned::ServiceHandle, 1);
  return kService;
}

BOOL WINAPI QueryServiceStatus(SC_HANDLE, LPSERVICE_STATUS pStatus) {
  if (sim::FaultHere("QueryServiceStatus", ERROR_ACCESS_DENIED)) return FALSE;
  *pStatus = {};
  pStatus->dwCurrentState = World::Get().services.dwState;
  ++World::Get().services.nAsked;
  return TRUE;
}

BOOL WINAPI CloseServiceHandle(SC_HANDLE) {
  sim::Book(sim::Owned::ServiceHandle, -1);
  return TRUE;
}

#ifdef _WIN32
// The product's objects reach these through import pointers.
extern decltype(&OpenSCManagerW) __imp_OpenSCManagerW;
extern decltype(&OpenServiceW) __imp_OpenServiceW;
extern decltype(&QueryServiceStatus) __imp_QueryServiceStatus;
extern decltype(&CloseServiceHandle) __imp_CloseServiceHandle;
decltype(&OpenSCManagerW) __imp_OpenSCManagerW = &OpenSCManagerW;
decltype(&OpenServiceW) __imp_OpenServiceW = &OpenServiceW;
decltype(&QueryServiceStatus) __imp_QueryServiceStatus = &QueryServiceStatus;
decltype(&CloseServiceHandle) __imp_CloseServiceHandle = &CloseServiceHandle;
#endif

}  // extern "C"
