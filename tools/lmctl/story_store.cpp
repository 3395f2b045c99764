#include "tools/lmctl/story_store.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace lmctl {
namespace {

// The members of a story without its texts.
struct Fixed {
  std::int64_t nJob;
  LocalMs llStarted, llEnded, llLast;
  std::int64_t nBytes, nWrites, nError, nReprints;
  std::uint64_t nFirstLine, nLastLine;
  std::uint32_t nFirstFile, nLastFile, nProcess, nPhases;
  std::uint32_t acbTexts[4];
  Path path;
  Outcome outcome;
  Tri maybeTwice;
  bool bOver, bErrorNotLogged, bResponseNotLogged, bInPart, bLinesLost;
};

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
  Fixed fixed = {};
  fixed.nJob = story.nJob;
  fixed.llStarted = story.llStarted;
  fixed.llEnded = story.llEnded;
  fixed.llLast = story.llLast;
  fixed.nBytes = story.nBytes;
  fixed.nWrites = story.nWrites;
  fixed.nError = story.nError;
  fixed.nReprints = story.nReprints;
  fixed.nFirstLine = story.first.nLine;
  fixed.nLastLine = story.last.nLine;
  fixed.nFirstFile = story.first.nFile;
  fixed.nLastFile = story.last.nFile;
  fixed.nProcess = story.nProcess;
  fixed.nPhases = static_cast<std::uint32_t>(story.phases.size());
  fixed.path = story.path;
  fixed.outcome = story.outcome;
  fixed.maybeTwice = story.maybeTwice;
  fixed.bOver = story.bOver;
  fixed.bErrorNotLogged = story.bErrorNotLogged;
  fixed.bResponseNotLogged = story.bResponseNotLogged;
  fixed.bInPart = story.bInPart;
  fixed.bLinesLost = story.bLinesLost;
  m_record.clear();
  const auto append = [&](const void* p, std::size_t cb) { m_record.append(static_cast<const char*>(p), cb); };
  for (std::size_t n = 0; n < 4; ++n) fixed.acbTexts[n] = static_cast<std::uint32_t>(texts[n]->size());
  append(&fixed, sizeof fixed);
  for (const std::string* pText : texts) append(pText->data(), pText->size());
  for (const Phase& phase : story.phases) append(&phase, sizeof phase);
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
    Fixed fixed;
    std::memcpy(&fixed, m_record.data(), sizeof fixed);
    const char* p = m_record.data() + sizeof fixed;
    Story story;
    std::string* const texts[] = {&story.strQueue, &story.strPort, &story.strReason, &story.strResponse};
    for (std::size_t i = 0; i < 4; ++i) {
      texts[i]->assign(p, fixed.acbTexts[i]);
      p += fixed.acbTexts[i];
    }
    for (std::uint32_t i = 0; i < fixed.nPhases; ++i) {
      Phase phase;
      std::memcpy(&phase, p, sizeof phase);
      p += sizeof phase;
      story.phases.push_back(phase);
    }
    story.nJob = fixed.nJob;
    story.nProcess = fixed.nProcess;
    story.llStarted = fixed.llStarted;
    story.llEnded = fixed.llEnded;
    story.llLast = fixed.llLast;
    story.bOver = fixed.bOver;
    story.path = fixed.path;
    story.nBytes = fixed.nBytes;
    story.nWrites = fixed.nWrites;
    story.outcome = fixed.outcome;
    story.nError = fixed.nError;
    story.bErrorNotLogged = fixed.bErrorNotLogged;
    story.nReprints = fixed.nReprints;
    story.bResponseNotLogged = fixed.bResponseNotLogged;
    story.maybeTwice = fixed.maybeTwice;
    story.bInPart = fixed.bInPart;
    story.bLinesLost = fixed.bLinesLost;
    story.first = {fixed.nFirstFile, fixed.nFirstLine};
    story.last = {fixed.nLastFile, fixed.nLastLine};
    give(story);
  }
  SeekTo(m_pFile, m_ullEnd);
}

}  // namespace lmctl
