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

struct ModelRow {
  const char* pszDriver;
  std::uint64_t ullErrorMask;
  std::uint64_t ullInfoMask;
  const char* pszCommSetting;  // null: none at all
  bool bOneByteStatus, bOpenOption, bLogSettingFlags;
};
constexpr char kSpeeds[] = "115200,38400,19200,9600,P,X";
constexpr ModelRow kRows[] = {
    {"Kelvane HM-520", 0xD0F, 0, kSpeeds, false, false, false},
    {"Kelvane HM-510", 0xD0F, 0, kSpeeds, false, false, false},
    {"Kelvane HM-500", 0xD0F, 0, kSpeeds, false, false, false},
    {"Kelvane PX-7", 0x80000000D07, 0, "", false, false, false},
    {"Kelvane PX-7T", 0x80000000D07, 0, "", false, false, false},
    {"Kelvane PX-5", 0x80000000507, 0, "", false, false, true},
    {"Kelvane PX-6T", 0x80000000D07, 0, "", false, false, false},
    {"Kelvane PX-9", 0x80000000D07, 0, "", false, false, true},
    {"Kelvane DT-2", 0xD0F, 0x200, kSpeeds, false, true, true},
    {"Kelvane DT-7/DT-8", 0xD0F, 0, kSpeeds, false, false, false},
    {"Kelvane CV-4", 0, 0, nullptr, false, false, false},
    {"Kelvane Tagline 62", 0x7, 0, "115200,38400,19200,9600", true, false, false},
};

TEST_F(Models, TellWhatThePrintersDo) {
  ASSERT_EQ(DevModelTable().size(), std::size(kRows));
  for (const ModelRow& row : kRows) {
    SCOPED_TRACE(row.pszDriver);
    const DevData* pData = Lookup(row.pszDriver);
    ASSERT_NE(pData, nullptr);
    std::uint64_t ullErrors = 0;
    std::uint64_t ullInfo = 0;
    for (const StatusDef* p = pData->pRespInfo->pStatusInfo->pStatusDef; p->llMask > 0; ++p)
      (p->dwKind == STATUS_KIND_ERROR ? ullErrors : ullInfo) |= static_cast<std::uint64_t>(p->llMask);
    EXPECT_EQ(ullErrors, row.ullErrorMask);
    EXPECT_EQ(ullInfo, row.ullInfoMask);
    const DevInfo& info = *pData->pDevInfo.load();
    EXPECT_EQ(info.pszCommSetting == nullptr, row.pszCommSetting == nullptr);
    if (row.pszCommSetting != nullptr) {
      EXPECT_EQ(sim::Narrow(info.pszCommSetting), row.pszCommSetting);
    }
    EXPECT_EQ(pData->HasOneByteStatus(), row.bOneByteStatus);
    EXPECT_EQ((info.wDevCaps & DEVCAP_OPEN_OPTION) != 0, row.bOpenOption);
    EXPECT_EQ(pData->KeepsLogSettingFlags(), row.bLogSettingFlags);
  }
  EXPECT_NE(Lookup(kRows[0].pszDriver), Lookup(kRows[1].pszDriver));
  EXPECT_EQ(Lookup(kRows[0].pszDriver)->pRespInfo, Lookup(kRows[1].pszDriver)->pRespInfo);
  EXPECT_EQ(Lookup("Kelvane CV-4")->pDevSetting, nullptr);
}

}  // namespace
