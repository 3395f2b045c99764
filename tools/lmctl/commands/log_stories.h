// The log's stories for the commands: read, and chosen as the options say.
#pragma once

#include <string>
#include <vector>

#include "tools/lmctl/commands/commands.h"
#include "tools/lmctl/log/log_reader.h"
#include "tools/lmctl/story/story_machine.h"

namespace lmctl {

LocalMs Now();  // local time of this machine

// Which jobs the options name.
class Filter {
 public:
  explicit Filter(const Options& options);
  bool Takes(const Story& story) const;

 private:
  const Options& m_options;
  const LocalMs m_llSince;
  const LocalMs m_llUntil;
};

// The log as stories.
class StoryReader {
 public:
  StoryReader(const Options& options, StoryMachine::Sink sink, bool bEvents);
  // Reads what is there, or what has come since. bWhole: a last line without an end counts as well.
  void Read(bool bWhole);
  // The log ends here. What it could not list is said on the error stream.
  void End();
  void Refresh() { m_reader.Refresh(); }
  const StoryMachine& Machine() const { return m_machine; }
  // A mark for each note of lost lines, by the line before it: known again whichever file it has been moved to.
  const std::vector<std::string>& LossMarks() const { return m_lossMarks; }
  std::string Name(std::uint32_t nFile) const { return m_reader.Sources()[nFile].strName; }
  std::string Describe() const;

 private:
  LogReader m_reader;
  StoryMachine m_machine;
  LogLine m_before;  // the last call's numbers
  std::vector<std::string> m_lossMarks;
};

}  // namespace lmctl
