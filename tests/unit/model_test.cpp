// The model table.
#include "monitor/model.h"
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

TEST_F(Models, EachIsFoundByItsNameAndStopsAtStatusesOfItsOwn) {
  for (const DevModelEntry& entry : DevModelTable()) {
    const DevData* pData = Lookup(sim::Narrow(entry.pszModelName));
    ASSERT_EQ(pData, entry.pDevData) << sim::Narrow(entry.pszModelName);
    std::uint64_t ullErrors = 0;
    for (const StatusDef* p = pData->pRespInfo->pStatusInfo->pStatusDef; p->llMask > 0; ++p)
      if (p->dwKind == STATUS_KIND_ERROR) ullErrors |= static_cast<std::uint64_t>(p->llMask);
    // An error bit above the first byte can only come in a status of eight bytes.
    EXPECT_EQ(ullErrors >> 8 == 0, pData->HasOneByteStatus() || pData->pDevSetting == nullptr);
  }
}

}  // namespace
