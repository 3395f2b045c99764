// The binding to the device-access library.
#include "monitor/sdk.h"

#include <atomic>
#include <functional>

#include "monitor/model.h"
#include "tests/support/world_test.h"

using namespace testing_support;

namespace {

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

TEST_F(SdkFile, RoutinesWaitForTheLaneThatIsTheirs) {
  CSdk sdk;
  sdk.pDevIoCtrl = [](DWORD, LPCWSTR, const void*, DWORD, DWORD*, void*, DWORD, DWORD*, DWORD) -> DWORD { return 0; };
  sdk.pClose = [](DWORD) -> DWORD { return 0; };
  sdk.pOpenW = [](LPCWSTR, DWORD*) -> DWORD { return 0; };
  const std::atomic<bool> bStop{false};
  BYTE by = 0;
  DWORD dw = 0;
  BOOL bSent = FALSE;
  const std::pair<DWORD, std::function<void()>> calls[] = {
      {SYNC_ALL, [&] { sdk.Open(L"Till", TRUE, nullptr); }},
      {SYNC_SEND, [&] { sdk.Send(&by, 1, &dw, 10); }},
      {SYNC_SEND, [&] { sdk.SendUnless(bStop, &by, 1, &dw, 10, &bSent); }},
      {SYNC_CTRL, [&] { sdk.Cancel(); }},
      {SYNC_CTRL, [&] { sdk.Reset(); }},
      {SYNC_CTRL, [&] { sdk.SetSyncComm(DevModelTable()[0].pDevData); }},
      {SYNC_SEND, [&] { sdk.UnlockJob(TRUE); }},
      {SYNC_CTRL, [&] { sdk.UnlockAndClose(); }}};
  for (const auto& [dwLane, call] : calls) {
    sdk.SetSync(dwLane);
    std::atomic<bool> bDone{false};
    SideThread other([&, &call = call] {
      call();
      bDone = true;
    });
    Sleep(100);
    EXPECT_FALSE(bDone) << "lane " << dwLane;
    sdk.ClrSync(dwLane);
    other.Join();
    EXPECT_TRUE(bDone);
  }
}

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
