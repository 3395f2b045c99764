// The waits for an answer, with answers split at every byte.
#include "monitor/exec_response.h"

#include <deque>

#include "monitor/model.h"
#include "monitor/sdk.h"
#include "tests/support/world_test.h"

using namespace testing_support;

namespace {

using Bytes = std::vector<BYTE>;

TEST(WaitForResponse, NeedsAJobAndAModel) {
  IniPort port = {};
  EXPECT_EQ(WaitExecRespAndStatus(nullptr, TRUE), 87u);
  EXPECT_EQ(WaitExecRespAndStatus(&port, TRUE), 87u);
  IniJob job = {};
  port.pIniJob = &job;
  EXPECT_EQ(WaitExecRespAndStatus(&port, FALSE), 87u);
  port.pIniJob = nullptr;
  EXPECT_EQ(WriteReprintChkData(&port, nullptr, 0), 87u);
}

#ifndef _WIN32  // each wait pauses; simulated time makes that free
// A library whose reads answer prepared pieces.
std::deque<Bytes> g_pieces;
DWORD g_cbRoom = 0;  // of the last read
DWORD WINAPI PieceIo(DWORD, LPCWSTR pszRequest, const void*, DWORD cbIn, DWORD* pdwWritten, void* pOut, DWORD cbOut,
                     DWORD* pdwValue, DWORD) {
  if (pszRequest == nullptr) {
    *pdwWritten = cbIn;
    return ERROR_SUCCESS;
  }
  *pdwValue = 0;
  g_cbRoom = cbOut;
  if (g_pieces.empty()) return ERROR_SUCCESS;
  const Bytes piece = g_pieces.front();
  g_pieces.pop_front();
  *pdwValue = static_cast<DWORD>(std::min<std::size_t>(piece.size(), cbOut));
  std::copy_n(piece.begin(), *pdwValue, static_cast<BYTE*>(pOut));
  return ERROR_SUCCESS;
}

// A job on a port whose library answers with pieces.
struct AskedPort {
  explicit AskedPort(const DevData* pDevData) {
    sdk.pDevIoCtrl = PieceIo;
    job.pSdkMng = &sdk;
    job.bySeqNo = 0x25;
    job.hEventCancel = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    port.pszPortName = szPort;
    port.pIniJob = &job;
    port.pDevData = pDevData;
  }
  ~AskedPort() { CloseHandle(job.hEventCancel); }
  AskedPort(const AskedPort&) = delete;
  AskedPort& operator=(const AskedPort&) = delete;

  CSdk sdk;
  IniJob job = {};
  IniPort port = {};
  wchar_t szPort[7] = L"USB001";
};

Bytes g_request;
DWORD WINAPI TwoBytesAtATime(DWORD, LPCWSTR, const void* pIn, DWORD cbIn, DWORD* pdwWritten, void*, DWORD, DWORD*,
                             DWORD) {
  *pdwWritten = std::min<DWORD>(cbIn, 2);
  const auto* pBytes = static_cast<const BYTE*>(pIn);
  g_request.insert(g_request.end(), pBytes, pBytes + *pdwWritten);
  return ERROR_SUCCESS;
}

class Waits : public WorldTest {};

TEST_F(Waits, RequestGoesOutWholeInPieces) {
  AskedPort asked(nullptr);
  asked.sdk.pDevIoCtrl = TwoBytesAtATime;
  const Bytes request = {0x1D, 0x61, 0xFF, 0x12, 0x71, 0x85};
  g_request.clear();
  EXPECT_EQ(WriteReprintChkData(&asked.port, request.data(), 6), 0u);
  EXPECT_EQ(g_request, request);
  SetEvent(asked.job.hEventCancel);  // a deleted job's request is broken off
  EXPECT_EQ(WriteReprintChkData(&asked.port, request.data(), 6), 87u);
  EXPECT_EQ(g_request.size(), 8u);
}

// Each status carries one bit; behind it comes a clean one and the execution response.
TEST_F(Waits, AreStoppedByTheKindsOfStatusThatAreTheirs) {
  constexpr StatusDef kDefs[] = {
      {STATUS_KIND_INFO, 0x1},   {STATUS_KIND_ERROR, 0x2}, {STATUS_KIND_NOT_READY, 0x4}, {9, 0x8}, {0, 0},
      {STATUS_KIND_ERROR, 0x100}};
  const StatusInfo statusInfo = {kDefs};
  const RespInfo respInfo = {&statusInfo, 0};
  const DevData model{nullptr, &respInfo, nullptr};
  AskedPort asked(&model);
  const auto status = [](BYTE byBits) {
    return Bytes{static_cast<BYTE>(0xC0 | byBits), 0xD1, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0};
  };
  const auto waitFor = [&](BYTE byBits, BOOL bExec) {
    g_pieces = {status(byBits), status(0), {0x85}};
    return WaitExecRespAndStatus(&asked.port, bExec);
  };
  for (const BYTE byBits : {BYTE{0}, BYTE{1}, BYTE{4}, BYTE{8}}) EXPECT_EQ(waitFor(byBits, TRUE), 0u) << int{byBits};
  EXPECT_EQ(waitFor(2, TRUE), 1168u);
  for (const BYTE byBits : {BYTE{0}, BYTE{1}, BYTE{8}}) {
    EXPECT_EQ(waitFor(byBits, FALSE), 0u);
    EXPECT_EQ(g_pieces.size(), 2u) << int{byBits};  // the first status will do
  }
  for (const BYTE byBits : {BYTE{2}, BYTE{4}}) {
    EXPECT_EQ(waitFor(byBits, FALSE), 0u);
    EXPECT_EQ(g_pieces.size(), 1u) << int{byBits};
  }
}

// The reads of a printable wait and how many of them it takes; C2 is paper end, C0 D2 … a ready printer.
TEST_F(Waits, PrintableVerdictWaitsForTheStatusThatIsStillOnItsWay) {
  const Bytes ready = {0xC0, 0xD2, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0};
  const auto with = [](Bytes bytes, std::initializer_list<BYTE> more) {
    bytes.insert(bytes.end(), more);
    return bytes;
  };
  AskedPort asked(DevModelTable()[0].pDevData);
  // The second status turns out to be paper end: a third one decides.
  g_pieces = {with(ready, {0xC2, 0xD2, 0xD0}), {0xD0, 0xD0, 0xD0, 0xD0, 0xD0}, ready, ready};
  EXPECT_EQ(WaitExecRespAndStatus(&asked.port, FALSE), 0u);
  EXPECT_EQ(g_pieces.size(), 1u);
  // Its rest never comes: what is whole decides when a read brings nothing.
  g_pieces = {with(ready, {0xC2, 0xD2, 0xD0}), {}, ready};
  EXPECT_EQ(WaitExecRespAndStatus(&asked.port, FALSE), 0u);
  EXPECT_EQ(g_pieces.size(), 1u);
  // In the one-byte protocol the blank status is the one that comes in pieces.
  asked.port.pDevData = DevModelTable()[11].pDevData;
  g_pieces = {{0x40, 0xC0, 0xD0, 0xD0}, {0xD0, 0xD0, 0xD0, 0xD0, 0xD0}, {0x40}, {0x40}};
  EXPECT_EQ(WaitExecRespAndStatus(&asked.port, FALSE), 0u);
  EXPECT_EQ(g_pieces.size(), 1u);
}

TEST_F(Waits, HeldBeginningIsDroppedWhenTheNextStatusBegins) {
  AskedPort asked(DevModelTable()[3].pDevData);  // a model that stops at a bit of the sixth byte
  for (const auto& [byHeader, dwExpected] : {std::pair<BYTE, DWORD>{0xC8, 0}, {0xC2, 1168}}) {
    g_pieces = {{0xC0, 0xD2, 0xD0, 0xD0, 0xD0}, {0x21, byHeader, 0xD2, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0}, {0x85}};
    EXPECT_EQ(WaitExecRespAndStatus(&asked.port, TRUE), dwExpected);
  }
}

TEST_F(Waits, WhatIsHeldTakesItsPlaceInTheRoom) {
  AskedPort asked(DevModelTable()[0].pDevData);
  g_pieces = {{0x85}};
  EXPECT_EQ(WaitExecRespAndStatus(&asked.port, TRUE), 0u);
  const DWORD cbRoom = g_cbRoom;
  g_pieces = {{0xC0, 0xD2, 0xD0}, Bytes(cbRoom, 0xD0), {0x85}};
  EXPECT_EQ(WaitExecRespAndStatus(&asked.port, TRUE), 0u);
  g_pieces = {{0xC0, 0xD2, 0xD0}, {0x85}};
  EXPECT_EQ(WaitExecRespAndStatus(&asked.port, TRUE), 0u);
  EXPECT_EQ(g_cbRoom, cbRoom - 3);
}

TEST_F(Waits, EachPrintableStatusOfAnAnswerHasItsLine) {
  AskedPort asked(DevModelTable()[0].pDevData);
  const Bytes ready = {0xC0, 0xD2, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0};
  Bytes first = ready;
  first.insert(first.end(), {0xC2, 0xD2, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0});
  Bytes second = first;
  second.insert(second.end(), ready.begin(), ready.end());
  g_pieces = {first, second};
  EXPECT_EQ(WaitExecRespAndStatus(&asked.port, FALSE), 0u);
  EXPECT_EQ(sim::World::LogCount("[Port:USB001]Detected printable status"), 3u);
}

// Failing reads with counts, in the drain before a job's first byte: those that set one go on.
int g_nDrainReads = 0;
constexpr int kSlowReads = -1'000'000;  // from here on they succeed, a byte every tenth of a second
DWORD WINAPI FailingReads(DWORD, LPCWSTR pszRequest, const void*, DWORD cbIn, DWORD* pdwWritten, void*, DWORD,
                          DWORD* pdwValue, DWORD) {
  if (pszRequest == nullptr) {
    *pdwWritten = cbIn;
    return ERROR_SUCCESS;
  }
  if (sim::Narrow(pszRequest) != "GET_RAW_DATA_CLR") return ERROR_GEN_FAILURE;
  if (g_nDrainReads < 0) {
    ++g_nDrainReads;
    Sleep(100);
    *pdwValue = 1;
    return ERROR_SUCCESS;
  }
  if (++g_nDrainReads < 3) *pdwValue = 10;  // the third leaves it alone
  return ERROR_GEN_FAILURE;
}

TEST_F(Waits, DrainGoesOnWhileFailingReadsBringSomething) {
  sim::Queue& queue = world().AddPrinter("Till", "USB001", kModel);
  queue.data["AutoReprint"] = sim::Spooler::Dword(1);
  const HANDLE hPort = Open("USB001");
  const DWORD dwJob = world().spooler.NewJob("Till", "TEXT");
  ASSERT_TRUE(world().spooler.StartDoc(hPort, dwJob));
  CSdk& sdk = *static_cast<IniPort*>(hPort)->pSdkMng;
  const auto pfnReal = sdk.pDevIoCtrl;
  sdk.pDevIoCtrl = FailingReads;
  g_nDrainReads = 0;
  SideThread user([&] {
    Sleep(2000);
    world().spooler.SetStatus(dwJob, JOB_STATUS_DELETING);
  });
  BYTE abyData[4] = {};
  DWORD cbWritten = 0;
  EXPECT_TRUE(world().spooler.pMonitor->pfnWritePort(hPort, abyData, 4, &cbWritten));
  EXPECT_EQ(cbWritten, 4u);  // the wait that followed ended with the job's deletion
  EXPECT_EQ(g_nDrainReads, 3);
  user.Join();
  world().spooler.EndDoc(hPort);

  // A printer that never stops talking, slowly, holds the job up for ten seconds.
  const DWORD dwNext = world().spooler.NewJob("Till", "TEXT");
  sdk.pDevIoCtrl = pfnReal;
  ASSERT_TRUE(world().spooler.StartDoc(hPort, dwNext));
  sdk.pDevIoCtrl = FailingReads;
  g_nDrainReads = kSlowReads;
  SideThread laterUser([&] {
    Sleep(12'000);
    world().spooler.SetStatus(dwNext, JOB_STATUS_DELETING);
  });
  EXPECT_TRUE(world().spooler.pMonitor->pfnWritePort(hPort, abyData, 4, &cbWritten));
  EXPECT_NEAR(g_nDrainReads - kSlowReads, 100, 2);
  laterUser.Join();
  sdk.pDevIoCtrl = pfnReal;
  world().spooler.EndDoc(hPort);
}

// Answers of direct output, one a call: bytes written and code.
std::deque<std::pair<DWORD, DWORD>> g_sends;
DWORD WINAPI PlannedSends(DWORD, LPCWSTR, const void*, DWORD cb, DWORD* pdwWritten, void*, DWORD, DWORD*, DWORD) {
  if (g_sends.empty()) {
    ADD_FAILURE() << "one send too many";
    *pdwWritten = cb;
    return ERROR_SUCCESS;
  }
  const auto [cbWritten, dwCode] = g_sends.front();
  g_sends.pop_front();
  *pdwWritten = cbWritten;
  return dwCode;
}

TEST_F(Waits, WhatWasWrittenCountsBeforeTheErrorDoes) {
  AskedPort asked(nullptr);
  asked.sdk.pDevIoCtrl = PlannedSends;
  const Bytes request = {0x1D, 0x61, 0xFF, 0x12, 0x71, 0x85};
  g_sends = {{6, ERROR_DEVICE_NOT_CONNECTED}};
  EXPECT_EQ(WriteReprintChkData(&asked.port, request.data(), 6), 0u);
  g_sends = {{4, ERROR_DEVICE_NOT_CONNECTED}, {0, ERROR_TIMEOUT}, {0, ERROR_GEN_FAILURE}, {2, 0}};
  EXPECT_EQ(WriteReprintChkData(&asked.port, request.data(), 6), 0u);
  g_sends = {{4, 0}, {0, ERROR_DEVICE_NOT_CONNECTED}};
  EXPECT_EQ(WriteReprintChkData(&asked.port, request.data(), 6), 1167u);
  g_sends = {{4, ERROR_GEN_FAILURE}};  // a deleted job's request ends with what failed last, bytes or not
  SetEvent(asked.job.hEventCancel);
  EXPECT_EQ(WriteReprintChkData(&asked.port, request.data(), 6), 31u);
  asked.job.bCancelSeen = true;  // and is not begun once the deletion was seen
  EXPECT_EQ(WriteReprintChkData(&asked.port, request.data(), 6), 87u);
}

struct SplitCase {
  const wchar_t* pszModel;
  Bytes answer;
  BOOL bExec;
  DWORD dwResult;
};
class SplitAnswers : public WorldTest, public ::testing::WithParamInterface<SplitCase> {};

TEST_P(SplitAnswers, AreFoundAsSoonAsTheyAreWhole) {
  AskedPort asked(nullptr);
  for (const DevModelEntry& entry : DevModelTable())
    if (sim::Narrow(entry.pszModelName) == sim::Narrow(GetParam().pszModel)) asked.port.pDevData = entry.pDevData;
  const Bytes& answer = GetParam().answer;
  for (std::size_t nSplit = 1; nSplit <= answer.size(); ++nSplit) {
    for (std::size_t nSecond = nSplit; nSecond <= answer.size(); ++nSecond) {
      const auto cut = [&](std::size_t n) { return answer.begin() + static_cast<std::ptrdiff_t>(n); };
      g_pieces = {Bytes(answer.begin(), cut(nSplit)), Bytes(cut(nSplit), cut(nSecond)),
                  Bytes(cut(nSecond), answer.end())};
      EXPECT_EQ(WaitExecRespAndStatus(&asked.port, GetParam().bExec), GetParam().dwResult) << nSplit << ", " << nSecond;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, SplitAnswers,
    ::testing::Values(
        SplitCase{L"Kelvane HM-520", {0x20, 0xC0, 0xD2, 0x31, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0x84, 0x85}, TRUE, 0},
        SplitCase{L"Kelvane HM-520", {0xC2, 0xD2, 0x31, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0x85}, TRUE, 1168},
        SplitCase{L"Kelvane HM-520",
                  {0xC0, 0xD2, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xC2, 0xD2, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0},
                  TRUE,
                  1168},
        SplitCase{L"Kelvane HM-520", {0xC0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0}, TRUE, 1168},
        SplitCase{L"Kelvane HM-520",
                  {0xC2, 0xD2, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xC0, 0xD2, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0},
                  FALSE,
                  0},
        SplitCase{L"Kelvane Tagline 62", {0xA7, 0xC0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0}, TRUE, 1168},
        SplitCase{L"Kelvane Tagline 62", {0x40, 0xC0, 0xD0, 0x40, 0xC9}, TRUE, 0},
        SplitCase{L"Kelvane Tagline 62", {0x42, 0xC0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0x40}, FALSE, 0}));
#endif

}  // namespace
