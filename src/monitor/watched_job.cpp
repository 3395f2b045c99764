#include "monitor/watched_job.h"

#include <cwchar>

#include "common/printer_info.h"
#include "monitor/log_module.h"

bool IsRawJob(const IniJob* pIniJob) noexcept {
  return pIniJob != nullptr && pIniJob->pJob != nullptr && pIniJob->pJob->pDatatype != nullptr &&
         _wcsicmp(pIniJob->pJob->pDatatype, L"RAW") == 0;
}

bool IsSharedPrinter(const IniJob* pIniJob, const char* pszRoutine) noexcept {
  wchar_t wszShare[kShareNameChars] = {};
  if (pIniJob == nullptr || !Get_Share_Name(pIniJob->hPrinter, wszShare)) {
    Assert(__FILE__, pszRoutine, __LINE__, GetLastError());
    return false;
  }
  return *wszShare != 0;
}
