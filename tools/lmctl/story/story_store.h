// The stories of a whole log in the order of their starts. They lie in a temporary file that has no name; in memory is what
// the order needs.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "tools/lmctl/story/story.h"

namespace lmctl {

class StoryStore {
 public:
  StoryStore();
  ~StoryStore();
  StoryStore(const StoryStore&) = delete;
  StoryStore& operator=(const StoryStore&) = delete;

  void Add(const Story& story);
  std::size_t Size() const { return m_index.size(); }
  // Gives out the newest nLast of them (0: all), oldest first. Phases come along, events do not.
  void ForEach(std::size_t nLast, const std::function<void(const Story&)>& give);

 private:
  struct Entry {
    LocalMs llStarted;
    std::uint64_t ullAt;
    std::uint32_t cb;
  };
  std::FILE* m_pFile;
  std::uint64_t m_ullEnd = 0;
  std::vector<Entry> m_index;
  std::string m_record;
};

}  // namespace lmctl
