// lmctl over a log of 1 GB, as a process of its own beside wc. Native only: what is compared is the reading of the log.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "bench/rows.h"
#include "log/level.h"
#include "sim/world.h"

namespace bench {
namespace {

// The log of a receipt that is lost and sent again.
std::string LogOfAJob() {
  sim::World world;
  world.SetLogLevel(LOG_LEVEL_E | LOG_LEVEL_W | LOG_LEVEL_I | LOG_LEVEL_D | LOG_LEVEL_T);
  world.Attach();
  world.AddPrinter("Till", "USB001", "Kelvane HM-520");
  world.spooler.FindQueue("Till")->data["AutoReprint"] = sim::Spooler::Dword(1);
  const HANDLE hPort = world.spooler.OpenPort("USB001", "Till");
  world.spooler.Print(hPort, world.spooler.NewJob("Till", "TEXT"), std::string(20'000, 'x'));
  world.spooler.ClosePort(hPort);
  return sim::World::LogText();
}

struct Cost {
  double dSeconds;
  double dBytes;  // resident, at its peak
};

Cost RunProgram(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  for (const std::string& strArgument : arguments) argv.push_back(const_cast<char*>(strArgument.c_str()));
  argv.push_back(nullptr);
  const auto start = std::chrono::steady_clock::now();
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  int nStatus = 0;
  rusage usage = {};
  wait4(pid, &nStatus, 0, &usage);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  const bool bDone = WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0;
  return {bDone ? elapsed.count() : 1e9, static_cast<double>(usage.ru_maxrss) * 1024};
}

}  // namespace

void ToolRows(Table& table) {
  constexpr char kTime[] = "lmctl jobs over a log of 1 GB";
  constexpr char kMemory[] = "lmctl jobs over a log of 1 GB, memory at its peak";
  if (!table.Wants(kTime) && !table.Wants(kMemory)) return;
  const auto folder = std::filesystem::temp_directory_path() / ("monitor_bench." + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  const std::string strLog = (folder / "20261118.log").string();
  const std::string strJob = LogOfAJob();
  {
    std::ofstream file(strLog, std::ios::binary);
    for (std::size_t n = 0; n < 1'000'000'000; n += strJob.size()) file << strJob;
  }
  const std::string strTool = (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "lmctl").string();
  Cost wc = {1e9, 0}, ours = {1e9, 0};
  for (int nRound = 0; nRound < 3; ++nRound) {
    wc.dSeconds = std::min(wc.dSeconds, RunProgram({"wc", strLog}).dSeconds);
    const Cost cost = RunProgram({strTool, "jobs", "--json", "--log", strLog});
    ours = {std::min(ours.dSeconds, cost.dSeconds), std::max(ours.dBytes, cost.dBytes)};
  }
  std::filesystem::remove_all(folder);
  const double dTimes =
      wc.dSeconds < 1e9 ? ours.dSeconds / wc.dSeconds : 1e9;  // nothing is within a limit that did not run
  table.Add({kTime, "wc", "ns", wc.dSeconds * 1e9, ours.dSeconds * 1e9, dTimes, Goal::TimesAtMost, 5});
  constexpr double kMost = 64 * 1024 * 1024;
  table.Add({kMemory, "64 MiB", "bytes", kMost, ours.dBytes, ours.dBytes / kMost, Goal::TimesAtMost, 1});
}

}  // namespace bench
