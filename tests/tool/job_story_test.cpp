// What the reader makes of lines: of several threads and processes at once, held, cut short, out of order.
#include <gtest/gtest.h>

#include <fstream>

#include "sim/text.h"
#include "tests/tool/tool_run.h"
#include "tools/lmctl/story/neighbours.h"
#include "tools/lmctl/story/story_machine.h"
#include "tools/lmctl/log/log_reader.h"
#include "tools/lmctl/render/render.h"

using lmctl::kUnknown;
using lmctl::Outcome;
using lmctl::Path;
using lmctl::Story;
using lmctl::Tri;

namespace {

// A log as it is written, with a clock that goes on by a millisecond a line.
class Log {
 public:
  Log& At(const char* pszTime) {  // "11/18 09:00(00.000)" without its milliseconds
    m_strTime = pszTime;
    return *this;
  }
  Log& Say(unsigned nThread, char cLevel, const char* pszRoutine, const std::string& strMessage,
           unsigned nProcess = 0x10, const char* pszHeld = "") {
    m_strText += sim::Format("%s[%s.%03u)]\t[%08x(%08x)]\t[%c] \t[DRV_LM ] \t%s(12) \t", pszHeld, m_strTime.c_str(),
                             m_nMs++ % 1000, nProcess, nThread, cLevel, pszRoutine) +
                 strMessage + "\r\n";
    return *this;
  }
  Log& Raw(const std::string& strText) {
    m_strText += strText;
    return *this;
  }
  Log& Start(unsigned nThread, int nJob, const char* pszQueue = "Till", unsigned nProcess = 0x10) {
    Say(nThread, 'I', "MonStartDocPort", sim::Format("pszPrinterName:%s, JobId:%d", pszQueue, nJob), nProcess);
    return m_bTraced ? Say(nThread, 'T', "IsUseSdkSrv", "Flags:0x0", nProcess) : *this;
  }
  // Level T is off from here on.
  Log& Untraced() {
    m_bTraced = false;
    return *this;
  }
  // A write of a port-monitor job.
  Log& Write(unsigned nThread, const char* pszPort, int cb, unsigned nProcess = 0x10) {
    Say(nThread, 'I', "MonWritePort", sim::Format("[pszPortName:%s, cbBuf:%d]", pszPort, cb), nProcess);
    if (m_bTraced)
      Say(nThread, 'T', "IsCancelJob",
          sim::Format("pIniPort:0x%08x", nProcess * 65536 + static_cast<unsigned>(pszPort[0] * 256 + pszPort[3])),
          nProcess);
    return Say(nThread, 'I', "MonWritePort",
               sim::Format("(*pIniPort->fn.pfnWritePort) [pszPortName:%s,cbBuf:%d/%d]", pszPort, cb, cb), nProcess);
  }
  Log& End(unsigned nThread, int nJob, unsigned nProcess = 0x10) {
    return Say(nThread, 'T', "SendJobLastPageEjected", sim::Format("[pIniPort:0x00000001, nValue:%d]", nJob), nProcess);
  }
  const std::string& Text() const { return m_strText; }

 private:
  std::string m_strTime = "11/18 09:00(00";
  unsigned m_nMs = 0;
  bool m_bTraced = true;
  std::string m_strText;
};

std::vector<Story> Read(const TestFolder& folder, std::uint64_t* pUnlisted = nullptr) {
  lmctl::LogReader reader({folder / ""});
  std::vector<Story> stories;
  lmctl::StoryMachine machine([&](Story&& story) { stories.push_back(std::move(story)); }, false);
  reader.Read(
      [&](const lmctl::LogReader::Line& line) {
        const auto parsed = lmctl::ParseLine(line.text, line.bWhole);
        machine.Line(parsed, lmctl::TimeOf(parsed, reader.Sources()[line.nSource]), {line.nSource, line.nLine});
      },
      true);
  machine.End();
  if (pUnlisted != nullptr) *pUnlisted = machine.Unlisted();
  return stories;
}

class Stories : public ::testing::Test {
 protected:
  void File(const std::string& strName, const std::string& strText) {
    std::ofstream(m_folder / strName, std::ios::binary) << strText;
  }
  std::vector<Story> Of(const Log& log) {
    File("20261118.log", log.Text());
    return Read(m_folder);
  }
  TestFolder m_folder;
};

TEST_F(Stories, ThreadsAndProcessesAreKeptApartAndTheirNumbersUsedAgain) {
  Log log;
  log.Start(1, 7).Start(1, 7, "Bar", 0x20).Start(2, 8, "Kitchen");
  log.Write(1, "COM1", 100).Write(2, "COM2", 50).Write(1, "LPT1:", 9, 0x20).Write(1, "COM1", 11);
  log.End(1, 7, 0x20).End(1, 7).Start(1, 9).Write(1, "COM1", 3).End(1, 9).End(2, 8);
  const auto stories = Of(log);
  ASSERT_EQ(stories.size(), 4u);
  EXPECT_EQ(stories[0].strQueue, "Bar");
  EXPECT_EQ(stories[0].nBytes, 9);
  EXPECT_EQ(stories[1].nBytes, 111);
  EXPECT_EQ(stories[1].nWrites, 2);
  EXPECT_EQ(stories[2].nJob, 9);
  EXPECT_EQ(stories[2].nBytes, 3);
  EXPECT_EQ(stories[3].strPort, "COM2");
  for (const Story& story : stories) {
    EXPECT_EQ(story.outcome, Outcome::Printed);
    EXPECT_EQ(story.path, Path::PortMonitor);
    EXPECT_TRUE(story.NotLogged().empty());
  }
}

TEST_F(Stories, GarbageOtherModulesHeldLinesTracesAndACutEndDoNotDisturb) {
  Log log;
  log.Raw("Kelvane Thermal Printer Log\r\n\r\n")
      .Start(1, 7)
      .Raw("\0\x01\xFF garbage [\r\n\r\n[11/18 09:00(99.000)]\t[\r\n");
  log.Raw(
      "[11/18 09:00(00.100)]\t[00000010(00000001)]\t[I] \t[OTHER  ] \tMonStartDocPort(1) \tpszPrinterName:X, "
      "JobId:99\r\n");
  log.Raw("$$$ [09:00(00.001)] [00000010(00000001)] MonStartDocPort(158)\r\n");
  log.Write(1, "COM1", 100).Say(1, 'I', "MonWritePort", "[pszPortName:COM1, cbBuf:5]", 0x10, "**");
  log.Say(1, 'I', "MonWritePort", "(*pIniPort->fn.pfnWritePort) [pszPortName:COM1,cbBuf:5/5]", 0x10, "*").End(1, 7);
  log.Start(1, 8).Raw("[11/18 09:00(00.900)]\t[00000010(00000001)]\t[I] \t[DRV_LM ] \tMonWri");
  const auto stories = Of(log);
  ASSERT_EQ(stories.size(), 2u);
  EXPECT_EQ(stories[0].nBytes, 105);
  EXPECT_EQ(stories[1].nJob, 8);
}

TEST_F(Stories, YearComesFromTheNameAndRotatedFilesComeFirst) {
  File("20261231_235959(990).log", Log().At("12/31 23:59(59").Start(1, 7).Text());
  File("20261231.log", Log().At("12/31 23:59(59").Write(1, "COM1", 10).Text());
  File("20270101.log", Log()
                           .At("12/31 23:59(59")
                           .Say(2, 'I', "MonReadPort", "[PortName:x]", 0x10, "*")
                           .At("01/01 00:00(01")
                           .End(1, 7)
                           .Text());
  const auto stories = Read(m_folder);
  ASSERT_EQ(stories.size(), 1u);
  EXPECT_EQ(lmctl::IsoTime(stories[0].llStarted), "2026-12-31T23:59:59.000");
  EXPECT_EQ(lmctl::IsoTime(stories[0].llEnded), "2027-01-01T00:00:01.001");
  EXPECT_EQ(stories[0].nBytes, 10);
}

TEST_F(Stories, ClockSetBackIsNoReasonToLoseAJob) {
  const auto stories = Of(Log().At("11/18 09:30(00").Start(1, 7).At("11/18 08:30(00").Write(1, "COM1", 10).End(1, 7));
  ASSERT_EQ(stories.size(), 1u);
  EXPECT_EQ(stories[0].outcome, Outcome::Printed);
  EXPECT_LT(stories[0].llEnded, stories[0].llStarted);
}

TEST_F(Stories, WhatIsMissingIsNamedAndNotGuessed) {
  // The end of a device job is not logged without T.
  Log device;
  device.Untraced()
      .Start(1, 7)
      .Say(1, 'I', "MonWritePort", "[pszPortName:USB001, cbBuf:100]")
      .Say(1, 'I', "CSdk::Send", "*pdwWritten:100");
  const Story unended = Of(device).at(0);
  EXPECT_EQ(unended.nBytes, 100);
  EXPECT_EQ(unended.NotLogged(), (std::vector<std::string>{"outcome", "reprints", "maybeTwice"}));
  // What lay between two questions about one job is not told by I alone.
  Log twice;
  twice.Untraced().Start(1, 7).Say(1, 'I', "MonWritePort", "[pszPortName:USB001, cbBuf:100]");
  for (const char* pszBytes : {"*pdwWritten:100", "*pdwWritten:6", "*pdwWritten:6"})
    twice.Say(1, 'I', "CSdk::Send", pszBytes);
  EXPECT_EQ(Of(twice.Start(1, 8)).at(0).nReprints, kUnknown);
  // Lost lines make unknown what was counted.
  const Story lost = Of(Log().Start(2, 8).Write(2, "COM2", 10).Raw("<=== Log output here failed\r\n").End(2, 8)).at(0);
  EXPECT_EQ(lost.nBytes, kUnknown);
  EXPECT_EQ(lost.outcome, Outcome::Unknown);
}

TEST_F(Stories, WriteThatWasTakenInPartIsNotTheWholeJob) {
  Log log;
  log.Start(1, 7).Say(1, 'I', "MonWritePort", "[pszPortName:COM1, cbBuf:100]");
  log.Say(1, 'T', "IsCancelJob", "pIniPort:0x00001031");
  log.Say(1, 'I', "MonWritePort", "(*pIniPort->fn.pfnWritePort) [pszPortName:COM1,cbBuf:60/100]");
  Log offeredAgain = log;
  EXPECT_EQ(Of(log.End(1, 7)).at(0).outcome, Outcome::Failed);
  EXPECT_EQ(Of(offeredAgain.Write(1, "COM1", 40).End(1, 7)).at(0).outcome, Outcome::Printed);
}

// A job on the device's way, as level I alone shows it: what it offered, and what each transfer took.
Log DeviceJob(const std::vector<int>& taken, int cbOffered) {
  Log log;
  log.Untraced().Start(1, 7).Say(1, 'I', "MonWritePort", sim::Format("[pszPortName:USB001, cbBuf:%d]", cbOffered));
  for (const int cb : taken) log.Say(1, 'I', "CSdk::Send", sim::Format("*pdwWritten:%d", cb));
  return log.Say(9, 'I', "MonClosePort", "(*pIniPort->fn.pfnClosePort) [pszPortName:USB001]");
}

TEST_F(Stories, AmountsTellOnlyWhatTheyLeaveNoDoubtAbout) {
  const Story once = Of(DeviceJob({3, 100, 6}, 100)).at(0);
  EXPECT_EQ(once.outcome, Outcome::Confirmed);
  EXPECT_EQ(once.maybeTwice, Tri::No);
  const Story again = Of(DeviceJob({3, 100, 6, 3, 3, 100, 6}, 100)).at(0);
  EXPECT_EQ(again.nReprints, 1);
  EXPECT_EQ(again.maybeTwice, Tri::Yes);
  EXPECT_EQ(again.Proof(lmctl::Claim::MaybeTwice).nLine, 8u);
  // A job as long as a question: its being sent again looks like one.
  const Story shortOne = Of(DeviceJob({3, 3, 6, 3, 3, 3, 6}, 3)).at(0);
  EXPECT_EQ(shortOne.nReprints, kUnknown);
  EXPECT_EQ(shortOne.maybeTwice, Tri::Unknown);
  EXPECT_EQ(shortOne.outcome, Outcome::Unknown);
}

TEST_F(Stories, LineThatIsCutOffProvesNothing) {
  const std::string strTaken =
      Log().Untraced().Start(1, 7).Say(1, 'I', "MonWritePort", "[pszPortName:USB001, cbBuf:1234]").Text();
  const auto sent = [](const char* pszAmount) {
    return Log().Say(1, 'I', "CSdk::Send", std::string("*pdwWritten:") + pszAmount).Text();
  };
  const std::string strLoaded = Log().Say(9, 'I', "InitializePrintMonitor2", "[ServerName:x]").Text();
  const auto bytesOf = [this](const std::string& strText) { return Of(Log().Raw(strText)).at(0).nBytes; };
  EXPECT_EQ(bytesOf(strTaken + sent("1234") + strLoaded), kUnknown) << "the process is gone: the line may have gone on";
  EXPECT_EQ(bytesOf(strTaken + sent("1234")), 1234);
  const std::string strCut = sent("12").substr(0, sent("12").size() - 2);
  EXPECT_EQ(bytesOf(strTaken + strCut), kUnknown) << "without its end";
  EXPECT_EQ(bytesOf(strTaken + strCut + Log().Say(2, 'I', "MonReadPort", "[x]", 0x20).Text()), kUnknown) << "glued";
  EXPECT_EQ(bytesOf(strTaken + "[11/18 09:0\r\n" + sent("1234")), kUnknown) << "in its columns";
  // What stands behind it on the line counts; a number that may be cut off names nobody.
  const auto glued = Of(Log().Raw(strCut + Log().Untraced().Start(2, 8).Write(2, "COM1", 5).Text()));
  EXPECT_EQ(glued.at(0).nBytes, 5);
  std::uint64_t nUnlisted = 0;
  File("20261118.log", Log().Untraced().Start(1, 1).Text() + strLoaded);
  EXPECT_TRUE(Read(m_folder, &nUnlisted).empty());
  EXPECT_EQ(nUnlisted, 1u);
  // Brackets that do not close.
  EXPECT_EQ(Of(Log().Start(1, 7).Say(1, 'E', "MonStartDocPort", "OpenPrinter [err:17")).at(0).nError, kUnknown);
}

TEST_F(Stories, FileThatIsGoneTakesTheLinesOfRunningJobsAlong) {
  for (const bool bGone : {false, true}) {
    File("20261118_090000(500).log",
         Log().Start(1, 7).Write(1, "COM1", 10).Start(2, 8, "Bar").Write(2, "COM2", 3).End(2, 8).Text());
    File("20261118.log", Log().At(bGone ? "11/18 10:00(00" : "11/18 09:00(01").Write(1, "COM1", 5).End(1, 7).Text());
    const auto stories = Read(m_folder);
    ASSERT_EQ(stories.size(), 2u);
    EXPECT_EQ(stories[0].nBytes, 3);
    EXPECT_EQ(stories[1].nBytes, bGone ? kUnknown : 15);
  }
}

TEST_F(Stories, JobThatTheSpoolerBeganAgainMayStandTwice) {
  Log log;
  for (const bool bRestarted : {true, false}) {
    log.Start(1, 7).Say(1, 'I', "MonWritePort", "[pszPortName:COM1, cbBuf:100]");
    log.Say(1, 'T', "MonWritePort", "on SDK [pszPortName:COM1, cbBuf:100]").Say(1, 'T', "CSdk::Send", "cbBuf:100");
    log.Say(1, 'I', "CSdk::Send", "*pdwWritten:100");
    if (bRestarted) log.Say(1, 'I', "IsCancelJob", "CANCEL,Status:0x00000810");
    log.End(1, 7);
  }
  auto stories = Of(log.Start(1, 8).Write(1, "COM1", 7).End(1, 8));
  lmctl::Neighbours neighbours;
  for (const Story& story : stories) neighbours.Add(story);
  for (Story& story : stories) neighbours.Mark(story);
  EXPECT_EQ(stories.at(0).outcome, Outcome::Cancelled);
  EXPECT_EQ(stories.at(0).maybeTwice, Tri::Yes) << "the spooler prints it again";
  EXPECT_EQ(stories.at(1).byTwice, lmctl::kTwiceRestarted | lmctl::kTwiceSameSize);
  EXPECT_EQ(stories.at(1).maybeTwice, Tri::Yes);
  EXPECT_EQ(stories.at(2).byTwice, 0);
}

TEST_F(Stories, RefusedStartDoesNotEndTheJobInProgress) {
  for (const bool bTraced : {true, false}) {
    Log log;
    if (!bTraced) log.Untraced();
    log.Start(1, 7).Write(1, "COM1", 100).Start(1, 8);
    log.Say(1, 'W', "MonStartDocPort", "ERROR_BUSY [pszPrinterName:Till, JobId:8]").Write(1, "COM1", 50);
    log.Say(1, 'I', "MonEndDocPort", "(*pIniPort->fn.pfnEndDocPort) [pszPortName:COM1, JobId:7]");
    const auto stories = Of(bTraced ? log.End(1, 7) : log);
    ASSERT_EQ(stories.size(), 2u);
    EXPECT_EQ(stories[0].outcome, Outcome::Refused);
    EXPECT_EQ(stories[1].nBytes, 150);
    EXPECT_EQ(stories[1].outcome, Outcome::Printed);
  }
}

TEST_F(Stories, JobsWhoseStartIsNotLoggedAreCountedOnce) {
  Log log;
  for (const int nJob : {7, 8})
    log.Say(1, 'I', "MonEndDocPort", sim::Format("(*pIniPort->fn.pfnEndDocPort) [pszPortName:COM1, JobId:%d]", nJob))
        .End(1, nJob);
  log.End(1, 9);
  // One that is listed, and whose end two lines tell.
  log.Untraced().Start(1, 10).Write(1, "COM1", 5);
  log.Say(1, 'I', "MonEndDocPort", "(*pIniPort->fn.pfnEndDocPort) [pszPortName:COM1, JobId:10]").End(1, 10);
  File("20261118.log", log.Text());
  std::uint64_t nUnlisted = 0;
  EXPECT_EQ(Read(m_folder, &nUnlisted).size(), 1u);
  EXPECT_EQ(nUnlisted, 3u);
}

TEST_F(Stories, NumberThatTwoQueuesGiveIsToldApartByThePort) {
  Log log;
  log.Start(1, 7).Start(2, 7, "Bar").Write(1, "COM1", 10).Write(2, "LPT1:", 20);
  for (const char* pszPort : {"LPT1:", "COM1"})  // on threads of their own
    log.Say(static_cast<unsigned>(pszPort[0]), 'I', "MonEndDocPort",
            sim::Format("(*pIniPort->fn.pfnEndDocPort) [pszPortName:%s, JobId:7]", pszPort))
        .End(static_cast<unsigned>(pszPort[0]), 7);
  const auto stories = Of(log);
  ASSERT_EQ(stories.size(), 2u);
  EXPECT_EQ(stories[0].strQueue, "Bar");
  EXPECT_EQ(stories[0].nBytes, 20);
  EXPECT_EQ(stories[1].outcome, Outcome::Printed);
}

TEST_F(Stories, NothingIsClaimedFromLinesThatTheLevelsOfThatTimeDidNotShow) {
  Log log;
  log.Start(1, 7).Write(1, "COM1", 10).Untraced().Write(1, "COM1", 20);
  log.Say(1, 'I', "MonEndDocPort", "(*pIniPort->fn.pfnEndDocPort) [pszPortName:COM1, JobId:7]").End(1, 7);
  const Story story = Of(log).at(0);
  EXPECT_EQ(story.path, Path::PortMonitor);  // a line says so
  EXPECT_EQ(story.nBytes, kUnknown);
  EXPECT_EQ(story.outcome, Outcome::Unknown);
}

TEST_F(Stories, PortOfAJobWithoutDataStandsOnTheLineThatTellsIt) {
  Log log;
  log.Say(1, 'I', "MonOpenPortEx", "[Port:COM1/Printer:Till]").Start(1, 7).End(1, 7);
  const Story story = Of(log).at(0);
  EXPECT_EQ(story.strPort, "COM1");
  EXPECT_EQ(story.Proof(lmctl::Claim::Port).nLine, 1u);
}

TEST_F(Stories, ProcessThatBeginsAnewLeavesItsJobsUnfinished) {
  Log log;
  log.Start(1, 7).Say(1, 'T', "IsUseSdkSrv", "Flags:0x0").Write(1, "COM1", 10);
  log.Say(9, 'I', "InitializePrintMonitor2", "[ServerName:\\\\TILL]").Start(1, 8).Write(1, "COM1", 20).End(1, 8);
  const auto stories = Of(log);
  ASSERT_EQ(stories.size(), 2u);
  EXPECT_EQ(stories[0].outcome, Outcome::Unfinished);
  EXPECT_EQ(stories[0].llEnded, 0);
  EXPECT_EQ(stories[1].outcome, Outcome::Printed);
}

TEST_F(Stories, RefusalsCarryTheirCodes) {
  const struct {
    char cLevel;
    const char* pszRoutine;
    const char* pszMessage;
    std::int64_t nError;
  } cases[] = {
      {'W', "MonStartDocPort", "ERROR_BUSY [pszPrinterName:Till, JobId:7]", 170},
      {'E', "MonStartDocPort", "OpenPrinter [err:5, PrinterName:Till]", 5},
      {'E', "CSdk::OpenAndLock", "SDK_SET_LOCK [e:1460]", 170},
      {'E', "CSdk::Open", "SDK OPEN [e:31]", 31},
      {'E', "MonStartDocPort", "(*pIniPort->fn.pfnStartDocPort) [PrinterName:Till, JobId:0x00000007]", kUnknown},
  };
  for (const auto& one : cases) {
    const auto stories = Of(Log().Start(1, 7).Say(1, one.cLevel, one.pszRoutine, one.pszMessage));
    ASSERT_EQ(stories.size(), 1u) << one.pszMessage;
    EXPECT_EQ(stories[0].outcome, Outcome::Refused) << one.pszMessage;
    EXPECT_EQ(stories[0].nError, one.nError) << one.pszMessage;
    EXPECT_EQ(stories[0].bErrorNotLogged, one.nError == kUnknown);
  }
  // Without level I these two lines are all that names the job.
  EXPECT_EQ(Of(Log().Say(1, 'W', "MonStartDocPort", "ERROR_BUSY [pszPrinterName:A, JobId:5]")).at(0).nJob, 5);
  EXPECT_EQ(
      Of(Log().Say(1, 'E', "MonStartDocPort", "(*pIniPort->fn.pfnStartDocPort) [PrinterName:A, JobId:0x00000011]"))
          .at(0)
          .nJob,
      17);
}

TEST_F(Stories, CopyOfADayCountsOnce) {
  Log log;
  for (int n = 1; n < 20; ++n) log.Start(1, n).Write(1, "COM1", 10).End(1, n);
  File("20261118_copy.log", log.Text());
  EXPECT_EQ(Of(log.Start(1, 20).Write(1, "COM1", 10).End(1, 20)).size(), 20u);  // the longer of the two
}

TEST_F(Stories, FollowingSeesLinesThatCameAndAFileThatWasMovedAside) {
  File("20261118.log", Log().Untraced().Start(1, 7).Text() + "[11/18 09:00");
  lmctl::LogReader reader({m_folder / ""});
  std::vector<std::string> lines;
  const auto read = [&] {
    reader.Refresh();
    reader.Read(
        [&](const lmctl::LogReader::Line& line) {
          lines.push_back(std::to_string(line.nLine) + std::string(line.text));
        },
        false);
  };
  read();
  EXPECT_EQ(lines.size(), 1u);  // the second line is not whole yet
  std::ofstream(m_folder / "20261118.log", std::ios::app) << "(01.000)] is whole now\r\n";
  read();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1], "2[11/18 09:00(01.000)] is whole now\r");
  std::ofstream(m_folder / "20261118.log", std::ios::app) << "the last of the old file\r\n";
  std::filesystem::rename(m_folder / "20261118.log", m_folder / "20261118_090002(000).log");
  File("20261118.log", "the new file\r\n");
  read();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[2], "3the last of the old file\r");
  EXPECT_EQ(lines[3], "1the new file\r");
}

TEST(StoryTexts, CodePageAndMarkup) {
  EXPECT_EQ(lmctl::ToUtf8("Caf\xE9 \x80\x01\x7F\x9D\x90"), "Caf\xC3\xA9 \xE2\x82\xAC");  // no control gets through
  EXPECT_EQ(lmctl::Printable("K\xC3\xBC\x1B\xC2\x9B\xE2\x80\xAE che \xF0\x9F\x96\xA8"),
            "K\xC3\xBC che \xF0\x9F\x96\xA8");
}

}  // namespace
