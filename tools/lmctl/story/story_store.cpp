#include "tools/lmctl/story/story_store.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <type_traits>

namespace lmctl {
namespace {

// A record begins with this; texts, phases and events follow.
struct Head {
  StoryFacts facts;
  std::uint32_t acbTexts[4];
  std::uint32_t nPhases;
  std::uint32_t nEvents;
};
// An event begins with this; its text follows.
struct EventHead {
  LocalMs llTime;
  Place place;
  std::uint32_t cbText;
};
static_assert(std::is_trivially_copyable_v<Head> && std::is_trivially_copyable_v<Phase> &&
              std::is_trivially_copyable_v<EventHead>);

int SeekTo(std::FILE* pFile, std::uint64_t ull) {
#ifdef _WIN32
  return _fseeki64(pFile, static_cast<long long>(ull), SEEK_SET);
#else
  return fseeko(pFile, static_cast<off_t>(ull), SEEK_SET);
#endif
}

}  // namespace

StoryStore::StoryStore() : m_pFile(std::tmpfile()) {
  if (m_pFile == nullptr) throw std::runtime_error("no temporary file can be made: free space in the temporary folder");
}

StoryStore::~StoryStore() { std::fclose(m_pFile); }

void StoryStore::Add(const Story& story) {
  const std::string* const texts[] = {&story.strQueue, &story.strPort, &story.strReason, &story.strResponse};
  Head head = {
      story, {}, static_cast<std::uint32_t>(story.phases.size()), static_cast<std::uint32_t>(story.events.size())};
  m_record.clear();
  const auto append = [&](const void* p, std::size_t cb) { m_record.append(static_cast<const char*>(p), cb); };
  for (std::size_t n = 0; n < 4; ++n) head.acbTexts[n] = static_cast<std::uint32_t>(texts[n]->size());
  append(&head, sizeof head);
  for (const std::string* pText : texts) append(pText->data(), pText->size());
  for (const Phase& phase : story.phases) append(&phase, sizeof phase);
  for (const Event& event : story.events) {
    const EventHead eventHead = {event.llTime, event.place, static_cast<std::uint32_t>(event.strText.size())};
    append(&eventHead, sizeof eventHead);
    append(event.strText.data(), event.strText.size());
  }
  if (std::fwrite(m_record.data(), 1, m_record.size(), m_pFile) != m_record.size())
    throw std::runtime_error("the temporary file cannot be written: free space in the temporary folder");
  m_index.push_back({story.llStarted, m_ullEnd, static_cast<std::uint32_t>(m_record.size())});
  m_ullEnd += m_record.size();
}

void StoryStore::ForEach(std::size_t nLast, const std::function<void(const Story&)>& give) {
  std::stable_sort(m_index.begin(), m_index.end(),
                   [](const Entry& l, const Entry& r) { return l.llStarted < r.llStarted; });
  const std::size_t nFrom = nLast != 0 && m_index.size() > nLast ? m_index.size() - nLast : 0;
  std::fflush(m_pFile);
  std::uint64_t ullAt = ~0ull;
  for (std::size_t n = nFrom; n < m_index.size(); ++n) {
    const Entry& entry = m_index[n];
    m_record.resize(entry.cb);
    // Stories mostly lie in order: then the file is read straight on.
    if (ullAt != entry.ullAt) SeekTo(m_pFile, entry.ullAt);
    if (std::fread(m_record.data(), 1, entry.cb, m_pFile) != entry.cb)
      throw std::runtime_error("the temporary file cannot be read back");
    ullAt = entry.ullAt + entry.cb;
    Head head;
    std::memcpy(&head, m_record.data(), sizeof head);
    const char* p = m_record.data() + sizeof head;
    Story story;
    static_cast<StoryFacts&>(story) = head.facts;
    std::string* const texts[] = {&story.strQueue, &story.strPort, &story.strReason, &story.strResponse};
    for (std::size_t i = 0; i < 4; ++i) {
      texts[i]->assign(p, head.acbTexts[i]);
      p += head.acbTexts[i];
    }
    for (std::uint32_t i = 0; i < head.nPhases; ++i) {
      Phase phase;
      std::memcpy(&phase, p, sizeof phase);
      p += sizeof phase;
      story.phases.push_back(phase);
    }
    for (std::uint32_t i = 0; i < head.nEvents; ++i) {
      EventHead eventHead;
      std::memcpy(&eventHead, p, sizeof eventHead);
      p += sizeof eventHead;
      story.events.push_back({eventHead.llTime, eventHead.place, std::string(p, eventHead.cbText)});
      p += eventHead.cbText;
    }
    if (m_bMark) m_neighbours.Mark(story);
    give(story);
  }
  SeekTo(m_pFile, m_ullEnd);
}

}  // namespace lmctl
