// What only the jobs beside a job tell: that the spooler began it again, and that another one of its size stands beside it, which
// may be the same receipt, printed twice by the program or again from the archive. Memory: some bytes a job.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "tools/lmctl/story/story.h"

namespace lmctl {

// Jobs of one size on one queue that begin within this time of each other are perhaps one receipt.
inline constexpr LocalMs kBesideMs = 60'000;
// A job that was restarted begins again under its number within this time; later the number was given anew.
inline constexpr LocalMs kRestartMs = 86'400'000;

class Neighbours {
 public:
  void Add(const Story& story);
  // Marks a story that was added; all that are beside it must have been.
  void Mark(Story& story);

 private:
  struct Beside {
    LocalMs llStarted;
    std::int64_t nJob;
    std::int64_t nBytes;
    bool bRestarted;
  };
  std::unordered_map<std::string, std::vector<Beside>> m_byQueue;
  bool m_bSorted = true;
};

}  // namespace lmctl
