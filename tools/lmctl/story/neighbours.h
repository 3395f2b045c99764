// What only the jobs beside a job tell: that the spooler began it again, and that another one of its size stands beside it, which
// may be the same receipt, printed twice by the program or again from the archive. Memory: 16 bytes a job.
#pragma once

#include <utility>
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
  using Starts = std::vector<std::pair<std::uint64_t, LocalMs>>;  // what they have in common, when they began
  Starts m_sizes;                                                 // by queue and size
  Starts m_restarted;                                             // by queue and number
  bool m_bSorted = true;
};

}  // namespace lmctl
