// What the hot paths cost. Compare rows of one run with each other: memcpy is the yardstick.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "log/log.h"
#include "monitor/stream_inspect.h"
#include "sim/world.h"

namespace {

constexpr std::size_t kBytes = 64 * 1024;

void CopyBytes(benchmark::State& state) {
  std::vector<BYTE> from(kBytes, 'x');
  std::vector<BYTE> to(kBytes);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), kBytes);
    benchmark::DoNotOptimize(to.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kBytes));
}
BENCHMARK(CopyBytes);

void CheckRealCmdOverText(benchmark::State& state) {
  IniJob job = {};
  IniPort port = {};
  port.pIniJob = &job;
  std::vector<BYTE> bytes(kBytes, 'x');
  for (auto _ : state) CheckRealCmd(&port, bytes.data(), kBytes);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kBytes));
}
BENCHMARK(CheckRealCmdOverText);

void LogCallSwitchedOff(benchmark::State& state) {
  sim::World::SetLogLevel(0);
  for (auto _ : state) OutputLogEx(LOG_LEVEL_T, nullptr, "Routine", "file", 1, 2, 3, L"%s %d", L"text", 4);
}
BENCHMARK(LogCallSwitchedOff);

void WriteThroughThePortMonitor(benchmark::State& state) {
  sim::World world;
  world.SetLogLevel(0);
  world.services.dwState = SERVICE_STOPPED;
  world.Attach();
  world.AddPrinter("Till", "COM1", "Kelvane HM-520");
  world.portMonitor.Port("COM1").pPrinter = nullptr;
  const HANDLE hPort = world.spooler.OpenPort("COM1", "Till");
  world.spooler.StartDoc(hPort, world.spooler.NewJob("Till", "TEXT"));
  std::vector<BYTE> bytes(kBytes, 'x');
  for (auto _ : state) {
    const sim::ActAsClient client;
    DWORD cbWritten = 0;
    world.spooler.pMonitor->pfnWritePort(hPort, bytes.data(), kBytes, &cbWritten);
    world.portMonitor.Port("COM1").strDelivered.clear();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kBytes));
  world.spooler.EndDoc(hPort);
  world.spooler.ClosePort(hPort);
}
BENCHMARK(WriteThroughThePortMonitor);

}  // namespace
