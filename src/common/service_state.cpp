#include "common/service_state.h"

#include <memory>

#include "common/log_module.h"

namespace {

struct ServiceCloser {
  using pointer = SC_HANDLE;
  void operator()(SC_HANDLE h) const noexcept { CloseServiceHandle(h); }
};
using UniqueService = std::unique_ptr<void, ServiceCloser>;

constexpr DWORD kLastPlainCode = 0xFFFF;  // codes above are HRESULT-like and read better in hexadecimal

}  // namespace

BOOL IsRunService(const wchar_t* pszService) noexcept {
  LogEntry();
  const UniqueService manager(OpenSCManagerW(nullptr, SERVICES_ACTIVE_DATABASEW, SC_MANAGER_ENUMERATE_SERVICE));
  if (!manager) {
    const DWORD dwError = GetLastError();
    LogE(dwError <= kLastPlainCode ? L"OpenSCManager (system error:%d)" : L"OpenSCManager (system error:0x%08x)",
         dwError);
    return FALSE;
  }
  const UniqueService service(OpenServiceW(manager.get(), pszService, SERVICE_QUERY_STATUS));
  if (!service) {
    LogE(L"OpenService [err:%d, name:%s]", GetLastError(), pszService);
    return FALSE;
  }
  SERVICE_STATUS status = {};
  if (!QueryServiceStatus(service.get(), &status)) {
    const DWORD dwError = GetLastError();
    LogE(dwError <= kLastPlainCode ? L"QueryServiceStatus (system error:%d)"
                                   : L"QueryServiceStatus (system error:0x%08x)",
         dwError);
    return FALSE;
  }
  return status.dwCurrentState == SERVICE_RUNNING;
}
