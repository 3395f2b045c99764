// What the log tells of a job: a state machine a process and thread, fed line by line. Pure: no input, no output. It keeps
// the jobs that are under way, nothing else; a story says what the lines prove and names what they do not show.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/lmctl/log_line.h"

namespace lmctl {

enum class Outcome : std::uint8_t { Unknown, Confirmed, Printed, Cancelled, Refused, Failed, Unfinished };
enum class Path : std::uint8_t { Unknown, Device, PortMonitor };
enum class Tri : std::uint8_t { No, Yes, Unknown };

inline constexpr std::int64_t kUnknown = -1;

// Where a line stands.
struct Place {
  std::uint32_t nFile = 0;  // index into the reader's file names
  std::uint64_t nLine = 0;  // 1 = the first
};

// A stretch of a job's time line.
struct Phase {
  enum class Kind : std::uint8_t { Wait, Reprint, Cancel } kind;
  LocalMs llFrom;
  LocalMs llTo;
};

// One sentence of a job's story and the line that it rests on.
struct Event {
  LocalMs llTime;
  Place place;
  std::string strText;
};

// What a story says in numbers.
struct StoryFacts {
  std::int64_t nJob = 0;
  std::uint32_t nProcess = 0;
  LocalMs llStarted = 0;
  LocalMs llEnded = 0;  // 0: unfinished, or not logged
  LocalMs llLast = 0;   // the last line that is about it
  bool bOver = false;
  Path path = Path::Unknown;
  std::int64_t nBytes = kUnknown;
  std::int64_t nWrites = kUnknown;
  Outcome outcome = Outcome::Unknown;
  std::int64_t nError = kUnknown;  // a Win32 code; unknown also where there is none
  bool bErrorNotLogged = false;
  std::int64_t nReprints = kUnknown;
  bool bResponseNotLogged = false;
  Tri maybeTwice = Tri::Unknown;
  bool bInPart = false;     // only a part of it may stand on paper
  bool bLinesLost = false;  // lines of its time are missing from the log
  Place first;
  Place last;
};

struct Story : StoryFacts {
  std::string strQueue;
  std::string strPort;  // empty: not logged
  std::string strReason;
  std::string strResponse;  // empty: none, or not logged
  std::vector<Phase> phases;
  std::vector<Event> events;  // only where they are asked for

  // Names of the members that the levels on disk cannot tell.
  std::vector<std::string> NotLogged() const;
};

const char* OutcomeName(Outcome outcome);  // as the JSON has it

class StoryMachine {
 public:
  using Sink = std::function<void(Story&&)>;
  // bEvents: stories carry their events.
  StoryMachine(Sink sink, bool bEvents);
  ~StoryMachine();
  StoryMachine(const StoryMachine&) = delete;
  StoryMachine& operator=(const StoryMachine&) = delete;

  void Line(const LogLine& line, LocalMs llTime, const Place& place);
  // The log ends here; jobs that are still open become unfinished, or what else their lines prove.
  void End();

  std::size_t OpenJobs() const { return m_jobs.size(); }

 private:
  struct Job;
  using Key = std::uint64_t;

  static Key KeyOf(std::uint32_t nProcess, std::uint32_t nThread) { return Key{nProcess} << 32 | nThread; }
  Job* JobOfThread(const LogLine& line);
  Job* JobOfPort(std::uint32_t nProcess, std::string_view port);
  Job* JobOfId(std::uint32_t nProcess, std::int64_t nJob);
  // The line's thread works for the job from here on.
  void Join(Job& job, const LogLine& line);
  Job& Begin(const LogLine& line, std::string_view queue, std::int64_t nJob);
  void Finish(Job* pJob, bool bOver, LocalMs llEnded);
  void Conclude(Job& job) const;

  void StartLine(const LogLine& line);
  void StartFailure(const LogLine& line);
  void WriteLine(const LogLine& line);
  void DeviceLine(Job& job, const LogLine& line);
  void SendResult(Job& job, std::int64_t nLength, std::int64_t nWritten, std::int64_t nCode);
  void EndSend(Job& job, std::int64_t nLength, std::int64_t nWritten);
  void CloseWrite(Job& job);
  void WaitLine(Job& job, const LogLine& line);
  void ReprintLine(Job& job, const LogLine& line);
  void CancelLine(Job& job, const LogLine& line, bool bWatcher);
  void Refuse(Job& job, std::int64_t nError, std::string strReason);
  void Note(Job& job, std::string strText) const;

  Sink m_sink;
  const bool m_bEvents;
  LocalMs m_llTime = 0;  // of the current line
  Place m_place;
  std::vector<std::unique_ptr<Job>> m_jobs;
  std::unordered_map<Key, Job*> m_threads;  // jobs by the thread of their calls, and by that of their watcher
  // By process: a queue's port as it was opened; empty for a queue with several.
  std::unordered_map<std::uint32_t, std::unordered_map<std::string, std::string>> m_portOfQueue;
};

}  // namespace lmctl
