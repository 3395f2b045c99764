#include "monitor/model.h"

#include <cwchar>

#include "common/printer_info.h"
#include "monitor/log_module.h"

const DevData* GetDevDataLm(HANDLE hPrinter) noexcept {
  wchar_t wszDriver[260] = {};
  if (hPrinter == nullptr) {
    LogE(L"Invalid Handle.");
    return nullptr;
  }
  if (!Get_Driver_Name(hPrinter, wszDriver)) {
    LogW(L"Failed to acquire model dependent information.");
    return nullptr;
  }
  for (const DevModelEntry& entry : DevModelTable()) {
    if (_wcsicmp(entry.pszModelName, wszDriver) != 0) continue;
    entry.pDevData->pDevInfo.store(entry.pDevInfo, std::memory_order_relaxed);
    return entry.pDevData;
  }
  return nullptr;
}
