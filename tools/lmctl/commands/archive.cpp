// lmctl archive: the archived jobs of a root or a queue.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <vector>

#include "tools/lmctl/commands/commands.h"
#include "tools/lmctl/log/log_line.h"
#include "tools/lmctl/windows/queue.h"
#include "tools/lmctl/commands/terminal.h"

namespace lmctl {
namespace {

namespace fs = std::filesystem;

fs::path RootOf(const Options& options) {
  std::string strRoot = options.strRoot;
  if (strRoot.empty() && !options.strQueue.empty()) strRoot = ArchiveRootOfQueue(options.strQueue);
  if (strRoot.empty()) throw std::runtime_error("which archive? Name its root with --root or a queue with --queue");
  std::error_code error;
  if (!fs::is_directory(strRoot, error))
    throw std::runtime_error("there is no folder " + strRoot + ": name the archive's root");
  return strRoot;
}

std::string ReadFile(const std::string& strFile) {
  std::ifstream file(strFile, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + strFile + ": lmctl archive list shows the files that there are");
  return std::string(std::istreambuf_iterator<char>(file), {});
}

const char* NameOf(unsigned char by) {
  static constexpr const char* kNames[] = {"NUL", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL", "BS",  "HT",  "LF",
                                           "VT",  "FF",  "CR",  "SO",  "SI",  "DLE", "DC1", "DC2", "DC3", "DC4", "NAK",
                                           "SYN", "ETB", "CAN", "EM",  "SUB", "ESC", "FS",  "GS",  "RS",  "US"};
  return by < 0x20 ? kNames[by] : by == 0x7F ? "DEL" : nullptr;
}

}  // namespace

int ArchiveList(const Options& options) {
  std::map<std::string, std::vector<fs::path>> days;
  std::error_code error;
  for (const auto& day : fs::directory_iterator(RootOf(options), error)) {
    const std::string strDay = day.path().filename().string();
    if (!day.is_directory(error) || day.is_symlink(error) || !IsDayName(strDay)) continue;
    for (const auto& file : fs::directory_iterator(day.path(), error))
      if (file.is_regular_file(error) && file.path().extension() == ".prn") days[strDay].push_back(file.path());
  }
  std::size_t nFiles = 0;
  for (auto& [strDay, files] : days) {
    std::sort(files.begin(), files.end());
    std::printf("%s-%s-%s\n", strDay.substr(0, 4).c_str(), strDay.substr(4, 2).c_str(), strDay.substr(6, 2).c_str());
    for (const fs::path& file : files) {
      const std::string strName = file.filename().string();  // hhmm_ss(mmm).prn
      const std::string strTime = strName.size() >= 12 ? strName.substr(0, 2) + ":" + strName.substr(2, 2) + ":" +
                                                             strName.substr(5, 2) + "." + strName.substr(8, 3)
                                                       : strName;
      std::printf("  %s %10llu bytes  %s\n", strTime.c_str(),
                  static_cast<unsigned long long>(fs::file_size(file, error)), file.string().c_str());
      ++nFiles;
    }
  }
  std::printf("%zu archived job%s\n", nFiles, nFiles == 1 ? "" : "s");
  return kExitWell;
}

int ArchiveShow(const Options& options) {
  const std::string strBytes = ReadFile(options.strFile);
  if (!options.strRaw.empty()) {
    std::ofstream out(options.strRaw, std::ios::binary);
    out << strBytes;
    out.close();
    if (!out) throw std::runtime_error("cannot write " + options.strRaw + ": choose another file with --raw");
    std::printf("%s: %zu bytes\n", options.strRaw.c_str(), strBytes.size());
    return kExitWell;
  }
  for (const char c : strBytes) {
    const auto by = static_cast<unsigned char>(c);
    if (by == '\n') {
      std::printf("\n");
    } else if (const char* pszName = NameOf(by); pszName != nullptr) {
      std::printf("<%s>", pszName);
    } else if (by < 0x80) {
      std::putchar(c);
    } else {
      std::printf("<%02X>", by);
    }
  }
  std::printf("\n");
  return kExitWell;
}

int ArchivePrint(const Options& options) {
  if (options.strQueue.empty()) throw std::runtime_error("on which queue? Name it with --queue");
  const std::string strBytes = ReadFile(options.strFile);
  if (!options.bYes) {
    std::printf("Print %s (%zu bytes) again on the queue %s? [y/N] ", options.strFile.c_str(), strBytes.size(),
                options.strQueue.c_str());
    std::fflush(stdout);
    const int nAnswer = std::getchar();
    if (nAnswer != 'y' && nAnswer != 'Y') {
      std::printf("Not printed.\n");
      return kExitWrong;
    }
  }
  const unsigned nJob =
      PrintRaw(options.strQueue, "archived job " + fs::path(options.strFile).filename().string(), strBytes);
  std::printf("Job %u on %s: %zu bytes handed to the spooler\n", nJob, options.strQueue.c_str(), strBytes.size());
  return kExitWell;
}

}  // namespace lmctl
