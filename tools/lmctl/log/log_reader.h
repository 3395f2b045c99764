// The log's files, read in their order as a stream of lines. A file is opened for one block at a time, on Windows under the
// mutex of those who write it: the writers open it for themselves alone and must never find it taken.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/lmctl/log/log_line.h"

namespace lmctl {

// Where the monitor logs on this machine; empty where it cannot be told.
std::filesystem::path DefaultLogFolder();

class LogReader {
 public:
  struct Source {
    std::filesystem::path path;
    std::string strName;        // as it is shown
    bool bYearGuessed = false;  // its name has no date
    int nYear = 0;              // of its name
    int nMonth = 0;
    std::uint64_t ullRead = 0;
    std::uint64_t nLines = 0;
    std::string strPartial;  // a last line that is not whole yet
  };
  struct Line {
    std::string_view text;
    std::uint32_t nSource = 0;  // index into Sources
    std::uint64_t nLine = 0;    // 1: the first
    bool bWhole = true;         // it has an end
  };
  using OnLine = std::function<void(const Line& line)>;
  using OnProgress = std::function<void(std::uint64_t ullDone, std::uint64_t ullTotal)>;

  // Folders and files; a folder stands for the log files in it. Throws std::runtime_error when one cannot be read.
  explicit LogReader(const std::vector<std::string>& inputs);

  // Reads what is there, or what has come since. bWhole: a last line without an end is given out as well.
  void Read(const OnLine& onLine, bool bWhole, const OnProgress& onProgress = {});
  // Looks for files that are new or were moved aside.
  void Refresh();

  const std::vector<Source>& Sources() const { return m_sources; }
  std::uint64_t TotalBytes() const;

 private:
  void AddFolder(const std::filesystem::path& folder);
  void AddFile(const std::filesystem::path& file);
  // A file that is named twice, or a copy of one, counts once: the longer one does.
  void DropCopies();

  std::vector<std::filesystem::path> m_folders;
  std::vector<std::filesystem::path> m_copies;  // left out
  std::vector<Source> m_sources;
  std::vector<std::uint32_t> m_order;  // of the sources, oldest first
  std::vector<char> m_block;
};

// The time of a line in a source.
LocalMs TimeOf(const LogLine& line, const LogReader::Source& source);

}  // namespace lmctl
