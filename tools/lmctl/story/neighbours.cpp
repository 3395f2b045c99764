#include "tools/lmctl/story/neighbours.h"

#include <algorithm>

#include "tools/lmctl/log/text_hash.h"

namespace lmctl {
namespace {

std::uint64_t KeyOf(const Story& story, std::int64_t n) {
  return TextHash(std::to_string(n), TextHash(story.strQueue));
}

}  // namespace

void Neighbours::Add(const Story& story) {
  if (story.nBytes > 0) m_sizes.emplace_back(KeyOf(story, story.nBytes), story.llStarted);
  if (story.bRestarted && story.nBytes != 0) m_restarted.emplace_back(KeyOf(story, story.nJob), story.llStarted);
  m_bSorted = false;
}

void Neighbours::Mark(Story& story) {
  if (!m_bSorted) {
    std::sort(m_sizes.begin(), m_sizes.end());
    std::sort(m_restarted.begin(), m_restarted.end());
    m_bSorted = true;
  }
  const auto first = [](const Starts& starts, std::uint64_t ullKey, LocalMs llFrom) {
    return std::lower_bound(starts.begin(), starts.end(), std::pair(ullKey, llFrom));
  };
  if (story.nBytes > 0) {
    const std::uint64_t ullKey = KeyOf(story, story.nBytes);
    const auto it = first(m_sizes, ullKey, story.llStarted - kBesideMs);
    // The story itself, and one more.
    const bool bTwo = it != m_sizes.end() && it + 1 != m_sizes.end() && (it + 1)->first == ullKey &&
                      (it + 1)->second <= story.llStarted + kBesideMs;
    if (bTwo) story.byTwice |= kTwiceSameSize;
  }
  const std::uint64_t ullKey = KeyOf(story, story.nJob);
  const auto it = first(m_restarted, ullKey, story.llStarted - kRestartMs);
  if (it != m_restarted.end() && it->first == ullKey && it->second < story.llStarted) story.byTwice |= kTwiceRestarted;
  // What the job itself shows is not all that can have been.
  if ((story.byTwice & kTwiceRestarted) != 0) {
    story.maybeTwice = Tri::Yes;
    story.proofs[static_cast<std::size_t>(Claim::MaybeTwice)] = story.first;
  } else if ((story.byTwice & kTwiceSameSize) != 0 && story.maybeTwice == Tri::No) {
    story.maybeTwice = Tri::Unknown;
  }
}

}  // namespace lmctl
