// The reprint cache and its resend.
#include "monitor/reprint.h"

#include <algorithm>
#include <deque>

#include "monitor/sdk.h"
#include "tests/support/world_test.h"

using namespace testing_support;

namespace {

TEST(ReprintCache, StartsAtTheSizeOfTheLastJobsAndDoubles) {
  IniPort port = {};
  ReprintMng& mng = port.reprintMng;
  const std::vector<BYTE> bytes(20'000'000, 7);
  EXPECT_EQ(CashWriteData(&port, bytes.data(), 10), 0u);
  EXPECT_EQ(mng.cbAlloc, 3'145'728u);
  EXPECT_EQ(CashWriteData(&port, bytes.data(), 20'000'000), 0u);  // more than twice the capacity
  EXPECT_EQ(mng.cbData, 20'000'010u);
  EXPECT_TRUE(std::all_of(mng.pBuf, mng.pBuf + mng.cbData, [](BYTE by) { return by == 7; }));  // old bytes and new
  EXPECT_EQ(mng.cbAlloc, 3'145'728u * 8);
  ManageReprintMng(&mng, 0);
  ManageReprintMng(&mng, 1000);
  CashWriteData(&port, bytes.data(), 10);
  EXPECT_EQ(mng.cbAlloc, 3'145'728u);  // one job's size is not enough
  for (const DWORD cb : {1000u, 3000u}) ManageReprintMng(&mng, cb);
  CashWriteData(&port, bytes.data(), 1500);
  EXPECT_EQ(mng.cbAlloc, 2000u);
  for (const DWORD cb : {1000u, 3000u}) ManageReprintMng(&mng, cb);
  CashWriteData(&port, bytes.data(), 2000);
  EXPECT_EQ(mng.cbAlloc, 2000u);
  for (const DWORD cb : {1000u, 3000u}) ManageReprintMng(&mng, cb);
  CashWriteData(&port, bytes.data(), 2500);
  EXPECT_EQ(mng.cbAlloc, 4000u);
  ManageReprintMng(&mng, 0);
  CashWriteData(&port, bytes.data(), 1);
  EXPECT_EQ(mng.cbAlloc, 3'145'728u);
  ManageReprintMng(&mng, 0);
  EXPECT_EQ(mng.pBuf, nullptr);
  EXPECT_FALSE(ManageReprintMng(nullptr, 1));
}

#ifndef _WIN32
TEST(ReprintCache, WithoutMemoryItIsEmptiedAndForgetsSizes) {
  IniPort port = {};
  const std::vector<BYTE> bytes(4'000'000, 7);
  ManageReprintMng(&port.reprintMng, 1000);
  ManageReprintMng(&port.reprintMng, 3000);
  const w32::FaultsOn faults;
  w32::ResetFaults();
  w32::FailCalls("HeapAlloc");
  EXPECT_EQ(CashWriteData(&port, bytes.data(), 10), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
  EXPECT_EQ(CashWriteData(&port, bytes.data(), 10), 0u);
  EXPECT_EQ(port.reprintMng.cbAlloc, 3'145'728u);  // the sizes of the last jobs are gone
  w32::FailCalls("HeapAlloc");
  EXPECT_EQ(CashWriteData(&port, bytes.data(), 4'000'000), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
  EXPECT_EQ(port.reprintMng.pBuf, nullptr);
  EXPECT_EQ(port.reprintMng.cbAlloc, 0u);
  w32::ResetFaults();
}
#endif

// A library whose sends answer a prepared list of codes and counts, then take everything.
struct SendAnswer {
  DWORD dwCode;
  DWORD cbWritten;
};
std::deque<SendAnswer> g_sendAnswers;
DWORD WINAPI AnsweredSend(DWORD, LPCWSTR, const void*, DWORD cbIn, DWORD* pdwWritten, void*, DWORD, DWORD*, DWORD) {
  const SendAnswer answer = g_sendAnswers.empty() ? SendAnswer{0, cbIn} : g_sendAnswers.front();
  if (!g_sendAnswers.empty()) g_sendAnswers.pop_front();
  *pdwWritten = answer.cbWritten;
  SetLastError(ERROR_DEVICE_NOT_CONNECTED);  // whatever it leaves there, its result is what counts
  return answer.dwCode;
}

struct DumpCase {
  std::deque<SendAnswer> answers;
  DWORD dwResult;
};
class ReprintDump : public ::testing::TestWithParam<DumpCase> {};

TEST_P(ReprintDump, EndsAsTheSendsSay) {
  CSdk sdk;
  sdk.pDevIoCtrl = AnsweredSend;
  IniJob job = {};
  job.pSdkMng = &sdk;
  job.hEventCancel = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  IniPort port = {};
  wchar_t szPort[] = L"USB001";
  port.pszPortName = szPort;
  port.pIniJob = &job;
  port.pSdkMng = &sdk;
  EXPECT_EQ(ReprintDumpData(&port), 87u);  // nothing cached
  const BYTE abyData[100] = {};
  CashWriteData(&port, abyData, sizeof abyData);
  g_sendAnswers = GetParam().answers;
  EXPECT_EQ(ReprintDumpData(&port), GetParam().dwResult);
  EXPECT_TRUE(g_sendAnswers.empty());
  SetEvent(job.hEventCancel);
  EXPECT_EQ(ReprintDumpData(&port), 87u);  // cancelled before the first send
  ManageReprintMng(&port.reprintMng, 0);
  CloseHandle(job.hEventCancel);
}
INSTANTIATE_TEST_SUITE_P(All, ReprintDump,
                         ::testing::Values(DumpCase{{}, 0}, DumpCase{{{0, 40}, {0, 60}}, 0},
                                           DumpCase{{{ERROR_TIMEOUT, 40}, {ERROR_BUSY, 0}, {31, 10}}, 0},
                                           DumpCase{{{0, 40}, {ERROR_DEVICE_NOT_CONNECTED, 0}}, 1167},
                                           DumpCase{{{0, 101}}, 111}, DumpCase{{{0, 60}, {0, 60}}, 111}));

}  // namespace
