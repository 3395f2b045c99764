// A log of any bytes through the reader and the story machine, in one go and as it comes: both must tell the same, of whole
// lines counted as a plain split counts them, and what they tell must be JSON.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tools/lmctl/story/story_machine.h"
#include "tools/lmctl/log/log_reader.h"
#include "tools/lmctl/render/render.h"

namespace {

void Require(bool bHolds, const char* pszWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "differs: %s\n", pszWhat);
  std::abort();
}

// A line that begins with '@' gets the head of a line of our module, with the thread and the level that follow it: most
// lines are to be taken for what they say.
std::string Log(const uint8_t* pData, size_t cb) {
  std::string strLog;
  bool bLineStart = true;
  for (size_t n = 0; n < cb; ++n) {
    if (bLineStart && pData[n] == '@' && n + 2 < cb) {
      char szHead[96];
      std::snprintf(szHead, sizeof szHead, "[11/18 09:00(%02zu.%03zu)]\t[00000010(%08x)]\t[%c] \t[DRV_LM ] \t",
                    n / 1000 % 60, n % 1000, pData[n + 1] % 4, "EWIDT"[pData[n + 2] % 5]);
      strLog += szHead;
      n += 2;
      bLineStart = false;
      continue;
    }
    strLog += static_cast<char>(pData[n]);
    bLineStart = pData[n] == '\n';
  }
  return strLog;
}

struct Teller {
  explicit Teller(const std::string& strFile)
      : reader({strFile}), machine([this](lmctl::Story&& story) { Take(story); }, true) {}
  void Take(const lmctl::Story& story) {
    Require(story.first.nFile == 0 && story.first.nLine <= story.last.nLine && story.last.nLine <= nLines, "lines");
    for (std::size_t n = 0; n < lmctl::kClaims; ++n) Require(story.proofs[n].nLine <= nLines, "a line that proves");
    const std::string strStory = lmctl::StoryJson(story, [](std::uint32_t) { return std::string("log"); });
    Require(nlohmann::json::parse(strStory).dump().size() > 2, "JSON");
    strTold += strStory;
    std::FILE* pNull = std::fopen("/dev/null", "w");
    lmctl::Explain(pNull, story, [](std::uint32_t) { return std::string("log"); });
    lmctl::TableRenderer(pNull, 80, true).Row(story);
    std::fclose(pNull);
  }
  void Read(bool bWhole) {
    reader.Read(
        [this](const lmctl::LogReader::Line& line) {
          Require(line.nLine == ++nLines, "line numbers");
          const lmctl::LogLine parsed = lmctl::ParseLine(line.text, line.bWhole);
          machine.Line(parsed, lmctl::TimeOf(parsed, reader.Sources()[line.nSource]), {line.nSource, line.nLine});
        },
        bWhole);
  }
  void End() {
    Read(true);
    machine.End();
    Require(machine.OpenJobs() == 0, "open jobs at the end");
  }

  lmctl::LogReader reader;
  lmctl::StoryMachine machine;
  std::uint64_t nLines = 0;
  std::string strTold;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t cb) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("fuzz_log_stories." + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  const std::string strFile = (folder / "20261118.log").string();
  const std::string strLog = Log(pData, cb);
  std::ofstream(strFile, std::ios::binary) << strLog;
  Teller whole(strFile);
  whole.End();
  std::uint64_t nExpected = static_cast<std::uint64_t>(std::count(strLog.begin(), strLog.end(), '\n'));
  if (!strLog.empty() && strLog.back() != '\n') ++nExpected;
  Require(whole.nLines == nExpected, "count of lines");

  std::ofstream(strFile, std::ios::binary).write(strLog.data(), static_cast<std::streamsize>(strLog.size() / 2));
  Teller growing(strFile);
  growing.Read(false);
  std::ofstream(strFile, std::ios::binary | std::ios::app) << strLog.substr(strLog.size() / 2);
  growing.End();
  Require(growing.strTold == whole.strTold, "a log that grows");
  std::filesystem::remove_all(folder);
  return 0;
}
