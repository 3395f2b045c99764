// lmctl metrics: counters for a collector. Logs are rotated and purged, and a collector is started anew: what has been counted
// is kept in a file of its own, with the marks of the jobs of the log at hand, so that each counts once.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <unordered_set>

#include "tools/lmctl/commands/log_stories.h"
#include "tools/lmctl/log/paths.h"
#include "tools/lmctl/log/text_hash.h"
#include "tools/lmctl/render/metrics.h"
#include "tools/lmctl/render/render.h"

namespace lmctl {
namespace {

using Json = nlohmann::json;

// A job is known again by its queue, number, process and start, whichever file it has been moved to.
std::string NameOf(const Story& story) {
  return story.strQueue + '\n' + std::to_string(story.nJob) + '\n' + std::to_string(story.nProcess) + '\n' +
         std::to_string(story.llStarted);
}

class State {
 public:
  explicit State(std::string strFile) : m_strFile(std::move(strFile)) {
    std::ifstream file(PathOf(m_strFile));
    if (m_strFile.empty() || !file) return;
    try {
      const Json json = Json::parse(file);
      for (const auto& [strQueue, queue] : json.at("queues").items()) {
        QueueCounts& counts = metrics.counts[strQueue];
        counts.jobs = queue.at("jobs").get<std::map<std::string, std::uint64_t>>();
        counts.ullBytes = queue.at("bytes");
        counts.nSentAgain = queue.at("sentAgain");
        counts.nMaybeTwice = queue.at("maybeTwice");
        counts.ullWaitedMs = queue.at("waitedMs");
        counts.llLastJob = queue.at("lastJob");
      }
      metrics.nLostNotes = json.at("lostNotes");
      for (const auto& mark : json.at("counted")) m_before.insert(mark.get<std::uint64_t>());
    } catch (const Json::exception&) {
      throw std::runtime_error(m_strFile +
                               " is not a state of lmctl metrics: name another file, or delete it to count from zero");
    }
  }

  // Whether what has this name counts now: it has not before.
  bool IsNew(const std::string& strName) {
    const std::uint64_t ullMark = TextHash(strName);
    return m_now.insert(ullMark).second && m_before.count(ullMark) == 0;
  }
  void Save() const {
    if (m_strFile.empty()) return;
    Json json = {{"queues", Json::object()}, {"lostNotes", metrics.nLostNotes}};
    for (const auto& [strQueue, counts] : metrics.counts)
      json["queues"][strQueue] = {{"jobs", counts.jobs},
                                  {"bytes", counts.ullBytes},
                                  {"sentAgain", counts.nSentAgain},
                                  {"maybeTwice", counts.nMaybeTwice},
                                  {"waitedMs", counts.ullWaitedMs},
                                  {"lastJob", counts.llLastJob}};
    json["counted"] = m_now;
    WriteWhole(m_strFile, json.dump());
  }

  // The file is there whole or not at all: it is written beside and renamed.
  static void WriteWhole(const std::string& strFile, const std::string& strText) {
    const std::filesystem::path target = PathOf(strFile);
    std::filesystem::path beside = target;
    beside += ".new";
    std::ofstream file(beside, std::ios::binary);
    file << strText;
    file.close();
    std::error_code error;
    if (file) std::filesystem::rename(beside, target, error);
    if (!file || error) throw std::runtime_error("cannot write " + strFile + ": free space, or choose another file");
  }

  Metrics metrics;

 private:
  const std::string m_strFile;
  std::unordered_set<std::uint64_t> m_before;  // counted already
  std::unordered_set<std::uint64_t> m_now;     // in the log at hand
};

}  // namespace

int ShowMetrics(const Options& options) {
  const Filter filter(options);
  State state(options.strState.empty() && !options.strOutput.empty() ? options.strOutput + ".state" : options.strState);
  StoryReader reader(
      options,
      [&](Story&& story) {
        if (filter.Takes(story) && state.IsNew(NameOf(story))) state.metrics.Count(story);
      },
      false);
  reader.Read(false);
  for (const auto& [strQueue, counts] : state.metrics.counts) state.metrics.now[strQueue] = {};
  // Jobs that are under way do not count yet.
  reader.Machine().ForEachOpen([&](const Story& story, bool bEndWouldShow) {
    if (!filter.Takes(story) || !bEndWouldShow) return;
    QueueNow& now = state.metrics.now[ToUtf8(story.strQueue)];
    if (now.nInProgress++ == 0 || story.llStarted < now.llSince) now.llSince = story.llStarted;
  });
  for (const std::string& strMark : reader.LossMarks())
    if (state.IsNew(strMark)) ++state.metrics.nLostNotes;
  state.metrics.nUnlisted = reader.Machine().Unlisted();
  if (options.strOutput.empty()) {
    state.Save();
    state.metrics.Write(stdout);
    return kExitWell;
  }
  std::FILE* pText = std::tmpfile();
  if (pText == nullptr) throw std::runtime_error("no temporary file can be made: free space in the temporary folder");
  state.metrics.Write(pText);
  std::string strText(static_cast<std::size_t>(std::ftell(pText)), '\0');
  std::rewind(pText);
  const std::size_t cb = std::fread(strText.data(), 1, strText.size(), pText);
  std::fclose(pText);
  state.Save();
  State::WriteWhole(options.strOutput, strText.substr(0, cb));
  return kExitWell;
}

}  // namespace lmctl
