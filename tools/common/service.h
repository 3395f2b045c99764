// A handle to a Windows service.
#pragma once

#include <windows.h>

#include <string>

namespace lmctl {

class Service {
 public:
  // Rights are SERVICE_ values. A service that cannot be opened has no handle.
  Service(const std::wstring& name, DWORD dwRights)
      : m_hManager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)),
        m_hService(m_hManager != nullptr ? OpenServiceW(m_hManager, name.c_str(), dwRights) : nullptr) {}
  ~Service() {
    if (m_hService != nullptr) CloseServiceHandle(m_hService);
    if (m_hManager != nullptr) CloseServiceHandle(m_hManager);
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  SC_HANDLE Handle() const { return m_hService; }
  // Needs SERVICE_QUERY_STATUS. A state of 0: there is no such service, or it cannot be asked.
  SERVICE_STATUS_PROCESS Status() const {
    SERVICE_STATUS_PROCESS status = {};
    DWORD cb = 0;
    if (m_hService == nullptr ||
        !QueryServiceStatusEx(m_hService, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status, &cb))
      status = {};
    return status;
  }
  DWORD State() const { return Status().dwCurrentState; }

 private:
  SC_HANDLE m_hManager;
  SC_HANDLE m_hService;
};

}  // namespace lmctl
