#include "tools/lmctl/story/neighbours.h"

#include <algorithm>

#include "tools/lmctl/log/text_hash.h"

namespace lmctl {
namespace {

std::uint64_t KeyOf(const Story& story, std::int64_t n) {
  return TextHash(std::to_string(n), TextHash(story.strQueue));
}

// Of a transfer that failed a part may have gone out.
bool MayBeOut(const Story& story) { return story.nBytes != 0 || !story.bOver || story.bInPart; }

}  // namespace

void Neighbours::Add(const Story& story) {
  if (story.nBytes > 0) m_sizes.emplace_back(KeyOf(story, story.nBytes), story.llStarted);
  if (MayBeOut(story))
    m_starts.push_back(
        {KeyOf(story, story.nJob), story.llStarted, story.nLife, story.bRestarted || !story.bOver, story.first});
  m_bSorted = false;
}

void Neighbours::Mark(Story& story) {
  if (!m_bSorted) {
    std::sort(m_sizes.begin(), m_sizes.end());
    std::sort(m_starts.begin(), m_starts.end());
    m_bSorted = true;
  }
  if (story.nBytes > 0) MarkSize(story);
  if (MayBeOut(story)) MarkRestart(story);
}

void Neighbours::MarkSize(Story& story) const {
  const std::uint64_t ullKey = KeyOf(story, story.nBytes);
  const auto it = std::lower_bound(m_sizes.begin(), m_sizes.end(), std::pair(ullKey, story.llStarted - kBesideMs));
  // The story itself, and one more.
  const bool bTwo = it != m_sizes.end() && it + 1 != m_sizes.end() && (it + 1)->first == ullKey &&
                    (it + 1)->second <= story.llStarted + kBesideMs;
  if (!bTwo) return;
  story.byTwice |= kTwiceSameSize;
  if (story.maybeTwice == Tri::No) story.maybeTwice = Tri::Unknown;
}

// A spooler gives a number once for as long as it runs. One that is started anew may give it to another job, but prints first what
// it still has.
void Neighbours::MarkRestart(Story& story) const {
  const std::uint64_t ullKey = KeyOf(story, story.nJob);
  const bool bComesAgain = story.bRestarted || !story.bOver;
  const Start from = {ullKey, story.llStarted - kRestartMs, 0, false, {}};
  for (auto it = std::lower_bound(m_starts.begin(), m_starts.end(), from);
       it != m_starts.end() && it->ullKey == ullKey && it->llTime <= story.llStarted + kRestartMs; ++it) {
    if (it->place.nFile == story.first.nFile && it->place.nLine == story.first.nLine) continue;
    const bool bLater = it->llTime > story.llStarted;
    if (it->nLife != story.nLife && !(bLater ? bComesAgain : it->bComesAgain)) continue;
    story.byTwice |= kTwiceRestarted;
    story.maybeTwice = Tri::Yes;
    story.proofs[static_cast<std::size_t>(Claim::MaybeTwice)] = it->place;
    return;
  }
}

}  // namespace lmctl
