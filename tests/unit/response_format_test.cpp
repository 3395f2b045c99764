// The printer's answers: analysis and scan.
#include "monitor/response_format.h"

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

TEST(Analyze, BytesAreStatusesAndResponsesByTheirHighBits) {
  EXPECT_EQ(Analyze({0x3F, 0x40, 0x7F, 0x80, 0xC8, 0xC9, 0xCA}, true).kept, (Bytes{0x40, 0x7F, 0xC9}));
  EXPECT_EQ(Analyze({0x7F, 0x80, 0x8F, 0x90, 0xBF, 0xE0}, false).kept, (Bytes{0x80, 0x8F}));
  EXPECT_EQ(Analyze({0xC0, 0xCF, 0xD0, 0xDF, 0xE0}, false).kept, (Bytes{0xC0, 0xCF, 0xD0, 0xDF}));
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
  const Bytes behind = {0x41, 0xC0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0};
  EXPECT_EQ(Analyze({0x41, 0x20, 0xC0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0}, true).kept, behind);
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

}  // namespace
