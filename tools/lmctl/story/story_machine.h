// Tells jobs out of a log, line by line: which job a line is about, when a job begins and when it is over. Pure: no input, no
// output. It keeps the jobs that are under way, nothing else.
//
// A thread does one call at a time. The first line of a call names what it is about: a job's start its queue and number, a write
// its port, an end the port or its address; the lines behind it on that thread belong to the same call, until another one names
// itself. Numbers of threads, jobs and processes come again, and a thread may serve several ports one after the other. Where lines
// may be of more than one job, those jobs are told so, and claim less.
#pragma once

#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include "tools/lmctl/story/job_course.h"

namespace lmctl {

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

  std::size_t OpenJobs() const;
  // Gives out the story so far of each job that is under way, and whether the log would show its end.
  void ForEachOpen(const std::function<void(const Story& story, bool bEndWouldShow)>& give) const;
  // Ends of jobs whose start no line names: they cannot be listed.
  std::uint64_t Unlisted() const { return m_nUnlisted; }

 private:
  struct Job {
    JobCourse course;
    std::uint32_t nStarter;     // its thread
    std::uint64_t nSerial;      // no two have the same
    std::uint64_t nBefore = 0;  // the job that its thread worked for before: over once this one has gone on
    bool bWatched = false;      // its watcher's first line was seen
    bool bPortKnown = false;    // by a write of its own
    bool bEnded = false;        // on the port monitor: only the report of its last page may follow
    bool bNumberCut = false;    // the line that names it may be cut off
  };
  struct Process;
  struct Thread {
    Job* pJob = nullptr;
    bool bStarting = false;   // in the call that starts it
    bool bWatcher = false;    // its watcher
    bool bOpening = false;    // in a call that opens a port
    std::int64_t nEnded = 0;  // the job that it ended on a port monitor, until its last page is told of
  };

  Process& ProcessOf(std::uint32_t nProcess);
  void LevelSeen(Process& process, const LogLine& line);
  void LinesWereLost();
  // The last line of a process that is gone may be cut off: a number at its end is not proved.
  void EndOfLines(Process& process);
  // The thread's call is about this job from here on.
  void Enter(Process& process, std::uint32_t nThread, Job* pJob);
  Job& Begin(Process& process, const LogLine& line, std::string_view queue, std::int64_t nJob);
  void Finish(Process& process, Job* pJob, bool bOver, LocalMs llEnded);
  // Jobs that this one's going on proves to be over.
  void GoesOn(Process& process, Job& job);
  void Doubt(Process& process, std::string_view port = {});

  Job* OnPort(Process& process, std::string_view port) const;
  Job* ForWrite(Process& process, std::uint32_t nThread, std::string_view port);
  Job* ById(Process& process, std::int64_t nJob, std::string_view port, const Thread& thread) const;

  void StartLine(Process& process, const LogLine& line);
  bool Refusal(Process& process, Step step, const LogLine& line);
  void WriteLine(Process& process, Step step, const LogLine& line);
  void AddressLine(Process& process, const LogLine& line);
  void WatchLine(Process& process, Step step, const LogLine& line);
  void EndLine(Process& process, Step step, const LogLine& line);
  void PortLine(Process& process, Step step, const LogLine& line);

  // Now, unless it may be the end of another start of the job, whose own line is not there.
  LocalMs EndOf(const Job& job) const { return job.course.IsSurelyOwn() ? m_llTime : 0; }
  JobCourse::At Here() const { return {m_llTime, m_place}; }

  Sink m_sink;
  const bool m_bEvents;
  LocalMs m_llTime = 0;  // of the current line
  Place m_place;
  std::uint32_t m_nFile = 0;  // of the call before
  std::uint64_t m_nSerial = 0;
  std::uint32_t m_nLives = 0;
  std::uint64_t m_nUnlisted = 0;
  std::unordered_map<std::uint32_t, std::unique_ptr<Process>> m_processes;
  std::uint32_t m_nLastProcess = 0;  // of the line before, which mostly is the current line's too
  Process* m_pLastProcess = nullptr;
};

}  // namespace lmctl
