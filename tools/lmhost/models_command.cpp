// lmhost models.
#include <cstdio>

#include "monitor/model.h"
#include "sim/world.h"
#include "tools/lmhost/commands.h"

namespace lmhost {

int ShowModels() {
  std::printf("%-20s %-10s %-5s %-5s %-9s %s\n", "driver", "status", "open", "flags", "errors", "serial settings");
  for (const DevModelEntry& entry : DevModelTable()) {
    const DevData& model = *entry.pDevData;
    int nErrors = 0;
    for (const StatusDef* pDef = model.pRespInfo->pStatusInfo->pStatusDef; pDef->llMask > 0; ++pDef)
      nErrors += pDef->dwKind == STATUS_KIND_ERROR ? 1 : 0;
    std::printf(
        "%-20s %-10s %-5s %-5s %-9d %s\n", sim::Narrow(entry.pszModelName).c_str(),
        model.HasOneByteStatus() ? "one byte" : "eight", (entry.pDevInfo->wDevCaps & DEVCAP_OPEN_OPTION) ? "yes" : "-",
        model.KeepsLogSettingFlags() ? "yes" : "-", nErrors, sim::Narrow(entry.pDevInfo->pszCommSetting).c_str());
  }
  return kExitDelivered;
}

}  // namespace lmhost
