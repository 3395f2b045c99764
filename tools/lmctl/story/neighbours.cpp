#include "tools/lmctl/story/neighbours.h"

#include <algorithm>

namespace lmctl {

void Neighbours::Add(const Story& story) {
  m_byQueue[story.strQueue].push_back({story.llStarted, story.nJob, story.nBytes, story.bRestarted});
  m_bSorted = false;
}

void Neighbours::Mark(Story& story) {
  const auto earlier = [](const Beside& l, const Beside& r) { return l.llStarted < r.llStarted; };
  if (!m_bSorted)
    for (auto& [strQueue, jobs] : m_byQueue) std::stable_sort(jobs.begin(), jobs.end(), earlier);
  m_bSorted = true;
  const std::vector<Beside>& jobs = m_byQueue[story.strQueue];
  const auto at = [&](LocalMs ll) {
    return std::lower_bound(jobs.begin(), jobs.end(), Beside{ll, 0, 0, false}, earlier);
  };
  bool bSelf = false;
  for (auto it = at(story.llStarted - kBesideMs); it != jobs.end() && it->llStarted <= story.llStarted + kBesideMs;
       ++it) {
    const bool bMe = !bSelf && it->llStarted == story.llStarted && it->nJob == story.nJob && it->nBytes == story.nBytes;
    bSelf = bSelf || bMe;
    if (!bMe && story.nBytes > 0 && it->nBytes == story.nBytes) story.byTwice |= kTwiceSameSize;
  }
  for (auto it = at(story.llStarted - kRestartMs); it != jobs.end() && it->llStarted < story.llStarted; ++it)
    if (it->bRestarted && it->nJob == story.nJob && it->nBytes != 0) story.byTwice |= kTwiceRestarted;
  // What the job itself shows is not all that can have been.
  if ((story.byTwice & kTwiceRestarted) != 0) {
    story.maybeTwice = Tri::Yes;
    story.proofs[static_cast<std::size_t>(Claim::MaybeTwice)] = story.first;
  } else if ((story.byTwice & kTwiceSameSize) != 0 && story.maybeTwice == Tri::No) {
    story.maybeTwice = Tri::Unknown;
  }
}

}  // namespace lmctl
