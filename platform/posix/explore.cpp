// The exploration: plays again and again, each time in a process of its own that begins where this one stands, and each time
// with another schedule. A schedule is the list of crossings at which the run leaves the way that it would take by itself, so
// the empty one comes first and every run shows which others there are.
#include "explore.h"

#include <malloc.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <set>
#include <thread>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "control.h"
#include "forked_run.h"
#include "progress_line.h"
#include "scheduler.h"

namespace w32 {
namespace {

constexpr std::size_t kMostTurns = 6;
constexpr std::size_t kMostCrossings = 20'000;
constexpr std::size_t kMostWays = 16;
constexpr std::size_t kMostTouches = 4'096;
constexpr std::uint64_t kNothing = ~std::uint64_t{0};  // in place of what a call touches
constexpr unsigned kMostSeconds = 60;                  // of a run: the rest is a hang

struct Turn {
  std::uint32_t nCrossing = 0;
  std::uint32_t nWay = 0;
};

struct Schedule {
  std::uint32_t nFailAt = 0;  // fault point that fails; 0: none
  std::uint8_t nTurns = 0;
  std::uint8_t nPreemptions = 0;
  std::array<Turn, kMostTurns> turns;

  Schedule With(Turn turn, bool bPreempts) const {
    Schedule next = *this;
    next.turns[next.nTurns++] = turn;
    next.nPreemptions = static_cast<std::uint8_t>(nPreemptions + (bPreempts ? 1 : 0));
    return next;
  }
  // "12.1+40.2!7": at crossing 12 way 1, at crossing 40 way 2; fault point 7 fails.
  std::string Text() const {
    std::string str;
    for (std::size_t n = 0; n < nTurns; ++n)
      str.append(n > 0 ? "+" : "")
          .append(std::to_string(turns[n].nCrossing))
          .append(".")
          .append(std::to_string(turns[n].nWay));
    if (nFailAt != 0) str.append("!").append(std::to_string(nFailAt));
    return str.empty() ? "0.0" : str;
  }
  static Schedule Parse(const std::string& strText) {
    Schedule schedule;
    const char* psz = strText.c_str();
    for (char* pszEnd = nullptr; *psz != 0 && *psz != '!' && schedule.nTurns < kMostTurns;
         psz = *pszEnd == '+' ? pszEnd + 1 : pszEnd) {
      Turn turn;
      turn.nCrossing = static_cast<std::uint32_t>(std::strtoul(psz, &pszEnd, 10));
      turn.nWay = *pszEnd == '.' ? static_cast<std::uint32_t>(std::strtoul(pszEnd + 1, &pszEnd, 10)) : 0;
      if (pszEnd == psz) break;
      schedule.turns[schedule.nTurns++] = turn;
    }
    if (*psz == '!') schedule.nFailAt = static_cast<std::uint32_t>(std::strtoul(psz + 1, nullptr, 10));
    return schedule;
  }
};

// A thread touches something that threads may share.
struct Touch {
  std::uint64_t ullThread = 0;  // hash of its name
  Touched touched;
};

// What a run leaves behind for the one who started it.
struct Report {
  std::uint32_t nCrossings;
  std::uint32_t nTouches;
  std::uint32_t nFaultPointsBefore;  // those before the part that is explored
  std::uint32_t nFaultPoints;
  std::uint64_t ullOutcome;
  struct {
    std::uint32_t nNumber;
    std::uint16_t wWays;      // bit n: way n is worth taking
    std::uint16_t wPreempts;  // bit n: way n takes the turn from somebody
    Touch touch;
  } crossings[kMostCrossings];
  Touch touches[kMostTouches];
};

// Who touches what, in all runs so far. What one thread alone touches is nobody's business: whether another goes before such
// a call or behind it is the same, since the next call that somebody else could notice is a place of its own.
class Sharing {
 public:
  // Returns whether that makes something shared that was not.
  bool Learn(const Touch& touch) {
    Uses& uses = m_uses[touch.touched.ullWhat];
    Use& use = uses[touch.ullThread];
    bool& bKnown = touch.touched.bReads ? use.bReads : use.bWrites;
    if (std::exchange(bKnown, true)) return false;
    return std::any_of(uses.begin(), uses.end(), [&](const auto& other) {
      return other.first != touch.ullThread && (other.second.bWrites || !touch.touched.bReads);
    });
  }
  bool IsShared(const Touch& touch) const {
    if (touch.touched.ullWhat == 0) return true;
    if (touch.touched.ullWhat == kNothing) return false;
    const auto it = m_uses.find(touch.touched.ullWhat);
    return it != m_uses.end() && std::any_of(it->second.begin(), it->second.end(), [&](const auto& other) {
             return other.first != touch.ullThread && (other.second.bWrites || !touch.touched.bReads);
           });
  }

 private:
  struct Use {
    bool bReads = false;
    bool bWrites = false;
  };
  using Uses = std::map<std::uint64_t, Use>;
  std::unordered_map<std::uint64_t, Uses> m_uses;
};

// Calls that touch nothing that another thread's step could change or see: whether it comes before or behind them is the same.
bool IsNobodysBusiness(const std::string& strCall) {
  static const std::set<std::string> kCalls = {"HeapAlloc",
                                               "GetLocalTime",
                                               "RevertToPrinterSelf",
                                               "ImpersonatePrinterClient",
                                               "OpenPrinterW",
                                               "CreateEventW",
                                               "GetPrinterW",
                                               "GetPrinterDataW",
                                               "RegOpenKeyExW",
                                               "RegQueryValueExW",
                                               "RegEnumValueW",
                                               "RegOpenCurrentUser",
                                               "OpenSCManagerW",
                                               "OpenServiceW",
                                               "QueryServiceStatus",
                                               "SystemTimeToFileTime",
                                               "ReadProcessMemory",
                                               "GetModuleHandleW",
                                               "GetProcAddress",
                                               "XcvDataW",
                                               "WideCharToMultiByte",
                                               "MultiByteToWideChar",
                                               "RegOpenKeyExA",
                                               "RegQueryValueExA",
                                               "Sleep",
                                               "GetFullPathNameW",
                                               "OpenThreadToken",
                                               "(set)",
                                               "(reset)"};
  return kCalls.contains(strCall);
}

std::uint64_t HashOf(const std::string& strText) {
  std::uint64_t ull = 1469598103934665603u;  // FNV-1a
  for (const char c : strText) ull = (ull ^ static_cast<unsigned char>(c)) * 1099511628211u;
  return ull;
}

// The steps of one run, told to people.
class Narration {
 public:
  void At(const Crossing& crossing, std::size_t nWay) {
    Step(crossing.pszThread, crossing.bWaits ? std::string("(waits)") : crossing.pszCall);
    if (nWay == 0) return;
    const Choice& choice = crossing.choices[nWay];
    const char* pszHow = choice.kind == Choice::Kind::Happens    ? "it happens"
                         : choice.kind == Choice::Kind::TimeIsUp ? "its time is up"
                                                                 : "goes on";
    m_strText.append("\n>> crossing ").append(std::to_string(m_nCrossing)).append(": ").append(crossing.pszThread);
    m_strText.append(crossing.bWaits ? " stands in " : " stands before ").append(crossing.pszCall);
    m_strText.append("; ").append(choice.pszThread).append(": ").append(pszHow);
    m_strThread.clear();
  }
  void Number(unsigned nCrossing) { m_nCrossing = nCrossing; }
  const std::string& Text() const { return m_strText; }

 private:
  void Step(const std::string& strThread, const std::string& strCall) {
    if (strThread != m_strThread) {
      m_strText.append("\n   ").append(strThread).append(
          std::string(strThread.size() < 18 ? 18 - strThread.size() : 0, ' '));
    } else {
      m_strText += ",";
    }
    m_strText.append(" ").append(strCall);
    m_strThread = strThread;
  }
  std::string m_strText;
  std::string m_strThread;
  unsigned m_nCrossing = 0;
};

class Exploration {
 public:
  explicit Exploration(const Exploring& what) : m_what(what), m_progress(what.strName + ", schedules") {
    mallopt(M_ARENA_MAX, 1);  // a run's threads take turns: one arena spares each of them the making of its own
    for (std::size_t n = 0; n < 2 * std::size_t{m_nProcessors}; ++n) m_slots.emplace_back(n);
  }

  Explored Run() {
    Explored explored;
    explored.ullSchedules = Deepen(m_what.nPreemptions, false);
    explored.nOutcomes = m_outcomes.size();
    for (const std::uint64_t ull : m_outcomes) explored.ullFingerprint ^= ull;
    explored.ullWithFailingCall = Deepen(m_what.nPreemptionsWithFault, true);
    explored.dSeconds = m_progress.Seconds();
    if (m_bFailed) {
      Shrink();
      explored.strFailed = m_failed.Text();
      explored.strFailure = m_strFailure;
    }
    return explored;
  }

  // One schedule here, told step by step.
  bool Show(const Schedule& schedule) {
    Slot& slot = m_slots[0];
    slot.run.FreshDrives();
    slot.run.Start([&] { return Play(slot, schedule, true); }, false);
    return slot.run.Wait() == 0;
  }

 private:
  struct Slot {
    explicit Slot(std::size_t n)
        : nProcessor(n),
          run(std::to_string(n)),
          pReport(static_cast<Report*>(
              mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    std::size_t nProcessor;  // counted on beyond the last
    ForkedRun run;
    Report* pReport;  // lives as long as the process
    Schedule schedule;
    bool bPrepared = false;  // its drives hold what the runs begin with
  };

  // Everything within the bound, the nearer first; and again when it has come out that more is shared than was known.
  // Returns the schedules of the last round.
  std::uint64_t Deepen(int nMost, bool bFails) {
    std::uint64_t ullRound = 0;
    for (int nBound = 0; nBound <= nMost && !m_bFailed;) {
      const std::uint64_t ullBefore = m_ullDone;
      m_bLearned = false;
      m_levels = {};
      for (std::uint32_t n = bFails ? m_nFaultPointsBefore + 1 : 0; n <= (bFails ? m_nMostFaultPoints : 0); ++n) {
        Schedule schedule;
        schedule.nFailAt = n;
        m_waiting.push_back(schedule);
      }
      Work(nBound);
      ullRound = m_ullDone - ullBefore;
      if (!m_bLearned) ++nBound;
    }
    return ullRound;
  }

  void Work(int nBound) {
    std::size_t nRunning = 0;
    while ((!m_waiting.empty() && !m_bFailed) || nRunning > 0) {
      for (Slot& slot : m_slots) {
        if (slot.run.IsRunning() || m_waiting.empty() || m_bFailed) continue;
        slot.schedule = m_waiting.front();
        m_waiting.pop_front();
        Start(slot);
        ++nRunning;
      }
      int nStatus = -1;
      const pid_t nChild = waitpid(-1, &nStatus, 0);
      const auto it = std::find_if(m_slots.begin(), m_slots.end(), [&](Slot& slot) { return slot.run.Ended(nChild); });
      if (it == m_slots.end()) continue;
      --nRunning;
      ++m_ullDone;
      if (nStatus != 0) {
        if (!m_bFailed) {
          m_bFailed = true;
          m_failed = it->schedule;
          m_strFailure = it->run.Output();
        }
        continue;
      }
      Expand(*it, nBound);
      Progress();
    }
    m_waiting.clear();
  }

  void Expand(const Slot& slot, int nBound) {
    const Report& report = *slot.pReport;
    const Schedule& schedule = slot.schedule;
    m_outcomes.insert(report.ullOutcome);
    m_nFaultPointsBefore = report.nFaultPointsBefore;  // nobody interferes before: the same in every run
    m_nMostFaultPoints = std::max(m_nMostFaultPoints, report.nFaultPoints);
    for (std::uint32_t n = 0; n < report.nTouches; ++n) m_bLearned = m_sharing.Learn(report.touches[n]) || m_bLearned;
    std::size_t nNew = 0;
    const std::uint32_t nBehind = schedule.nTurns == 0 ? 0 : schedule.turns[schedule.nTurns - 1].nCrossing + 1;
    for (std::uint32_t n = 0; schedule.nTurns < kMostTurns && n < report.nCrossings; ++n) {
      const auto& crossing = report.crossings[n];
      if (crossing.nNumber < nBehind) continue;
      const bool bShared = m_what.bEveryCall || m_sharing.IsShared(crossing.touch);
      for (std::uint32_t nWay = 1; nWay < kMostWays; ++nWay) {
        if ((crossing.wWays >> nWay & 1) == 0) continue;
        const bool bPreempts = (crossing.wPreempts >> nWay & 1) != 0;
        if (bPreempts && (!bShared || schedule.nPreemptions >= nBound)) continue;
        m_waiting.push_back(schedule.With({crossing.nNumber, nWay}, bPreempts));
        ++nNew;
      }
    }
    auto& level = m_levels[schedule.nTurns];
    ++level.ullDone;
    level.ullChildren += nNew;
  }

  void Start(Slot& slot) {
    if (!slot.bPrepared || m_what.bFreshDrives) slot.run.FreshDrives();
    slot.bPrepared = true;
    slot.run.Start([&] { return Play(slot, slot.schedule, false); });
  }

  // In the child.
  bool Play(Slot& slot, const Schedule& schedule, bool bShow) {
    alarm(kMostSeconds);
    StayOn(slot.nProcessor);
    Report& report = *slot.pReport;
    report.nCrossings = 0;
    report.nFaultPointsBefore = 0;
    std::set<std::tuple<std::uint64_t, std::uint64_t, bool>> touches;
    std::map<const char*, std::uint32_t> last;  // each thread's last one in the report
    std::uint32_t nCrossing = 0;                // numbers are the run's own, whatever is left out
    Narration narration;
    std::size_t nNextTurn = 0;
    bool bBegun = m_what.strFrom.empty();
    ExploreBy([&](const Crossing& crossing) -> std::size_t {
      const std::string strCall = crossing.pszCall;
      const bool bNobodys = !crossing.bWaits && !m_what.bEveryCall && IsNobodysBusiness(strCall);
      if (const auto it = last.find(crossing.pszThread); crossing.bNoted && it != last.end())
        report.crossings[it->second].touch = {};
      last.erase(crossing.pszThread);
      const bool bAffected = m_what.bEveryCall ||
                             (!crossing.bWaits && std::find(m_what.affected.begin(), m_what.affected.end(), strCall) !=
                                                      m_what.affected.end());
      if (!bBegun && strCall == m_what.strFrom) {
        bBegun = true;
        report.nFaultPointsBefore = static_cast<std::uint32_t>(FaultPointsPassed());
      }
      unsigned nWays = 0, nPreempts = 0;
      for (std::size_t n = 1; n < crossing.choices.size(); ++n) {
        const Choice& choice = crossing.choices[n];
        const bool bWorth = choice.kind != Choice::Kind::Happens || bAffected;
        if (bWorth && bBegun) nWays |= 1u << n;
        if (choice.bPreempts) nPreempts |= 1u << n;
      }
      Touch touch = {HashOf(crossing.pszThread), crossing.touched};
      if (bNobodys) touch.touched.ullWhat = kNothing;
      if (!crossing.bWaits && !bNobodys && touch.touched.ullWhat != 0)
        touches.insert({touch.touched.ullWhat, touch.ullThread, touch.touched.bReads});
      std::size_t nWay = 0;
      const std::uint32_t nNumber = nCrossing++;
      if (nNextTurn < schedule.nTurns && schedule.turns[nNextTurn].nCrossing == nNumber)
        nWay = schedule.turns[nNextTurn++].nWay;
      if (nWay >= crossing.choices.size()) nWay = 0;
      if (nWays != 0) {
        if (report.nCrossings == kMostCrossings) {
          std::printf("the scene has more crossings than can be explored\n");
          std::fflush(stdout);
          _exit(1);
        }
        last[crossing.pszThread] = report.nCrossings;
        report.crossings[report.nCrossings++] = {nNumber, static_cast<std::uint16_t>(nWays),
                                                 static_cast<std::uint16_t>(nPreempts), touch};
      }
      narration.Number(nNumber);
      if (bShow) narration.At(crossing, nWay);
      return nWay;
    });
    ResetFaults();
    if (schedule.nFailAt != 0) FailPoint(schedule.nFailAt);
    m_what.play();
    if (!bBegun && schedule.nTurns == 0 && schedule.nFailAt == 0) {
      std::printf("no call is %s, with which the exploration begins\n", m_what.strFrom.c_str());
      std::fflush(stdout);
      _exit(1);
    }
    report.nFaultPoints = static_cast<std::uint32_t>(FaultPointsPassed());
    if (bShow) std::printf("%s\n\n", narration.Text().c_str());
    if (bShow && schedule.nFailAt != 0) std::printf("   (%s failed)\n", LastFailedApi().c_str());
    ResetFaults();
    report.ullOutcome = HashOf(m_what.outcome());
    report.nTouches = 0;
    if (touches.size() > kMostTouches) Unsupported("an exploration of so many locks and events");
    for (const auto& [ullWhat, ullThread, bReads] : touches)
      report.touches[report.nTouches++] = {ullThread, {ullWhat, bReads}};
    return m_what.finish(schedule.nFailAt != 0, bShow);
  }

  // A run's threads take turns: on one processor the next finds what it needs in its cache.
  void StayOn(std::size_t nProcessor) const {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(nProcessor % m_nProcessors, &set);
    sched_setaffinity(0, sizeof(set), &set);  // refused: it goes on anywhere
  }

  // Leaves out turns as long as it fails all the same.
  void Shrink() {
    for (std::size_t n = m_failed.nTurns; n-- > 0;) {
      Schedule fewer = m_failed;
      std::copy(fewer.turns.begin() + static_cast<std::ptrdiff_t>(n) + 1, fewer.turns.begin() + fewer.nTurns,
                fewer.turns.begin() + static_cast<std::ptrdiff_t>(n));
      --fewer.nTurns;
      Slot& slot = m_slots[0];
      slot.schedule = fewer;
      Start(slot);
      if (slot.run.Wait() == 0) continue;
      m_failed = fewer;
      m_strFailure = slot.run.Output();
    }
  }

  // What is left is what waits, and what each of them will bring by what its like have brought.
  void Progress() {
    if (!m_progress.IsDue()) return;
    std::array<double, kMostTurns + 2> dOne{};
    for (std::size_t n = kMostTurns + 1; n-- > 0;) {
      const auto& level = m_levels[n];
      dOne[n] =
          1 + (level.ullDone > 0 ? static_cast<double>(level.ullChildren) / static_cast<double>(level.ullDone) : 0) *
                  dOne[n + 1];
    }
    double dLeft = 0;
    for (const Schedule& schedule : m_waiting) dLeft += dOne[schedule.nTurns];
    m_progress.Show(m_ullDone, dLeft);
  }

  struct Level {
    std::uint64_t ullDone = 0;
    std::uint64_t ullChildren = 0;
  };

  const Exploring& m_what;
  const unsigned m_nProcessors = std::max(1u, std::thread::hardware_concurrency());
  std::vector<Slot> m_slots;
  std::deque<Schedule> m_waiting;
  std::array<Level, kMostTurns + 2> m_levels{};
  std::set<std::uint64_t> m_outcomes;
  std::uint32_t m_nFaultPointsBefore = 0;
  std::uint32_t m_nMostFaultPoints = 0;
  std::uint64_t m_ullDone = 0;
  Schedule m_failed;
  bool m_bFailed = false;
  Sharing m_sharing;
  bool m_bLearned = false;   // in this round: some of its schedules were left out that should not have been
  std::string m_strFailure;  // what the failed run printed
  ProgressLine m_progress;
};

}  // namespace

Explored Explore(const Exploring& what) { return Exploration(what).Run(); }

bool ShowSchedule(const Exploring& what, const std::string& strSchedule) {
  return Exploration(what).Show(Schedule::Parse(strSchedule));
}

}  // namespace w32
