// lmctl as administrators meet it, over the log of jobs that lmhost printed.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/tool/tool_run.h"

namespace {

// Programs of the system, by their ways from the folder of ours.
const std::string kSystem = "../../../../../../../../usr/bin/";
const std::string kPython = kSystem + "python3 ";
const std::string kPromtool = kSystem + "promtool ";

// A file of the documentation.
std::string Docs(const char* pszName) {
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "../../../docs" / pszName).string();
}

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
  // As described: by the document that log shippers build on.
  const std::string strFile = m_folder / "jobs.json";
  std::ofstream(strFile) << jobs;
  EXPECT_EQ(RunTool(kPython + "-W ignore -m jsonschema -i " + strFile + " " + Docs("jobs.schema.json")).strOutput, "");
  // Each of the three was printed at the same time of its own simulated day.
  std::map<std::string, nlohmann::json> byOutcome;
  for (const auto& job : jobs) byOutcome[job["outcome"]] = job;
  ASSERT_EQ(byOutcome.size(), 3u);
  EXPECT_EQ(byOutcome["confirmed"]["reprints"], 1);
  EXPECT_EQ(byOutcome["confirmed"]["maybeTwice"], true);
  EXPECT_TRUE(byOutcome["confirmed"]["evidence"]["outcome"].is_number());
  EXPECT_EQ(byOutcome["printed"]["path"], "portMonitor");
  EXPECT_EQ(byOutcome["cancelled"]["path"], "device");
  EXPECT_EQ(
      nlohmann::json::parse(RunTool("lmctl jobs --json --queue till --port usb001 --last 2" + Log()).strOutput).size(),
      2u);
  EXPECT_EQ(nlohmann::json::parse(RunTool("lmctl jobs --json --port COM9" + Log()).strOutput).size(), 0u);
}

TEST_F(Lmctl, FiltersAndStatus) {
  Print("--service stopped");
  EXPECT_EQ(Lines(RunTool("lmctl jobs --queue TILL --port usb001 --last 5" + Log()).strOutput), 2u);
  EXPECT_TRUE(RunTool("lmctl jobs --queue Other" + Log()).Says("no such jobs"));
  EXPECT_TRUE(RunTool("lmctl jobs --failed" + Log()).Says("no such jobs"));
  const std::string strHead = "[11/18 10:00(00.000)]\t[00000010(00000001)]\t[", strRefused = m_folder / "20261118.log";
  std::ofstream(strRefused) << strHead << "I] \t[DRV_LM ] \tMonStartDocPort(1) \tpszPrinterName:Till, JobId:7\r\n"
                            << strHead
                            << "E] \t[DRV_LM ] \tMonStartDocPort(2) \tOpenPrinter [err:5, PrinterName:Till]\r\n";
  EXPECT_TRUE(RunTool("lmctl jobs --failed --log " + strRefused).Says("refused"));
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

TEST_F(Lmctl, JobsThatMayStandTwiceAreToldWithTheirReasons) {
  Print("--auto-reprint --speed 4000 --fault paper-end@5000:4");
  const ToolRun again = RunTool("lmctl jobs --twice" + Log());
  EXPECT_TRUE(again.Says("Why: the monitor sent it again.")) << again.strOutput;
  EXPECT_TRUE(again.Says("they are one receipt"));
  Print("--service stopped");  // the same receipt, at the same time
  const auto jobs = nlohmann::json::parse(RunTool("lmctl jobs --twice --json" + Log()).strOutput);
  ASSERT_EQ(jobs.size(), 2u);
  for (const auto& job : jobs) EXPECT_EQ(job["twice"].back(), "sameSizeBeside");
  EXPECT_TRUE(RunTool("lmctl explain --job 1 --port USB001" + Log()).Says("It may stand there twice: another job"));
}

TEST_F(Lmctl, QueueIsNamedAsItIsWhateverTheLogsCodePage) {
  const std::string strLine = "[11/18 10:00(00.000)]\t[00000010(00000001)]\t[I] \t[DRV_LM ] \tMonStartDocPort(1) \t";
  std::ofstream(m_folder / "20261118.log") << strLine
                                           << "pszPrinterName:K\x81"
                                              "che, JobId:5\r\n";  // cp850
  const std::string strOptions =
      " --queue K\xC3\xBC"
      "che --log " +
      (m_folder / "20261118.log");
  EXPECT_EQ(Lines(RunTool("lmctl jobs --encoding cp850" + strOptions).strOutput), 2u);
  EXPECT_TRUE(RunTool("lmctl jobs" + strOptions).Says("no such jobs"));
  EXPECT_EQ(RunTool("lmctl jobs --encoding klingon" + strOptions).nExit, 2);
  std::filesystem::rename(m_folder / "20261118.log", m_folder / "old");
  EXPECT_TRUE(RunTool("lmctl jobs --log " + (m_folder / "old")).Says("the year of its last write"));
}

TEST_F(Lmctl, TimeIsExplainedWithoutAJob) {
  Print("--auto-reprint --speed 4000");
  EXPECT_TRUE(RunTool("lmctl explain --at \"2026-11-18 09:00:01\"" + Log()).Says("On paper: The printer confirmed"));
  const ToolRun later = RunTool("lmctl explain --at \"2026-11-18 14:00\" --queue Till" + Log());
  EXPECT_TRUE(later.Says("No job that the log names was under way")) << later.strOutput;
  EXPECT_TRUE(later.Says("The job before: 1 on Till, 2026-11-18 09:00:00"));
  EXPECT_EQ(RunTool("lmctl explain" + Log()).nExit, 2);
}

TEST_F(Lmctl, MetricsGoOnCountingAndTheirAlertsFire) {
  const auto metrics = [&] {
    EXPECT_EQ(RunTool("lmctl metrics --output " + (m_folder / "k.prom") + Log()).strOutput, "");
    std::ifstream file(m_folder / "k.prom");
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  Print("--auto-reprint --speed 4000 --fault paper-end@5000:4");
  metrics();
  const std::string strFirst = metrics();  // a job counts once
  EXPECT_NE(strFirst.find("kelvane_jobs_total{queue=\"Till\",outcome=\"confirmed\"} 1\n"), std::string::npos);
  EXPECT_NE(strFirst.find("kelvane_job_resends_total{queue=\"Till\"} 1\n"), std::string::npos);
  std::string strUndocumented = strFirst;
  std::ifstream document(Docs("monitoring.md"));
  for (std::string strLine; std::getline(document, strLine);) {
    if (!strLine.starts_with("| kelvane_")) continue;
    const std::string strType = "# TYPE " + strLine.substr(2, strLine.find_first_of("{ ", 2) - 2) + " ";
    const std::size_t nAt = strUndocumented.find(strType);
    ASSERT_NE(nAt, std::string::npos) << strType;
    strUndocumented.erase(nAt, strType.size());
  }
  EXPECT_EQ(strUndocumented.find("# TYPE"), std::string::npos) << strUndocumented;
  std::filesystem::remove_all(m_folder / "world");  // purged
  Print("--service stopped");
  const std::string strSecond = metrics();
  EXPECT_NE(strSecond.find("outcome=\"confirmed\"} 1\n"), std::string::npos);
  EXPECT_NE(strSecond.find("outcome=\"printed\"} 1\n"), std::string::npos) << strSecond;
  EXPECT_EQ(RunTool(kPromtool + "check metrics <" + (m_folder / "k.prom")).strOutput, "");
  const std::string strRules = Docs("monitoring/kelvane.rules.yml");
  EXPECT_EQ(RunTool(kPromtool + "check rules --lint-fatal " + strRules).nExit, 0);
  EXPECT_EQ(RunTool(kPromtool + "test rules " + Docs("monitoring/kelvane.rules.test.yml")).nExit, 0);
  std::ofstream(m_folder / "k.prom.state") << "nonsense";
  EXPECT_EQ(RunTool("lmctl metrics --output " + (m_folder / "k.prom") + Log()).nExit, 1);
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
  EXPECT_TRUE(RunTool("lmctl archive show '" + strRoot + "'").Says("is a folder"));
  // The file and the job find each other.
  EXPECT_TRUE(
      RunTool("lmctl explain --job 1 --root '" + strRoot + "'" + Log()).Says("lmctl archive print \"" + strFile));
  std::ofstream(std::filesystem::path(strFile).parent_path() / "notes.prn") << "somebody's";
  const ToolRun odd = RunTool("lmctl archive list --root " + strRoot);
  EXPECT_TRUE(odd.Says("1 archived job\nNot archived jobs:\n")) << odd.strOutput;
  EXPECT_EQ(RunTool("lmctl archive show nothing.prn").nExit, 1);
}

// The page, in a browser, in the narrowest and the widest window: ten thousand jobs are there within two seconds and chosen within a
// tenth of one; a row opens its story; what looks like markup in the log is text.
TEST_F(Lmctl, ReportPageWorksInABrowser) {
  const std::string strEvil = "<img src=x onerror=document.title=1></script><b>Q";
  {
    std::ofstream log(m_folder / "20261118.log", std::ios::binary);
    const auto line = [&](unsigned n, char cLevel, const char* pszRoutine, const std::string& strMessage) {
      char szHead[96];
      std::snprintf(szHead, sizeof szHead, "[11/18 %02u:%02u(%02u.000)]\t[00000010(00000001)]\t[%c] \t[DRV_LM ] \t",
                    n / 3600, n / 60 % 60, n % 60, cLevel);
      log << szHead << pszRoutine << "(1) \t" << strMessage << "\r\n";
    };
    for (unsigned n = 0; n < 10'000; ++n) {
      const std::string strJob = ", JobId:" + std::to_string(n + 1);
      line(n * 8, 'I', "MonStartDocPort", "pszPrinterName:" + (n == 7 ? strEvil : "Till") + strJob);
      line(n * 8, 'I', "MonWritePort", "[pszPortName:COM1, cbBuf:" + std::to_string(n + 1) + "]");
      const std::string strSizes = std::to_string(n % 100 == 0 ? 0 : n + 1) + "/" + std::to_string(n + 1);
      line(n * 8 + 1, 'I', "MonWritePort", "(*pIniPort->fn.pfnWritePort) [pszPortName:COM1,cbBuf:" + strSizes + "]");
      line(n * 8 + 2, 'I', "MonEndDocPort", "(*pIniPort->fn.pfnEndDocPort) [pszPortName:COM1" + strJob + "]");
    }
  }
  const std::string strPage = m_folder / "report.html";
  ASSERT_EQ(RunTool("lmctl jobs --html " + strPage + " --log " + (m_folder / "20261118.log")).nExit, 0);
  // Steps that a person would take, appended for the test; what they showed goes into the title.
  std::ofstream(strPage, std::ios::app) << R"~(<script>
const out = [], say = text => out.push(text);
window.onerror = m => say("error " + m);
say(performance.now() < 2000 ? "loaded" : "loaded in " + performance.now());
say(byId("count").textContent);
const field = form.elements.text, type = text => { field.value = text; field.dispatchEvent(new Event("input", {bubbles: true})); };
type("confirmed");  // the first time compiles the script
const start = performance.now();
type("failed");
say(performance.now() - start < 100 ? "chosen" : "chosen in " + (performance.now() - start));
say(byId("count").textContent);
say(location.hash);
rows.querySelector("button").click();
say(rows.querySelector(".story li").textContent);
document.querySelectorAll("th button")[2].click();
say(rows.querySelector("td:nth-child(3)").textContent);
location.hash = "#queue=Till&to=2026-11-18T00:01";
restore();
choose();
say(byId("count").textContent);
say(document.querySelectorAll("img, b").length);
const cv = document.querySelector("canvas"), data = cv.getContext("2d").getImageData(0, 0, cv.width, cv.height).data;
say(data.some(v => v) ? "drawn" : "empty");
say(document.documentElement.scrollWidth <= innerWidth ? "fits" : "overflows");
document.title = out.join("|");
</script>)~";
  const std::string strExpected =
      "<title>loaded|1 to 100 of 100 jobs|chosen|1 to 100 of 100 jobs|#text=failed|22:00:00.000  The spooler started "
      "job 9901 on the queue "
      "Till. " +
      (m_folder / "20261118.log:39601") + "|1|1 to 14 of 14 jobs|0|drawn|fits</title>";
  for (const char* pszWidth : {"360", "1020", "2560"}) {
    std::string strTitle;
    for (int n = 0; n < 3 && strTitle != strExpected; ++n) {  // the machine may be busy with other tests
      const ToolRun run = RunTool(kSystem +
                                  "chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
                                  "--disable-background-networking "
                                  "--disable-component-update --disable-sync --window-size=" +
                                  pszWidth + ",900 --user-data-dir=" + (m_folder / "browser") + " --dump-dom file://" +
                                  strPage + "#text=failed");
      const std::size_t nTitle = run.strOutput.find("<title>");
      strTitle = run.strOutput.substr(nTitle, run.strOutput.find("</title>", nTitle) + 8 - nTitle);
    }
    EXPECT_EQ(strTitle, strExpected) << pszWidth;
  }
}

}  // namespace
