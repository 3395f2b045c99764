#include "monitor/watched_job.h"

#include <cwchar>

#include "common/printer_info.h"
#include "monitor/log_module.h"

bool IsRawJob(const IniJob* pIniJob) noexcept {
  return pIniJob != nullptr && pIniJob->pJob != nullptr && pIniJob->pJob->pDatatype != nullptr &&
         _wcsicmp(pIniJob->pJob->pDatatype, L"RAW") == 0;
}

bool IsSharedPrinter(const IniJob* pIniJob) noexcept {
  wchar_t wszShare[kShareNameChars] = {};
  if (pIniJob == nullptr || !Get_Share_Name(pIniJob->hPrinter, wszShare)) {
    AssertHere();
    return false;
  }
  return *wszShare != 0;
}
