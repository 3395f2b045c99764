// What the tests share: a world with the monitor attached, and the check that a test leaves nothing open.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "sim/side_thread.h"
#include "sim/world.h"

#ifndef _WIN32
#include "posix/control.h"
#endif

namespace testing_support {

using sim::Receipt;
using sim::SideThread;

constexpr char kModel[] = "Kelvane HM-520";  // eight-byte statuses
constexpr char kOneByteModel[] = "Kelvane Tagline 62";
constexpr char kFlagModel[] = "Kelvane PX-9";  // keeps its archive settings in "LogSettingFlags"
constexpr char kUnknownModel[] = "Somebody's Laser";

// Print options that do something each time when so many bytes of the job were taken.
sim::PrintOptions AtByte(std::uint64_t ullDone, std::function<void()> act, DWORD cbChunk = 0);

bool Exists(const std::string& strPath);

class WorldTest : public ::testing::Test {
 protected:
  WorldTest();
  ~WorldTest() override;

  // Closes the ports that are still open, looks for what else is and for broken rules. The test's end does it too.
  void EndWorld();

  // Stays open until the test closes it or ends.
  HANDLE Open(const std::string& strPort, const std::string& strQueue = "Till") {
    return world().spooler.OpenPort(strPort, strQueue);
  }
  // One job from start to end on an open port.
  sim::PrintResult PrintOn(HANDLE hPort, const std::string& strData, const std::string& strDatatype = "RAW",
                           const sim::PrintOptions& options = {}, const std::string& strQueue = "Till");
  DWORD LastJob() const { return m_dwLastJob; }
  sim::World& world() { return *m_world; }

 private:
#ifndef _WIN32
  w32::Balance m_before;
#endif
  std::optional<sim::World> m_world;
  DWORD m_dwLastJob = 0;
};

#ifndef _WIN32
// Runs a scenario once and counts its fault points, then once for each with that call failing. Every run must end and
// leave nothing open. Each run has a fresh world with the monitor attached, on the machine that is set up without faults.
// Returns the number of points. With all levels three points of four are the log's file calls, the same ones for each line; with errors alone they are few.
constexpr DWORD kAllLevels = 0x596;
constexpr DWORD kErrorsAlone = 0x002;
using Scenario = std::function<void(sim::World&)>;
std::uint64_t FailEveryCall(DWORD dwLogLevels, const Scenario& machine, const Scenario& scenario);
#endif

}  // namespace testing_support
