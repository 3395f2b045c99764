#include "tools/lmctl/render/metrics.h"

#include <ctime>
#include <functional>

#include "tools/lmctl/render/render.h"

namespace lmctl {
namespace {

// Seconds since 1970 of a local time, by this machine's rules.
double UnixSeconds(LocalMs llTime) {
  const LocalParts parts = Split(llTime);
  std::tm local{};
  local.tm_year = parts.nYear - 1900;
  local.tm_mon = parts.nMonth - 1;
  local.tm_mday = parts.nDay;
  local.tm_hour = parts.nHour;
  local.tm_min = parts.nMinute;
  local.tm_sec = parts.nSecond;
  local.tm_isdst = -1;
  return static_cast<double>(std::mktime(&local)) + parts.nMs / 1000.0;
}

std::string Label(const std::string& strText) {
  std::string str;
  for (const char c : strText) {
    if (c == '\\' || c == '"') str += '\\';
    str += c;
  }
  return str;
}

class Family {
 public:
  Family(std::FILE* pOut, const char* pszName, const char* pszType, const char* pszHelp)
      : m_pOut(pOut), m_pszName(pszName) {
    std::fprintf(pOut, "# HELP %s %s\n# TYPE %s %s\n", pszName, pszHelp, pszName, pszType);
  }
  void Sample(const std::string& strLabels, double dValue) const {
    std::fprintf(m_pOut, "%s%s %.15g\n", m_pszName, strLabels.c_str(), dValue);
  }

 private:
  std::FILE* m_pOut;
  const char* m_pszName;
};

}  // namespace

void Metrics::Count(const Story& story) {
  QueueCounts& queue = counts[ToUtf8(story.strQueue)];
  ++queue.jobs[story.outcome == Outcome::Unknown ? "not_logged" : OutcomeName(story.outcome)];
  if (story.nBytes > 0) queue.ullBytes += static_cast<std::uint64_t>(story.nBytes);
  if ((story.byTwice & kTwiceSentAgain) != 0)
    queue.nSentAgain += story.nReprints > 0 ? static_cast<std::uint64_t>(story.nReprints) : 1;
  if (story.maybeTwice == Tri::Yes) ++queue.nMaybeTwice;
  for (const Phase& phase : story.phases)
    if (phase.kind == Phase::Kind::Wait && phase.llTo > phase.llFrom)
      queue.ullWaitedMs += static_cast<std::uint64_t>(phase.llTo - phase.llFrom);
  queue.llLastJob = std::max(queue.llLastJob, story.llLast);
}

void Metrics::Write(std::FILE* pOut) const {
  const auto byQueue = [&](const char* pszName, const char* pszType, const char* pszHelp,
                           const std::function<double(const QueueCounts&)>& value) {
    const Family family(pOut, pszName, pszType, pszHelp);
    for (const auto& [strQueue, queue] : counts) family.Sample("{queue=\"" + Label(strQueue) + "\"}", value(queue));
  };
  {
    const Family family(pOut, "kelvane_jobs_total", "counter", "Print jobs that ended, by what became of them.");
    for (const auto& [strQueue, queue] : counts)
      for (const auto& [strOutcome, n] : queue.jobs)
        family.Sample("{queue=\"" + Label(strQueue) + "\",outcome=\"" + strOutcome + "\"}", static_cast<double>(n));
  }
  byQueue("kelvane_job_bytes_total", "counter", "Bytes of jobs that ports and printers took.",
          [](const QueueCounts& q) { return static_cast<double>(q.ullBytes); });
  byQueue("kelvane_job_resends_total", "counter", "Times that the monitor sent a job again which the printer had lost.",
          [](const QueueCounts& q) { return static_cast<double>(q.nSentAgain); });
  byQueue("kelvane_jobs_maybe_twice_total", "counter", "Jobs that may stand on paper twice.",
          [](const QueueCounts& q) { return static_cast<double>(q.nMaybeTwice); });
  byQueue("kelvane_job_wait_seconds_total", "counter", "Seconds that jobs waited for a printer that could not print.",
          [](const QueueCounts& q) { return static_cast<double>(q.ullWaitedMs) / 1000; });
  byQueue("kelvane_last_job_timestamp_seconds", "gauge", "When the last job of the queue ended.",
          [](const QueueCounts& q) { return UnixSeconds(q.llLastJob); });
  {
    const Family family(pOut, "kelvane_jobs_in_progress", "gauge", "Jobs whose end the log would show, and does not.");
    for (const auto& [strQueue, queue] : now)
      family.Sample("{queue=\"" + Label(strQueue) + "\"}", static_cast<double>(queue.nInProgress));
  }
  {
    const Family family(pOut, "kelvane_job_in_progress_start_timestamp_seconds", "gauge",
                        "When the oldest job in progress began.");
    for (const auto& [strQueue, queue] : now)
      if (queue.nInProgress != 0) family.Sample("{queue=\"" + Label(strQueue) + "\"}", UnixSeconds(queue.llSince));
  }
  Family(pOut, "kelvane_log_losses_total", "counter", "Times that lines of the log were lost.")
      .Sample("", static_cast<double>(nLostNotes));
  Family(pOut, "kelvane_log_unlisted_jobs", "gauge",
         "Jobs in the log at hand that ended and whose start it does not show.")
      .Sample("", static_cast<double>(nUnlisted));
}

}  // namespace lmctl
