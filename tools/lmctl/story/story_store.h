// The stories of a whole log in the order of their starts. They lie in a temporary file that has no name; in memory is what
// the order needs.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "tools/lmctl/story/neighbours.h"

namespace lmctl {

class StoryStore {
 public:
  StoryStore();
  ~StoryStore();
  StoryStore(const StoryStore&) = delete;
  StoryStore& operator=(const StoryStore&) = delete;

  // Every story of the log is shown to the store, since it may be another one's neighbour; those to be given out are added.
  void Show(const Story& story) { m_neighbours.Add(story); }
  void Add(const Story& story);
  // Stories that another store has marked are not marked anew.
  void AddMarked(const Story& story) {
    m_bMark = false;
    Add(story);
  }
  std::size_t Size() const { return m_index.size(); }
  // Gives out the newest nLast of them (0: all), oldest first, marked by what their neighbours tell.
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
  Neighbours m_neighbours;
  bool m_bMark = true;
};

}  // namespace lmctl
