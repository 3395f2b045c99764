// lmctl archive: the archived jobs of a root or a queue.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tools/lmctl/commands/archive_files.h"
#include "tools/lmctl/commands/commands.h"
#include "tools/lmctl/log/paths.h"
#include "tools/lmctl/render/render.h"
#include "tools/lmctl/commands/queue.h"

namespace lmctl {
namespace {

std::filesystem::path RootOf(const Options& options) {
  std::string strRoot = options.strRoot;
  if (strRoot.empty() && !options.strQueue.empty()) strRoot = ArchiveRootOfQueue(options.strQueue);
  if (strRoot.empty()) throw std::runtime_error("which archive? Name its root with --root or a queue with --queue");
  return PathOf(strRoot);
}

std::string ReadFile(const std::string& strFile) {
  std::error_code error;
  const std::filesystem::path path = PathOf(strFile);
  if (std::filesystem::is_directory(path, error))
    throw std::runtime_error(strFile + " is a folder: name one of its files, lmctl archive list shows them");
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + strFile + ": lmctl archive list shows the files that there are");
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// How to find the job of an archived file in the log.
void TellItsStory(const std::string& strFile) {
  if (const auto llTime = TimeOfArchivedJob(PathOf(strFile)))
    std::printf("Its story: lmctl explain --at \"%s\"\n", ShortTime(*llTime).c_str());
}

const char* NameOf(unsigned char by) {
  static constexpr const char* kNames[] = {"NUL", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL", "BS",  "HT",  "LF",
                                           "VT",  "FF",  "CR",  "SO",  "SI",  "DLE", "DC1", "DC2", "DC3", "DC4", "NAK",
                                           "SYN", "ETB", "CAN", "EM",  "SUB", "ESC", "FS",  "GS",  "RS",  "US"};
  return by < 0x20 ? kNames[by] : by == 0x7F ? "DEL" : nullptr;
}

}  // namespace

int ArchiveList(const Options& options) {
  const ArchiveListing listing = ListArchive(RootOf(options));
  std::string strDay;
  for (const ArchivedJob& job : listing.jobs) {
    const std::string strTime = IsoTime(job.llTime);
    if (strTime.substr(0, 10) != strDay) std::printf("%s\n", (strDay = strTime.substr(0, 10)).c_str());
    std::printf("  %s %10llu bytes  %s\n", strTime.substr(11).c_str(), static_cast<unsigned long long>(job.ullBytes),
                Printable(TextOfPath(job.path)).c_str());
  }
  std::printf("%zu archived job%s\n", listing.jobs.size(), listing.jobs.size() == 1 ? "" : "s");
  if (!listing.others.empty()) std::printf("Not archived jobs:\n");
  for (const std::filesystem::path& other : listing.others) std::printf("  %s\n", Printable(TextOfPath(other)).c_str());
  return kExitWell;
}

int ArchiveShow(const Options& options) {
  const std::string strBytes = ReadFile(options.strFile);
  if (!options.strRaw.empty()) {
    std::ofstream out(PathOf(options.strRaw), std::ios::binary);
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
      PrintRaw(options.strQueue, "archived job " + TextOfPath(PathOf(options.strFile).filename()), strBytes);
  std::printf("Job %u on %s: %zu bytes handed to the spooler\n", nJob, options.strQueue.c_str(), strBytes.size());
  TellItsStory(options.strFile);
  return kExitWell;
}

}  // namespace lmctl
