// lmctl log: the lines themselves.
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <thread>

#include "tools/lmctl/commands/commands.h"
#include "tools/lmctl/log/log_reader.h"
#include "tools/lmctl/render/render.h"
#include "tools/common/terminal.h"

namespace lmctl {
namespace {

const char* ColourOf(char cLevel) {
  switch (cLevel) {
    case 'E': return "\033[31m";
    case 'W': return "\033[33m";
    case 'I': return "\033[32m";
    default: return "\033[90m";
  }
}

bool NamesJob(std::string_view line, long long nJob) {
  char szHex[24];
  std::snprintf(szHex, sizeof szHex, "0x%08llx", static_cast<unsigned long long>(nJob));
  const std::string strDecimal = std::to_string(nJob);
  for (const std::string& strMark : {"JobId:" + strDecimal, std::string("JobId:") + szHex, "nValue:" + strDecimal}) {
    for (std::size_t nAt = line.find(strMark); nAt != std::string_view::npos; nAt = line.find(strMark, nAt + 1)) {
      const char cNext = nAt + strMark.size() < line.size() ? line[nAt + strMark.size()] : ' ';
      if (cNext < '0' || cNext > '9') return true;
    }
  }
  return false;
}

}  // namespace

int ShowLog(const Options& options) {
  const bool bColour = lmtools::WantsColour();
  LogReader reader(options.logs);
  std::uint64_t nRead = 0;
  const auto show = [&](const LogReader::Line& read) {
    ++nRead;
    std::string_view line = read.text;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    const char cLevel = LevelOf(line);
    // Once levels are named, only whole lines of theirs are shown: no heads of files, no records of what came before an error.
    const bool bWhole = cLevel != 0 && !line.starts_with("$$$");
    if (!options.strLevels.empty() && (!bWhole || options.strLevels.find(cLevel) == std::string::npos)) return;
    if (options.nJob != 0 && !NamesJob(line, options.nJob)) return;
    std::string strText;
    for (std::size_t nStart = 0; nStart <= line.size();) {  // the columns are parted by tabs, which stay
      const std::size_t nTab = std::min(line.find('\t', nStart), line.size());
      strText += ToUtf8(line.substr(nStart, nTab - nStart));
      if (nTab < line.size()) strText += '\t';
      nStart = nTab + 1;
    }
    if (bColour && cLevel != 0) {
      std::printf("%s%s\033[0m\n", ColourOf(cLevel), strText.c_str());
    } else {
      std::printf("%s\n", strText.c_str());
    }
  };
  reader.Read(show, !options.bFollow);
  while (options.bFollow) {
    std::fflush(stdout);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    reader.Refresh();
    reader.Read(show, false);
  }
  if (nRead == 0) throw std::runtime_error("the log is empty: switch it on with lmctl settings LogLevelPos=EWI");
  return kExitWell;
}

}  // namespace lmctl
