// The driver's request to share a printer again, through the port.
#include "tests/support/world_test.h"

using namespace testing_support;
using sim::World;

namespace {

class ShareRequest : public WorldTest {
 protected:
  ShareRequest() {
    m_pQueue = &world().AddPrinter("Till", "USB001", kModel);
    m_hPort = Open("USB001");
  }
  BOOL Request(const std::string& strValue, DWORD dwControl = 0, DWORD cbOut = 4, bool bSizePointer = true) {
    const sim::ActAsClient client;
    m_dwFlags = 0;
    m_cbReturned = 0;
    return world().spooler.pMonitor->pfnGetPrinterDataFromPort(m_hPort, dwControl, sim::Wide(strValue).data(), nullptr,
                                                               0, reinterpret_cast<wchar_t*>(&m_dwFlags), cbOut,
                                                               bSizePointer ? &m_cbReturned : nullptr);
  }
  sim::Queue* m_pQueue = nullptr;
  HANDLE m_hPort = nullptr;
  DWORD m_dwFlags = 0;
  DWORD m_cbReturned = 0;
};

TEST_F(ShareRequest, SharesOnceAndAnswersWithThePortsFlags) {
  m_pQueue->dwAttributes = 0x40;
  const DWORD dwStart = GetTickCount();
  EXPECT_TRUE(Request("DO_SETTING_SHARE_PRN__Front"));
  EXPECT_EQ(m_pQueue->strShare, "Front");
  EXPECT_EQ(m_pQueue->dwAttributes, 0x48u);
  EXPECT_GE(GetTickCount() - dwStart, 500u);  // the spooler gets that long between open and change
  EXPECT_EQ(m_dwFlags, 0x05u);
  EXPECT_EQ(m_cbReturned, 4u);
  EXPECT_TRUE(Request("DO_SETTING_SHARE_PRN__Back"));
  EXPECT_EQ(m_pQueue->strShare, "Front");
  EXPECT_EQ(world().journal.Count("port GetPrinterDataFromPort"), 2u);  // forwarded all the same
}

TEST_F(ShareRequest, NamesThatAreNoRequestAreOnlyForwarded) {
  for (const char* pszValue : {"do_setting_share_prn__Front", "AutoReprint", "autoreprint", "", "Something"})
    EXPECT_TRUE(Request(pszValue));
  EXPECT_TRUE(Request("DO_SETTING_SHARE_PRN__Front", 1));
  EXPECT_EQ(m_pQueue->strShare, "");
  EXPECT_EQ(World::LogCount("MonGetPrinterDataFromPort [AutoReprint]"), 1u);
  EXPECT_EQ(world().journal.Count("port GetPrinterDataFromPort"), 6u);
}

TEST_F(ShareRequest, ShareNameMayHave32CharactersAndBeginsAtTheFirstMark) {
  EXPECT_TRUE(Request("DO_SETTING_SHARE_PRN"));
  EXPECT_TRUE(Request("DO_SETTING_SHARE_PRN__" + std::string(33, 's')));
  EXPECT_EQ(World::LogCount("Invalid data. [pValue:DO_SETTING_SHARE_PRN"), 2u);
  EXPECT_TRUE(Request("DO_SETTING_SHARE_PRN__"));  // an empty name
  EXPECT_EQ(World::LogCount("Fail to RestoreSharePrinterFromLM [share:][Err:87]"), 1u);
  EXPECT_EQ(m_pQueue->strShare, "");
  EXPECT_TRUE(Request("DO_SETTING_SHARE_PRN_x__a__b" + std::string(28, 's')));
  EXPECT_EQ(m_pQueue->strShare, "a__b" + std::string(28, 's'));
}

TEST_F(ShareRequest, SmallOutputBuffersAreToldInTheLog) {
  for (DWORD cbOut = 0; cbOut < 4; ++cbOut) {
    const std::string strShare = sim::Format("Front%u", static_cast<unsigned>(cbOut));
    EXPECT_TRUE(Request("DO_SETTING_SHARE_PRN__" + strShare, 0, cbOut));
    EXPECT_EQ(m_pQueue->strShare, strShare);
    EXPECT_EQ(m_dwFlags, 0u);
    EXPECT_EQ(m_cbReturned, 0u);
    EXPECT_EQ(
        World::LogCount(sim::Format("cbOutBuffer ERROR_INSUFFICIENT_BUFFER [size:%u]", static_cast<unsigned>(cbOut))),
        1u);
    world().spooler.ClosePort(m_hPort);  // a share is restored once in a port's life
    m_hPort = Open("USB001");
  }
}

TEST_F(ShareRequest, FailedRestoreMayBeRepeated) {
  m_pQueue->strName = "Renamed";  // the spooler's own list still knows it as Till
  EXPECT_TRUE(Request("DO_SETTING_SHARE_PRN__Front", 0, 4, false));
  EXPECT_EQ(World::LogCount("cbOutBuffer ERROR_INSUFFICIENT_BUFFER [size:4]"), 1u);
  world().spooler.ClosePort(m_hPort);
  m_hPort = Open("USB001", "Nobody");
  EXPECT_TRUE(Request("DO_SETTING_SHARE_PRN__Front"));
  EXPECT_EQ(World::LogCount("Fail to RestoreSharePrinterFromLM [share:Front][Err:1801]"), 1u);
  EXPECT_TRUE(Request("DO_SETTING_SHARE_PRN__Front"));
  EXPECT_EQ(World::LogCount("Fail to RestoreSharePrinterFromLM [share:Front][Err:1801]"), 2u);
}

TEST_F(ShareRequest, PortMonitorWithoutTheSlotIsNotSupported) {
  world().spooler.ClosePort(m_hPort);
  world().portMonitor.table.pfnGetPrinterDataFromPort = nullptr;
  m_hPort = Open("USB001");
  EXPECT_FALSE(Request("AutoReprint"));
  EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
}

}  // namespace
