// The binding to the device-access library.
#include "monitor/sdk.h"

#include "monitor/model.h"
#include "tests/support/world_test.h"

using namespace testing_support;

namespace {

TEST(Sdk, OpenOptionsAreThoseOfTheModelThatIsHandedIn) {
  static DWORD s_dwOptions = 0;
  constexpr DevInfo kInfo = {nullptr, DEVCAP_OPEN_OPTION};
  constexpr RespInfo kResponses = {nullptr, RESP_ONE_BYTE_STATUS};
  const DevData model{&kInfo, &kResponses, nullptr};
  const DevData* pModel = &model;
  CSdk sdk;
  sdk.pOpenW = [](LPCWSTR, DWORD* pdwSession) -> DWORD {
    s_dwOptions = *pdwSession;
    *pdwSession = 9;
    return 0;
  };
  EXPECT_EQ(sdk.Open(L"nobody", TRUE, &pModel), 0u);
  EXPECT_EQ(s_dwOptions, 0x1000200u);
  EXPECT_EQ(pModel, &model);
  s_dwOptions = 0;
  EXPECT_EQ(sdk.Open(L"nobody", TRUE, &pModel), 0u);  // a session is open: nothing happens
  EXPECT_EQ(s_dwOptions, 0u);
}

class SdkFile : public WorldTest {};

TEST_F(SdkFile, IsLoadedOnce) {
  CSdk sdk;
  EXPECT_TRUE(sdk.LoadDll());
  EXPECT_FALSE(sdk.LoadDll());
  EXPECT_EQ(sim::World::LogCount("Multiple dll calls"), 1u);
  EXPECT_NE(sdk.hSdkDll, nullptr);
}

#ifndef _WIN32  // there the file has all of its entry points
TEST_F(SdkFile, WithoutAllEntryPointsIsGivenBack) {
  world().InstallLibrary(true, 2);
  CSdk sdk;
  EXPECT_FALSE(sdk.LoadDll());
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_FUNCTION));
  EXPECT_TRUE(sdk.hSdkDll == nullptr && sdk.pOpenW == nullptr && sdk.pClose == nullptr && sdk.pDevIoCtrl == nullptr);
}
#endif

TEST(Sdk, ReadTakesTwoFlagsAndUnlockNeedsNoLock) {
  CSdk sdk;
  static DWORD s_dwAnswer = 0;
  sdk.pDevIoCtrl = [](DWORD, LPCWSTR, const void*, DWORD, DWORD*, void*, DWORD, DWORD*, DWORD) -> DWORD {
    return s_dwAnswer;
  };
  BYTE by = 0;
  DWORD dw = 0;
  EXPECT_EQ(sdk.Read(&by, 1, &dw, 0x10), 87u);
  EXPECT_EQ(sdk.Read(&by, 1, &dw, 0x20), 0u);
  EXPECT_TRUE(sdk.UnlockJob(TRUE));  // no session
  sdk.dwSessionId = 5;
  s_dwAnswer = ERROR_NOT_LOCKED;
  EXPECT_TRUE(sdk.UnlockJob(TRUE));
  s_dwAnswer = 31;
  EXPECT_FALSE(sdk.UnlockAndClose());
  EXPECT_EQ(GetLastError(), 31u);
  EXPECT_EQ(sdk.dwSessionId, 5u);
  s_dwAnswer = ERROR_NOT_SUPPORTED;
  EXPECT_EQ(sdk.SetSyncComm(DevModelTable()[0].pDevData), 0u);
  EXPECT_EQ(sdk.nCommSync, -1);
  s_dwAnswer = 31;
  EXPECT_EQ(sdk.SetSyncComm(DevModelTable()[0].pDevData), 31u);
  EXPECT_EQ(sdk.nCommSync, 0);
  sdk.nCommSync = 1;
  s_dwAnswer = 0;
  sdk.pClose = [](DWORD) -> DWORD { return 0; };
  EXPECT_TRUE(sdk.UnlockAndClose());
  EXPECT_EQ(sdk.dwSessionId, 0u);
  EXPECT_EQ(sdk.nCommSync, 0);  // to be done again for the next session
  sdk.dwSessionId = 5;
  SetLastError(9);
  s_dwAnswer = ERROR_TIMEOUT;
  EXPECT_TRUE(sdk.Send(&by, 1, &dw, 10));
  EXPECT_EQ(GetLastError(), 9u);
}

}  // namespace
