// The printer's answers: analysis and scan, whole and split at every byte.
#include "monitor/response_format.h"

#include <deque>

#include "monitor/exec_response.h"
#include "monitor/model.h"
#include "monitor/reprint.h"
#include "monitor/sdk.h"
#include "monitor/stream_inspect.h"
#include "tests/support/world_test.h"

using namespace testing_support;

namespace {

using Bytes = std::vector<BYTE>;

struct Analysis {
  BOOL bComplete;
  Bytes kept;
  DWORD dwPosition;
};

Analysis Analyze(Bytes bytes, bool bOneByte) {
  Analysis a = {FALSE, {}, 77};
  DWORD dwKept = 0;
  a.bComplete = LmAnalyzeRespData(bytes.data(), static_cast<DWORD>(bytes.size()), &dwKept, &a.dwPosition,
                                  bOneByte ? kAnalyzeOneByteStatus : 0);
  a.kept.assign(bytes.begin(), bytes.begin() + dwKept);
  for (std::size_t n = dwKept; n < bytes.size(); ++n) EXPECT_EQ(bytes[n], 0);
  return a;
}

const Bytes kStatus = {0xC3, 0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6};

TEST(Analyze, KeepsStatusesAndResponsesAndDropsTheRest) {
  const Analysis a = Analyze({0x20, 0xC3, 0xD0, 0x55, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD9, 0x85, 0x11}, false);
  EXPECT_TRUE(a.bComplete);
  EXPECT_EQ(a.kept, (Bytes{0xC3, 0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0x85}));
  EXPECT_EQ(a.dwPosition, 0u);
}

TEST(Analyze, TellsWhatIsIncomplete) {
  const Analysis none = Analyze({0x20, 0xD0, 0x00}, false);
  EXPECT_FALSE(none.bComplete);
  EXPECT_TRUE(none.kept.empty());
  EXPECT_EQ(none.dwPosition, 77u);
  const Analysis part = Analyze({0x85, 0x20, 0xC0, 0xD0, 0xD0}, false);
  EXPECT_FALSE(part.bComplete);
  EXPECT_EQ(part.dwPosition, 2u);
  EXPECT_EQ(part.kept, (Bytes{0x85, 0xC0, 0xD0, 0xD0}));
  const Analysis cut = Analyze({0xC0, 0xD0, 0xD0, 0x00, 0xD0}, false);
  EXPECT_TRUE(cut.bComplete);
  EXPECT_EQ(cut.kept, (Bytes{0xC0, 0xD0, 0xD0}));
  EXPECT_FALSE(LmAnalyzeRespData(nullptr, 1, nullptr, nullptr, 0));
}

TEST(Analyze, OneByteProtocolKeepsTheBlankStatus) {
  const Analysis a = Analyze({0xC0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xC9, 0x41, 0xD0, 0xC0}, true);
  EXPECT_TRUE(a.bComplete);
  EXPECT_EQ(a.kept, (Bytes{0xC0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xC9, 0x41}));
}

ScanResult Scan(const Bytes& kept, bool bOneByte, bool bExec, std::uint64_t ullMask) {
  std::uint64_t ullStatus = 0;
  return ScanResponses(kept, {bOneByte, bExec, static_cast<BYTE>(bOneByte ? 0xC9 : 0x85), ullMask}, ullStatus);
}

TEST(ScanTest, WorkedExamples) {
  Bytes answer = kStatus;
  answer.push_back(0x85);
  EXPECT_EQ(Scan(answer, false, true, 0x4), ScanResult::Done);
  EXPECT_EQ(Scan(answer, false, true, 0x1), ScanResult::Stopped);
  EXPECT_EQ(Scan({0x84}, false, true, 0), ScanResult::Nothing);
  EXPECT_EQ(Scan({0x41}, true, true, 0x1), ScanResult::Stopped);
  EXPECT_EQ(Scan({0xC9}, true, true, 0x1), ScanResult::Done);
  EXPECT_EQ(Scan({0xC0, 0xD0}, false, true, 0), ScanResult::Nothing);  // cut short
}

TEST(ScanTest, LastStatusDecidesWhetherThePrinterIsReady) {
  const Bytes good = {0xC0, 0xD2, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0};
  Bytes badThenGood = kStatus;
  badThenGood.insert(badThenGood.end(), good.begin(), good.end());
  Bytes goodThenBad = good;
  goodThenBad.insert(goodThenBad.end(), kStatus.begin(), kStatus.end());
  EXPECT_EQ(Scan(badThenGood, false, false, 0x1), ScanResult::Done);
  EXPECT_EQ(Scan(goodThenBad, false, false, 0x1), ScanResult::NotPrintable);
  EXPECT_EQ(Scan(Bytes(std::begin(kBlankStatus), std::end(kBlankStatus)), false, false, 0), ScanResult::NotPrintable);
  EXPECT_EQ(Scan(Bytes(std::begin(kBlankStatus), std::end(kBlankStatus)), true, true, 0), ScanResult::Stopped);
  Bytes many(600, 0x80);
  many.push_back(0x85);
  EXPECT_EQ(Scan(many, false, true, 0), ScanResult::Done);
}

#ifndef _WIN32  // each wait pauses; simulated time makes that free
// A library whose reads answer prepared pieces.
std::deque<Bytes> g_pieces;
DWORD WINAPI PieceIo(DWORD, LPCWSTR pszRequest, const void*, DWORD cbIn, DWORD* pdwWritten, void* pOut, DWORD cbOut,
                     DWORD* pdwValue, DWORD) {
  if (pszRequest == nullptr) {
    *pdwWritten = cbIn;
    return ERROR_SUCCESS;
  }
  *pdwValue = 0;
  if (g_pieces.empty()) return ERROR_SUCCESS;
  const Bytes piece = g_pieces.front();
  g_pieces.pop_front();
  *pdwValue = static_cast<DWORD>(std::min<std::size_t>(piece.size(), cbOut));
  std::copy_n(piece.begin(), *pdwValue, static_cast<BYTE*>(pOut));
  return ERROR_SUCCESS;
}

struct SplitCase {
  const wchar_t* pszModel;
  Bytes answer;
  BOOL bExec;
  DWORD dwResult;
};
class SplitAnswers : public WorldTest, public ::testing::WithParamInterface<SplitCase> {};

TEST_P(SplitAnswers, AreFoundAsSoonAsTheyAreWhole) {
  CSdk sdk;
  sdk.pDevIoCtrl = PieceIo;
  IniJob job = {};
  job.pSdkMng = &sdk;
  job.bySeqNo = 0x25;
  job.hEventCancel = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  IniPort port = {};
  wchar_t szPort[] = L"USB001";
  port.pszPortName = szPort;
  port.pIniJob = &job;
  for (const DevModelEntry& entry : DevModelTable())
    if (sim::Narrow(entry.pszModelName) == sim::Narrow(GetParam().pszModel)) port.pDevData = entry.pDevData;
  const Bytes& answer = GetParam().answer;
  for (std::size_t nSplit = 1; nSplit <= answer.size(); ++nSplit) {
    for (std::size_t nSecond = nSplit; nSecond <= answer.size(); ++nSecond) {
      const auto cut = [&](std::size_t n) { return answer.begin() + static_cast<std::ptrdiff_t>(n); };
      g_pieces = {Bytes(answer.begin(), cut(nSplit)), Bytes(cut(nSplit), cut(nSecond)),
                  Bytes(cut(nSecond), answer.end())};
      EXPECT_EQ(WaitExecRespAndStatus(&port, GetParam().bExec), GetParam().dwResult) << nSplit << ", " << nSecond;
    }
  }
  CloseHandle(job.hEventCancel);
}

INSTANTIATE_TEST_SUITE_P(
    All, SplitAnswers,
    ::testing::Values(
        SplitCase{L"Kelvane HM-520", {0x20, 0xC0, 0xD2, 0x31, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0x84, 0x85}, TRUE, 0},
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

// ---- the model table --------------------------------------------------------------------------------------------------

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

TEST_F(Models, OnlyTheirOwnRowsDiffer) {
  int nOneByte = 0;
  int nOption = 0;
  int nInfo = 0;
  int nFlags = 0;
  for (const DevModelEntry& entry : DevModelTable()) {
    nOneByte += entry.pDevData->HasOneByteStatus() ? 1 : 0;
    nOption += (entry.pDevInfo->wDevCaps & DEVCAP_OPEN_OPTION) != 0 ? 1 : 0;
    nFlags += entry.pDevData->KeepsLogSettingFlags() ? 1 : 0;
    for (const StatusDef* p = entry.pDevData->pRespInfo->pStatusInfo->pStatusDef; p->llMask > 0; ++p)
      nInfo += p->dwKind == STATUS_KIND_INFO ? 1 : 0;
  }
  EXPECT_EQ(DevModelTable().size(), 12u);
  EXPECT_EQ(nOneByte, 1);
  EXPECT_EQ(nOption, 1);
  EXPECT_EQ(nInfo, 1);
  EXPECT_EQ(nFlags, 3);
  EXPECT_NE(DevModelTable()[0].pDevData, DevModelTable()[1].pDevData);
  EXPECT_EQ(DevModelTable()[0].pDevData->pRespInfo, DevModelTable()[1].pDevData->pRespInfo);
  const DevData* pCv4 = Lookup("Kelvane CV-4");
  ASSERT_NE(pCv4, nullptr);
  EXPECT_EQ(pCv4->pDevSetting, nullptr);
  EXPECT_EQ(pCv4->pDevInfo.load()->pszCommSetting, nullptr);
  EXPECT_LE(pCv4->pRespInfo->pStatusInfo->pStatusDef->llMask, 0);
}

// ---- the reprint cache ------------------------------------------------------------------------------------------------

TEST(ReprintCache, StartsAtTheSizeOfTheLastJobsAndDoubles) {
  IniPort port = {};
  ReprintMng& mng = port.reprintMng;
  const std::vector<BYTE> bytes(20'000'000, 7);
  EXPECT_EQ(CashWriteData(&port, bytes.data(), 10), 0u);
  EXPECT_EQ(mng.cbAlloc, 3'145'728u);
  EXPECT_EQ(CashWriteData(&port, bytes.data(), 20'000'000), 0u);  // more than twice the capacity
  EXPECT_EQ(mng.cbData, 20'000'010u);
  EXPECT_EQ(mng.cbAlloc, 3'145'728u * 8);
  for (const DWORD cb : {1000u, 3000u}) ManageReprintMng(&mng, cb);
  CashWriteData(&port, bytes.data(), 1500);
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

// ---- device binding ---------------------------------------------------------------------------------------------------

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
  SetLastError(9);
  s_dwAnswer = ERROR_TIMEOUT;
  EXPECT_TRUE(sdk.Send(&by, 1, &dw, 10));
  EXPECT_EQ(GetLastError(), 9u);
}

// ---- real-time commands -----------------------------------------------------------------------------------------------

struct CommandCase {
  std::string strIn;
  std::string strOut;
};
class RealCommands : public ::testing::TestWithParam<CommandCase> {};

TEST_P(RealCommands, AreRewrittenAtEverySplit) {
  for (std::size_t nSplit = 0; nSplit <= GetParam().strIn.size(); ++nSplit) {
    IniJob job = {};
    IniPort port = {};
    port.pIniJob = &job;
    std::string strData = GetParam().strIn;
    auto* p = reinterpret_cast<BYTE*>(strData.data());
    CheckRealCmd(&port, p, static_cast<DWORD>(nSplit));
    CheckRealCmd(&port, p + nSplit, static_cast<DWORD>(strData.size() - nSplit));
    EXPECT_EQ(strData, GetParam().strOut) << nSplit;
  }
}
INSTANTIATE_TEST_SUITE_P(
    All, RealCommands,
    ::testing::Values(CommandCase{"\x13(reset\x13reset)", "\x13(reset\x13resev)"},
                      CommandCase{"\x13(clr)", "\x13(cls)"},
                      CommandCase{std::string("\x10\x14\x01\x00\x05", 5), std::string("\x10\x14\x01\x00\x15", 5)},
                      CommandCase{std::string("\x10\x14\x01\x00\x09", 5), std::string("\x10\x14\x01\x00\x09", 5)},
                      CommandCase{std::string("\x10\x14\x01\x00\x00", 5), std::string("\x10\x14\x01\x00\x00", 5)},
                      CommandCase{"\x13(re\x13(clr", "\x13(re\x13(cls"},
                      CommandCase{"\x13(reset\x13(clr", "\x13(reset\x13(cls"},
                      CommandCase{"\x13(reset\x13rexet", "\x13(reset\x13rexet"}));

}  // namespace
