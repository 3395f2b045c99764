// The model table.
#include "monitor/model.h"

#include <map>

#include "tests/support/world_test.h"

using namespace testing_support;

namespace {

class Models : public WorldTest {
 protected:
  const DevData* Lookup(const std::string& strDriver) {
    world().AddPrinter("Any", "USB009", strDriver);
    HANDLE hPrinter = nullptr;
    OpenPrinterW(sim::Wide("Any").data(), &hPrinter, nullptr);
    const DevData* pData = GetDevDataLm(hPrinter);
    ClosePrinter(hPrinter);
    return pData;
  }
};

TEST_F(Models, AreFoundByTheWholeDriverName) {
  const DevData* pPx7 = Lookup("kelvane px-7");
  ASSERT_NE(pPx7, nullptr);
  EXPECT_EQ(pPx7, Lookup("Kelvane PX-7"));
  EXPECT_EQ(Lookup("Kelvane PX-7 (2)"), nullptr);
  EXPECT_EQ(Lookup(std::string(260, 'D')), nullptr);
  EXPECT_EQ(GetDevDataLm(nullptr), nullptr);
  EXPECT_NE(Lookup("Kelvane DT-7/DT-8"), nullptr);
}

// What stops a wait: paper, cover, cutter and the like, by the printers' protocols.
TEST_F(Models, EachIsFoundByItsNameAndStopsAtStatusesOfItsOwn) {
  const std::map<std::string, std::uint64_t> errorBits = {{"HM-520", 0xD0F},
                                                          {"HM-510", 0xD0F},
                                                          {"HM-500", 0xD0F},
                                                          {"DT-7/DT-8", 0xD0F},
                                                          {"PX-7", 0x80000000D07},
                                                          {"PX-7T", 0x80000000D07},
                                                          {"PX-6T", 0x80000000D07},
                                                          {"PX-9", 0x80000000D07},
                                                          {"PX-5", 0x80000000507},
                                                          {"DT-2", 0xD0F},
                                                          {"CV-4", 0},
                                                          {"Tagline 62", 0x7}};
  for (const DevModelEntry& entry : DevModelTable()) {
    const DevData* pData = Lookup(sim::Narrow(entry.pszModelName));
    ASSERT_EQ(pData, entry.pDevData) << sim::Narrow(entry.pszModelName);
    std::uint64_t ullErrors = 0;
    for (const StatusDef* p = pData->pRespInfo->pStatusInfo->pStatusDef; p->llMask > 0; ++p)
      if (p->dwKind == STATUS_KIND_ERROR) ullErrors |= static_cast<std::uint64_t>(p->llMask);
    EXPECT_EQ(ullErrors, errorBits.at(sim::Narrow(entry.pszModelName).substr(8))) << sim::Narrow(entry.pszModelName);
  }
}

}  // namespace
