// lmhost log and lmhost models.
#include <cstdio>

#include "monitor/model.h"
#include "sim/world.h"
#include "tools/lmhost/commands.h"
#include "tools/lmhost/terminal.h"

namespace lmhost {
namespace {

constexpr char kLetters[] = "EWIDTV";
constexpr std::uint32_t kBits[] = {0x002, 0x004, 0x010, 0x080, 0x100, 0x400};

const char* ColourOf(char cLevel) {
  switch (cLevel) {
    case 'E': return "\033[31m";
    case 'W': return "\033[33m";
    case 'I': return "\033[32m";
    default: return "\033[90m";
  }
}

// The level letter of a log line, 0 for lines of another kind.
char LevelOf(const std::string& strLine) {
  const std::size_t nAt = strLine.find("\t[");
  const std::size_t nLevel = nAt == std::string::npos ? nAt : strLine.find("\t[", nAt + 1);
  return nLevel != std::string::npos && nLevel + 2 < strLine.size() ? strLine[nLevel + 2] : '\0';
}

bool NamesJob(const std::string& strLine, int nJob) {
  const std::string strDecimal = sim::Format("%d", nJob);
  const std::string strHex = sim::Format("0x%08x", static_cast<unsigned>(nJob));
  for (const std::string& strMark : {"JobId:" + strDecimal, "JobId:" + strHex, "nValue:" + strDecimal})
    for (std::size_t nAt = strLine.find(strMark); nAt != std::string::npos; nAt = strLine.find(strMark, nAt + 1)) {
      const char cNext = nAt + strMark.size() < strLine.size() ? strLine[nAt + strMark.size()] : ' ';
      if (cNext < '0' || cNext > '9') return true;
    }
  return false;
}

void ShowText(const std::string& strText, const Options& options, bool bColour) {
  for (std::size_t nStart = 0; nStart < strText.size();) {
    std::size_t nEnd = strText.find("\r\n", nStart);
    if (nEnd == std::string::npos) nEnd = strText.size();
    const std::string strLine = strText.substr(nStart, nEnd - nStart);
    nStart = nEnd + 2;
    const char cLevel = LevelOf(strLine);
    if (cLevel != 0 && options.strShowLevel.find(cLevel) == std::string::npos) continue;
    if (options.nJob != 0 && !NamesJob(strLine, options.nJob)) continue;
    if (bColour && cLevel != 0) {
      std::printf("%s%s\033[0m\n", ColourOf(cLevel), strLine.c_str());
    } else {
      std::printf("%s\n", strLine.c_str());
    }
  }
  std::fflush(stdout);
}

}  // namespace

bool LevelMask(const std::string& strLetters, std::uint32_t& dwMask) {
  dwMask = 0;
  for (const char c : strLetters) {
    std::size_t n = 0;
    while (kLetters[n] != 0 && kLetters[n] != c) ++n;
    if (kLetters[n] == 0) return false;
    dwMask |= kBits[n];
  }
  return true;
}

int ShowLog(const Options& options) {
  const bool bColour = IsTerminal();
  std::size_t nShown = 0;
  do {
    const std::string strText = sim::World::LogText();
    if (strText.size() < nShown) nShown = 0;  // the log was rotated or purged
    ShowText(strText.substr(nShown), options, bColour);
    nShown = strText.size();
    if (options.bFollow) Sleep(500);
  } while (options.bFollow);
  if (nShown == 0) std::fprintf(stderr, "lmhost: no log in %s\n", sim::World::LogFolder().c_str());
  return nShown != 0 ? kExitDelivered : kExitNotDelivered;
}

int ShowModels() {
  std::printf("%-20s %-10s %-5s %-5s %-9s %s\n", "driver", "status", "open", "flags", "errors", "serial settings");
  for (const DevModelEntry& entry : DevModelTable()) {
    const DevData& model = *entry.pDevData;
    int nErrors = 0;
    for (const StatusDef* pDef = model.pRespInfo->pStatusInfo->pStatusDef; pDef->llMask > 0; ++pDef)
      nErrors += pDef->dwKind == STATUS_KIND_ERROR ? 1 : 0;
    std::printf(
        "%-20s %-10s %-5s %-5s %-9d %s\n", sim::Narrow(entry.pszModelName).c_str(),
        model.HasOneByteStatus() ? "one byte" : "eight", (entry.pDevInfo->wDevCaps & DEVCAP_OPEN_OPTION) ? "yes" : "-",
        model.KeepsLogSettingFlags() ? "yes" : "-", nErrors, sim::Narrow(entry.pDevInfo->pszCommSetting).c_str());
  }
  return kExitDelivered;
}

}  // namespace lmhost
