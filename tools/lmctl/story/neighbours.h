// What only the jobs beside a job tell: that the spooler began it again, and that another one of its size stands beside it, which
// may be the same receipt, printed twice by the program or again from the archive. Memory: 64 bytes a job.
#pragma once

#include <utility>
#include <vector>

#include "tools/lmctl/story/story.h"

namespace lmctl {

// Jobs of one size on one queue that begin within this time of each other are perhaps one receipt.
inline constexpr LocalMs kBesideMs = 60'000;
// A job that the spooler still has when it is started anew begins again under its number within this time; later the number was
// given anew.
inline constexpr LocalMs kRestartMs = 86'400'000;

class Neighbours {
 public:
  void Add(const Story& story);
  // Marks a story that was added; all that are beside it must have been.
  void Mark(Story& story);

 private:
  struct Start {
    std::uint64_t ullKey;  // queue and number
    LocalMs llTime;
    std::uint32_t nLife;
    bool bComesAgain;  // the spooler still has it: it was restarted, or its process ended before it
    Place place;

    bool operator<(const Start& other) const {
      return std::pair(ullKey, llTime) < std::pair(other.ullKey, other.llTime);
    }
  };
  void MarkRestart(Story& story) const;
  void MarkSize(Story& story) const;

  std::vector<std::pair<std::uint64_t, LocalMs>> m_sizes;  // queue and size, and when they began
  std::vector<Start> m_starts;                             // of jobs that had data, or go on
  bool m_bSorted = true;
};

}  // namespace lmctl
