// lmctl as administrators meet it, over the log of jobs that lmhost printed.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/tool/tool_run.h"

namespace {

class Lmctl : public ::testing::Test {
 protected:
  Lmctl() {
    std::ofstream file(m_folder / "receipt.prn", std::ios::binary);
    for (int n = 0; n < 300; ++n) file << "A line of a receipt, number " << n << "\n";
    file << "\x1B@end\x1D";
  }
  void Print(const std::string& strOptions) {
    RunTool("lmhost print " + (m_folder / "receipt.prn") + " --datatype TEXT --log-level EWIDT --root " +
            (m_folder / "world") + " " + strOptions);
  }
  std::string Log() const { return " --log " + (m_folder / "world/c/ProgramData/Kelvane/Logs/PrinterDriver") + " "; }
  TestFolder m_folder;
};

TEST_F(Lmctl, JobsTellsWhatBecameOfEachJob) {
  Print("--auto-reprint --speed 4000 --fault paper-end@5000:4");
  Print("--service stopped");
  Print("--cancel-at 1");
  const ToolRun table = RunTool("lmctl jobs" + Log());
  EXPECT_EQ(table.nExit, 0);
  EXPECT_TRUE(table.Says("sent again once: the printer reported status 0x")) << table.strOutput;
  EXPECT_TRUE(table.Says("[may stand twice on paper]"));
  EXPECT_FALSE(table.Says("\033["));  // no colour in a pipe
  const auto jobs = nlohmann::json::parse(RunTool("lmctl jobs --json" + Log()).strOutput);
  ASSERT_EQ(jobs.size(), 3u);
  const std::vector<std::string> names = {"bytes",     "ended",    "error",    "jobId",   "log",       "maybeTwice",
                                          "notLogged", "outcome",  "path",     "port",    "processId", "queue",
                                          "reason",    "reprints", "response", "started", "writes"};
  std::vector<std::string> found;
  for (const auto& [strName, value] : jobs[0].items()) found.push_back(strName);
  EXPECT_EQ(found, names);
  // Each of the three was printed at the same time of its own simulated day.
  std::map<std::string, nlohmann::json> byOutcome;
  for (const auto& job : jobs) byOutcome[job["outcome"]] = job;
  ASSERT_EQ(byOutcome.size(), 3u);
  EXPECT_EQ(byOutcome["confirmed"]["reprints"], 1);
  EXPECT_EQ(byOutcome["confirmed"]["maybeTwice"], true);
  EXPECT_TRUE(byOutcome["confirmed"]["log"]["firstLine"].is_number());
  EXPECT_EQ(byOutcome["printed"]["path"], "portMonitor");
  EXPECT_EQ(byOutcome["cancelled"]["path"], "device");
}

TEST_F(Lmctl, FiltersAndStatus) {
  Print("--service stopped");
  EXPECT_EQ(Lines(RunTool("lmctl jobs --queue TILL --port usb001 --last 5" + Log()).strOutput), 2u);
  EXPECT_TRUE(RunTool("lmctl jobs --queue Other" + Log()).Says("no such jobs"));
  EXPECT_EQ(RunTool("lmctl jobs --failed" + Log()).nExit, 0);
  EXPECT_EQ(RunTool("lmctl jobs --job 99" + Log()).nExit, 1);
  for (const char* pszBad : {"tomorrow", "2026-13-45", "24:61", "-2h", "99999999999999d", "2026-11-18x"})
    EXPECT_EQ(RunTool(std::string("lmctl jobs --since ") + pszBad + Log()).nExit, 2) << pszBad;
  for (const char* pszDay : {"2026-11-18", "2026-11-18T23:59"})  // a day goes to its end
    EXPECT_EQ(Lines(RunTool(std::string("lmctl jobs --until ") + pszDay + Log()).strOutput), 2u) << pszDay;
  EXPECT_EQ(RunTool("lmctl jobs --since \"yesterday 14:00\"" + Log()).nExit, 0);
  EXPECT_EQ(RunTool("lmctl jobs --since 2030-01-01 --json" + Log()).strOutput, "[\n]\n");
  EXPECT_EQ(RunTool("lmctl jobs --log " + (m_folder / "none")).nExit, 1);
  EXPECT_EQ(RunTool("lmctl").nExit, 2);
  EXPECT_TRUE(RunTool("lmctl --version").Says("lmctl 1."));
  EXPECT_EQ(RunTool("lmctl doctor").nExit, 1);  // needs the Windows machine
}

TEST_F(Lmctl, ExplainRestsOnLinesAndEndsInAVerdict) {
  Print("--auto-reprint --speed 4000 --fault paper-end@5000:4");
  const ToolRun run = RunTool("lmctl explain --job 1" + Log());
  EXPECT_EQ(run.nExit, 0);
  EXPECT_TRUE(run.Says("The spooler started job 1 on the queue Till.")) << run.strOutput;
  EXPECT_TRUE(run.Says("Instead of the confirmation the printer reported an error"));
  EXPECT_TRUE(run.Says(".log:"));
  EXPECT_TRUE(run.Says("On paper: The printer confirmed the whole receipt after it was sent again."));
  EXPECT_TRUE(run.Says("What to do: If the customer has two"));
}

TEST_F(Lmctl, LogIsShownByLevelAndByJob) {
  EXPECT_EQ(RunTool("lmctl log" + Log()).nExit, 1);  // nothing was logged yet
  Print((m_folder / "receipt.prn") + " --service absent");
  const ToolRun all = RunTool("lmctl log" + Log());
  EXPECT_EQ(all.nExit, 0);
  EXPECT_TRUE(all.Says("Kelvane Thermal Printer Log"));
  const ToolRun errors = RunTool("lmctl log --level E" + Log());
  EXPECT_TRUE(errors.Says("OpenService [err:1060"));
  EXPECT_FALSE(errors.Says("Kelvane Thermal Printer Log"));
  EXPECT_FALSE(errors.Says("pszPrinterName:Till, JobId:"));
  const ToolRun job = RunTool("lmctl log --job 2" + Log());
  EXPECT_TRUE(job.Says("pszPrinterName:Till, JobId:2"));
  EXPECT_FALSE(job.Says("JobId:1"));
  EXPECT_EQ(RunTool("lmctl log --level Q" + Log()).nExit, 2);
}

TEST_F(Lmctl, ArchiveIsListedAndShown) {
  Print("--archive 'C:\\Copies'");
  const std::string strRoot = m_folder / "world/c/Copies";
  const ToolRun list = RunTool("lmctl archive list --root " + strRoot);
  EXPECT_EQ(list.nExit, 0);
  EXPECT_TRUE(list.Says("2026-11-18\n")) << list.strOutput;
  EXPECT_TRUE(list.Says("1 archived job\n"));
  const std::string strFile =
      list.strOutput.substr(list.strOutput.find('/'), list.strOutput.rfind(".prn") + 4 - list.strOutput.find('/'));
  EXPECT_TRUE(RunTool("lmctl archive show '" + strFile + "'").Says("number 299\n<ESC>@end<GS>\n"));
  EXPECT_EQ(RunTool("lmctl archive show '" + strFile + "' --raw " + (m_folder / "out")).nExit, 0);
  EXPECT_EQ(std::filesystem::file_size(m_folder / "out"), std::filesystem::file_size(m_folder / "receipt.prn"));
  EXPECT_EQ(RunTool("lmctl archive list --root " + (m_folder / "none")).nExit, 1);
  EXPECT_EQ(RunTool("lmctl archive show nothing.prn").nExit, 1);
}

// The page, in a browser: it draws, sorts and filters, and what looks like markup in the log is text.
TEST_F(Lmctl, ReportPageWorksInABrowser) {
  Print("--service stopped");
  const std::string strLogFile = m_folder / "world/c/ProgramData/Kelvane/Logs/PrinterDriver/20261118.log";
  {
    std::ofstream log(strLogFile, std::ios::app | std::ios::binary);
    log << "[11/18 10:00(00.000)]\t[00000010(00000001)]\t[I] \t[DRV_LM ] \tMonStartDocPort(1) "
           "\tpszPrinterName:<img src=x onerror=document.title=1></script><b>Q, JobId:5\r\n";
  }
  const std::string strPage = m_folder / "report.html";
  ASSERT_EQ(RunTool("lmctl jobs --html " + strPage + Log()).nExit, 0);
  // Steps that a person would take, appended for the test; what they showed goes into the title.
  {
    std::ofstream page(strPage, std::ios::app);
    page << "<script>const out=[];window.onerror=m=>out.push('error '+m);"
            "const cell=(r,c)=>document.querySelectorAll('#rows tr')[r].children[c].textContent;"
            "out.push(document.querySelectorAll('#rows tr').length,document.querySelectorAll('canvas').length,"
            "document.querySelectorAll('img,b').length,cell(1,1));"
            "document.querySelectorAll('th button')[2].click();document.querySelectorAll('th "
            "button')[2].click();out.push(cell(0,2));"
            "const f=document.getElementById('filter');f.value='printed';f.oninput();"
            "out.push(document.getElementById('count').textContent);"
            "const "
            "cv=document.querySelector('canvas');out.push(cv.getContext('2d').getImageData(0,0,cv.width,cv.height)."
            "data.some(v=>v)?'drawn':'empty');"
            "document.title=out.join('|');</script>";
  }
  const std::string strCommand =
      "../../../../../../../../usr/bin/chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
      "--disable-background-networking --disable-component-update --disable-sync --virtual-time-budget=3000 "
      "--user-data-dir=" +
      (m_folder / "browser") + " --dump-dom file://" + strPage;
  const ToolRun run = RunTool(strCommand);
  EXPECT_TRUE(run.Says(
      "<title>2|2|0|&lt;img src=x onerror=document.title=1&gt;&lt;/script&gt;&lt;b&gt;Q|5|1 of 2 jobs|drawn</title>"))
      << run.strOutput.substr(0, 3000);
}

}  // namespace
