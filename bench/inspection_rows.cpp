// Inspection of job data for real-time commands.
#include <cstring>
#include <random>

#include "bench/rows.h"
#include "monitor/stream_inspect.h"
#include "sim/world.h"

namespace bench {
namespace {

constexpr std::size_t kBuffer = 64 * 1024;

using Bytes = std::vector<BYTE>;

volatile std::size_t g_nSink;

Bytes Text(std::size_t cb) {
  Bytes bytes(cb);
  for (std::size_t n = 0; n < cb; ++n) bytes[n] = n % 42 == 41 ? BYTE{'\n'} : static_cast<BYTE>(' ' + n * 7 % 90);
  return bytes;
}

Bytes Repeated(const std::string& strPart) {
  Bytes bytes;
  while (bytes.size() < kBuffer) bytes.insert(bytes.end(), strPart.begin(), strPart.end());
  bytes.resize(kBuffer);
  return bytes;
}

// A job as the data path hands it over.
struct Port {
  Port() { port.pIniJob = &job; }
  void Inspect(Bytes& bytes) { CheckRealCmd(&port, bytes.data(), static_cast<DWORD>(bytes.size())); }
  IniJob job = {};
  IniPort port = {};
};

void Search(const Bytes& bytes, int n) { g_nSink = std::memchr(bytes.data(), n, bytes.size()) != nullptr; }

}  // namespace

void InspectionRows(Table& table) {
  sim::World world;
  world.SetLogLevel(0);
  world.Attach();
  Port port;
  Bytes text = Text(kBuffer);
  table.Time(
      "stream inspection, 64 KiB of receipt text", "two memchr passes over the same bytes", Goal::SpeedAtLeast, 0.7,
      [&] {
        Search(text, 0x10);
        Search(text, 0x13);
      },
      [&] { port.Inspect(text); });
  Bytes large = Text(64 * 1024 * 1024);
  table.Time(
      "stream inspection, 64 MiB", "one memchr pass over the same bytes", Goal::SpeedAtLeast, 0.6,
      [&] { Search(large, 0x10); }, [&] { port.Inspect(large); });

  std::mt19937 random(1);
  Bytes graphics(kBuffer);
  for (BYTE& by : graphics) by = static_cast<BYTE>(random());
  const auto against = [&](const char* pszWhat, Bytes bytes, double dGoal) {
    const volatile BYTE* const pBytes = bytes.data();
    table.Time(
        pszWhat, "a look at each byte, one at a time", Goal::SpeedAtLeast, dGoal,
        [&] {
          for (std::size_t n = 0; n < kBuffer; ++n) g_nSink = pBytes[n];
        },
        [&] { port.Inspect(bytes); });
  };
  against("stream inspection, random bytes (raster graphics)", graphics, 1);
  against("stream inspection, all 13h", Repeated("\x13"), 0.33);
  against("stream inspection, all 10h", Repeated("\x10"), 0.33);
  against("stream inspection, the longest command repeated", Repeated("\x13(reset\x13reset"), 0.33);
}

}  // namespace bench
