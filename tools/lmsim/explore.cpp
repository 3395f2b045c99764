// The exploration: plays a scene again and again, each time in a process of its own that begins where the scene's world is
// built, and each time with another schedule. A schedule is the list of crossings at which the run leaves the way that it
// would take by itself, so the empty one comes first and every run shows which others there are.
#include "tools/lmsim/explore.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "posix/control.h"
#include "tools/lmsim/scene.h"

namespace {

constexpr std::size_t kMostTurns = 6;
constexpr std::size_t kMostCrossings = 20'000;
constexpr std::size_t kMostWays = 16;
constexpr unsigned kMostSeconds = 60;  // of a run: the rest is a hang

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
      str += sim::Format("%s%u.%u", n > 0 ? "+" : "", turns[n].nCrossing, turns[n].nWay);
    if (nFailAt != 0) str += sim::Format("!%u", nFailAt);
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

// What a run leaves behind for the one who started it.
struct Report {
  std::uint32_t nCrossings;
  std::uint32_t nFaultPoints;
  std::uint64_t ullOutcome;
  struct {
    std::uint16_t wWays;      // bit n: way n is worth taking
    std::uint16_t wPreempts;  // bit n: way n takes the turn from somebody
  } crossings[kMostCrossings];
};

// Calls that touch nothing that another thread's step could change or see: whether it comes before or behind them is the same.
bool IsNobodysBusiness(const std::string& strCall) {
  static const std::set<std::string> kCalls = {
      "HeapAlloc",           "GetLocalTime",        "RevertToPrinterSelf", "ImpersonatePrinterClient",
      "OpenPrinterW",        "CreateEventW",        "GetPrinterW",         "GetPrinterDataW",
      "RegOpenKeyExW",       "RegQueryValueExW",    "RegEnumValueW",       "RegOpenCurrentUser",
      "OpenSCManagerW",      "OpenServiceW",        "QueryServiceStatus",  "SystemTimeToFileTime",
      "ReadProcessMemory",   "GetModuleHandleW",    "GetProcAddress",      "XcvDataW",
      "WideCharToMultiByte", "MultiByteToWideChar", "RegOpenKeyExA",       "RegQueryValueExA"};
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
  void At(const w32::Crossing& crossing, std::size_t nWay) {
    Step(crossing.pszThread, crossing.bWaits ? std::string("(waits)") : crossing.pszCall);
    if (nWay == 0) return;
    const w32::Choice& choice = crossing.choices[nWay];
    const char* pszHow = choice.kind == w32::Choice::Kind::Happens    ? "it happens"
                         : choice.kind == w32::Choice::Kind::TimeIsUp ? "its time is up"
                                                                      : "goes on";
    m_strText += sim::Format("\n>> crossing %u: %s stands %s%s; %s: %s", m_nCrossing, crossing.pszThread,
                             crossing.bWaits ? "in " : "before ", crossing.pszCall, choice.pszThread, pszHow);
    m_strThread.clear();
  }
  void Number(unsigned nCrossing) { m_nCrossing = nCrossing; }
  const std::string& Text() const { return m_strText; }

 private:
  void Step(const std::string& strThread, const std::string& strCall) {
    m_strText +=
        strThread != m_strThread ? sim::Format("\n   %-18s %s", strThread.c_str(), strCall.c_str()) : ", " + strCall;
    m_strThread = strThread;
  }
  std::string m_strText;
  std::string m_strThread;
  unsigned m_nCrossing = 0;
};

// One scene's exploration, in a process where its world has just been built.
class Exploration {
 public:
  Exploration(const Scene& scene, Stage& stage, const ExploreOptions& options)
      : m_scene(scene),
        m_stage(stage),
        m_options(options),
        m_nBound(options.nPreemptions >= 0 ? options.nPreemptions
                 : options.bShare          ? scene.nShare
                                           : scene.nPreemptions) {
    const std::size_t nAtOnce = std::max(2u, std::thread::hardware_concurrency() + 1);
    for (std::size_t n = 0; n < nAtOnce; ++n) {
      Slot slot;
      slot.strFolder = w32::SandboxRoot() + "." + std::to_string(n);
      slot.pReport = static_cast<Report*>(
          mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
      m_slots.push_back(slot);
    }
  }
  ~Exploration() {
    std::error_code ignored;
    for (const Slot& slot : m_slots) {
      std::filesystem::remove_all(slot.strFolder, ignored);
      std::filesystem::remove(slot.strFolder + ".out", ignored);
    }
  }
  Exploration(const Exploration&) = delete;
  Exploration& operator=(const Exploration&) = delete;

  int Run() {
    m_waiting.push_back({});
    Work(m_nBound);
    const std::uint64_t ullPlain = m_ullDone;
    const std::size_t nOutcomes = m_outcomes.size();
    std::uint64_t ullFingerprint = 0;
    for (const std::uint64_t ull : m_outcomes) ullFingerprint ^= ull;
    if (m_strFailure.empty() && m_scene.bFaults && !m_options.bShare && m_options.nPreemptions < 0) {
      // One failing call, together with at most one preemption.
      for (std::uint32_t n = 1; n <= m_nMostFaultPoints; ++n) {
        Schedule schedule;
        schedule.nFailAt = n;
        m_waiting.push_back(schedule);
      }
      Work(1);
    }
    std::printf("%-20s %d preemptions: %llu schedules, %zu outcomes (%04x); with a failing call: %llu; %.1f s: %s\n",
                m_scene.pszName, m_nBound, static_cast<unsigned long long>(ullPlain), nOutcomes,
                static_cast<unsigned>(ullFingerprint & 0xFFFF), static_cast<unsigned long long>(m_ullDone - ullPlain),
                Seconds(), m_strFailure.empty() ? "all well" : "FAILED");
    if (m_strFailure.empty()) return 0;
    Shrink();
    std::printf("%s", m_strFailure.c_str());
    std::printf("FAILED, replay: ./run simulate --explore --scene %s --schedule '%s'%s\n", m_scene.pszName,
                m_failed.Text().c_str(),
                m_options.bEveryCall ? " --every-call"
                : m_options.bShare   ? " --share"
                                     : "");
    return 1;
  }

  // One schedule here, told step by step.
  int Show(const Schedule& schedule) {
    const pid_t nChild = fork();
    if (nChild == 0) {
      Prepare(m_slots[0]);
      Play(m_slots[0], schedule, true);
    }
    int nStatus = -1;
    waitpid(nChild, &nStatus, 0);
    std::printf("%s\n", nStatus == 0 ? "all well" : "FAILED");
    return nStatus == 0 ? 0 : 1;
  }

 private:
  struct Slot {
    std::string strFolder;
    Report* pReport = nullptr;
    pid_t nChild = 0;
    Schedule schedule;
    bool bPrepared = false;  // its drives hold what the scene begins with
  };

  void Work(int nBound) {
    std::size_t nRunning = 0;
    while ((!m_waiting.empty() && m_strFailure.empty()) || nRunning > 0) {
      for (Slot& slot : m_slots) {
        if (slot.nChild != 0 || m_waiting.empty() || !m_strFailure.empty()) continue;
        slot.schedule = m_waiting.front();
        m_waiting.pop_front();
        Start(slot);
        ++nRunning;
      }
      int nStatus = -1;
      const pid_t nChild = waitpid(-1, &nStatus, 0);
      const auto it = std::find_if(m_slots.begin(), m_slots.end(), [&](const Slot& s) { return s.nChild == nChild; });
      if (it == m_slots.end()) continue;
      it->nChild = 0;
      --nRunning;
      ++m_ullDone;
      if (nStatus != 0) {
        if (m_strFailure.empty()) {
          m_failed = it->schedule;
          m_strFailure = OutputOf(*it);
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
    m_nMostFaultPoints = std::max(m_nMostFaultPoints, report.nFaultPoints);
    std::size_t nNew = 0;
    const std::uint32_t nBehind = schedule.nTurns == 0 ? 0 : schedule.turns[schedule.nTurns - 1].nCrossing + 1;
    for (std::uint32_t n = nBehind; schedule.nTurns < kMostTurns && n < report.nCrossings; ++n) {
      for (std::uint32_t nWay = 1; nWay < kMostWays; ++nWay) {
        if ((report.crossings[n].wWays >> nWay & 1) == 0) continue;
        const bool bPreempts = (report.crossings[n].wPreempts >> nWay & 1) != 0;
        if (schedule.nPreemptions + (bPreempts ? 1 : 0) > nBound) continue;
        m_waiting.push_back(schedule.With({n, nWay}, bPreempts));
        ++nNew;
      }
    }
    auto& level = m_levels[schedule.nTurns];
    ++level.ullDone;
    level.ullChildren += nNew;
  }

  void Prepare(Slot& slot) {
    if (slot.bPrepared && !m_scene.bFiles) return;
    slot.bPrepared = true;
    std::error_code ignored;
    std::filesystem::remove_all(slot.strFolder, ignored);
    std::filesystem::copy(w32::SandboxRoot(), slot.strFolder,
                          std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks,
                          ignored);
  }

  void Start(Slot& slot) {
    Prepare(slot);
    std::fflush(stdout);
    slot.nChild = fork();
    if (slot.nChild != 0) return;
    const int nOutput = open((slot.strFolder + ".out").c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    dup2(nOutput, STDOUT_FILENO);
    dup2(nOutput, STDERR_FILENO);
    Play(slot, slot.schedule, false);
  }

  [[noreturn]] void Play(Slot& slot, const Schedule& schedule, bool bShow) {
    w32::UseSandbox(slot.strFolder);
    alarm(kMostSeconds);
    Report& report = *slot.pReport;
    report.nCrossings = 0;
    Narration narration;
    std::size_t nNextTurn = 0;
    bool bBegun = !m_options.bShare || m_scene.pszShareFrom == nullptr;
    w32::ExploreBy([&](const w32::Crossing& crossing) -> std::size_t {
      const std::string strCall = crossing.pszCall;
      const bool bNobodys = !crossing.bWaits && !m_options.bEveryCall && IsNobodysBusiness(strCall);
      const bool bAffected =
          m_options.bEveryCall || (!crossing.bWaits && std::find(m_scene.affected.begin(), m_scene.affected.end(),
                                                                 strCall) != m_scene.affected.end());
      bBegun = bBegun || strCall == m_scene.pszShareFrom;
      unsigned nWays = 0, nPreempts = 0;
      for (std::size_t n = 1; n < crossing.choices.size(); ++n) {
        const w32::Choice& choice = crossing.choices[n];
        const bool bWorth = choice.kind == w32::Choice::Kind::Happens ? bAffected : !(choice.bPreempts && bNobodys);
        if (bWorth && bBegun) nWays |= 1u << n;
        if (choice.bPreempts) nPreempts |= 1u << n;
      }
      std::size_t nWay = 0;
      if (nWays != 0) {
        if (report.nCrossings == kMostCrossings) {
          std::printf("the scene has more crossings than can be explored\n");
          std::fflush(stdout);
          _exit(1);
        }
        const std::uint32_t n = report.nCrossings++;
        report.crossings[n] = {static_cast<std::uint16_t>(nWays), static_cast<std::uint16_t>(nPreempts)};
        narration.Number(n);
        if (nNextTurn < schedule.nTurns && schedule.turns[nNextTurn].nCrossing == n)
          nWay = schedule.turns[nNextTurn++].nWay;
        if (nWay >= crossing.choices.size()) nWay = 0;
      }
      if (bShow) narration.At(crossing, nWay);
      return nWay;
    });
    w32::ResetFaults();
    if (schedule.nFailAt != 0) w32::FailPoint(schedule.nFailAt);
    m_scene.pfnPlay(m_stage);
    m_stage.Play();
    report.nFaultPoints = static_cast<std::uint32_t>(w32::FaultPointsPassed());
    const std::string strFailed = w32::LastFailedApi();
    w32::ResetFaults();
    if (m_scene.pfnCheck != nullptr && schedule.nFailAt == 0) m_scene.pfnCheck(m_stage);
    report.ullOutcome = HashOf(m_stage.Outcome());
    if (bShow) {
      std::printf("%s\n\n", narration.Text().c_str());
      for (const std::string& strEntry : m_stage.World().journal.Entries()) std::printf("   %s\n", strEntry.c_str());
      if (schedule.nFailAt != 0) std::printf("   (%s failed)\n", strFailed.c_str());
    }
    m_stage.Finish(schedule.nFailAt != 0);
    std::fflush(stdout);
    _exit(m_stage.verdict.AllWell() ? 0 : 1);
  }

  static std::string OutputOf(const Slot& slot) {
    std::ifstream output(slot.strFolder + ".out");
    return {std::istreambuf_iterator<char>(output), {}};
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
      int nStatus = 0;
      waitpid(slot.nChild, &nStatus, 0);
      slot.nChild = 0;
      if (nStatus == 0) continue;
      m_failed = fewer;
      m_strFailure = OutputOf(slot);
    }
  }

  double Seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_begin).count(); }

  // What is left is what waits, and what each of them will bring by what its like have brought.
  void Progress() {
    const auto now = std::chrono::steady_clock::now();
    if (isatty(STDERR_FILENO) == 0 || now - m_shown < std::chrono::milliseconds(500)) return;
    m_shown = now;
    std::array<double, kMostTurns + 2> dOne{};
    for (std::size_t n = kMostTurns + 1; n-- > 0;) {
      const auto& level = m_levels[n];
      dOne[n] =
          1 + (level.ullDone > 0 ? static_cast<double>(level.ullChildren) / static_cast<double>(level.ullDone) : 0) *
                  dOne[n + 1];
    }
    double dLeft = 0;
    for (const Schedule& schedule : m_waiting) dLeft += dOne[schedule.nTurns];
    const double dRate = static_cast<double>(m_ullDone) / std::max(0.001, Seconds());
    std::fprintf(stderr, "\r%s: %llu schedules, %.0f a second, about %.0f s left    ", m_scene.pszName,
                 static_cast<unsigned long long>(m_ullDone), dRate, dLeft / dRate);
  }

  struct Level {
    std::uint64_t ullDone = 0;
    std::uint64_t ullChildren = 0;
  };

  const Scene& m_scene;
  Stage& m_stage;
  const ExploreOptions& m_options;
  const int m_nBound;
  std::vector<Slot> m_slots;
  std::deque<Schedule> m_waiting;
  std::array<Level, kMostTurns + 2> m_levels{};
  std::set<std::uint64_t> m_outcomes;
  std::uint32_t m_nMostFaultPoints = 0;
  std::uint64_t m_ullDone = 0;
  Schedule m_failed;
  std::string m_strFailure;
  const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point m_shown;
};

// A scene in a process of its own: log, archive and world are the process's.
int ExploreScene(const Scene& scene, const ExploreOptions& options) {
  std::fflush(stdout);
  const pid_t nChild = fork();
  if (nChild == 0) {
    int nStatus = 0;
    {
      Stage stage;
      scene.pfnBuild(stage);
      Exploration exploration(scene, stage, options);
      nStatus =
          options.strSchedule.empty() ? exploration.Run() : exploration.Show(Schedule::Parse(options.strSchedule));
    }
    std::fflush(stdout);
    _exit(nStatus);
  }
  int nStatus = -1;
  waitpid(nChild, &nStatus, 0);
  return nStatus == 0 ? 0 : 1;
}

}  // namespace

int Explore(const ExploreOptions& options) {
  int nStatus = 0;
  std::size_t nScenes = 0;
  for (const Scene& scene : AllScenes()) {
    if (!options.strScene.empty() && options.strScene != scene.pszName) continue;
    ++nScenes;
    if (ExploreScene(scene, options) != 0) nStatus = 1;
  }
  if (nScenes == 0) {
    std::fprintf(stderr, "no scene of this name; there are:\n");
    for (const Scene& scene : AllScenes()) std::fprintf(stderr, "  %-22s %s\n", scene.pszName, scene.pszWhat);
    return 2;
  }
  std::printf("%zu scenes, %s\n", nScenes, nStatus == 0 ? "all well" : "FAILED");
  return nStatus;
}
