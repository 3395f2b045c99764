// What became of one job outside the monitor: on the wire, on paper and in the archive.
#pragma once

#include <map>
#include <string>

#include "sim/world.h"

namespace lmhost {

// Taken before a job, compared with after it.
class JobCheck {
 public:
  JobCheck(sim::World& world, const std::string& strPort, const std::string& strQueue, const std::string& strArchive);

  struct Outcome {
    unsigned nWholeLast = 0;  // times that the job stands whole on the paper's last strip
    unsigned nWholeAll = 0;   // … and on all of its paper
    unsigned nReprints = 0;
    bool bConfirmed = false;  // the printer gave an execution response that was due
    BYTE byResponse = 0;      // the last one
    std::size_t cbArchived = 0;
    bool bArchiveIsWire = true;   // the archive holds what went over the wire last, or nothing of this job
    bool bArchiveIsPaper = true;  // … and what stands on the paper
  };
  // strExpected: the job as it should be printed.
  Outcome Compare(const std::string& strExpected) const;

  // Device resets since the job began: each stands for one resend.
  unsigned Resets() const;

 private:
  std::string Wire() const;

  sim::World& m_world;
  const std::string m_strPort;
  const std::string m_strQueue;
  const std::string m_strArchive;
  sim::Printer& m_printer;
  const std::size_t m_nResets;
  const std::size_t m_nStrips;
  const std::size_t m_cbLastStrip;
  const std::size_t m_cbWire;
  const unsigned m_nResponses;
  const std::map<std::string, std::string> m_archived;
};

// What a job looks like on paper: raw ones as they are, others with one byte of each real-time command rewritten. Written
// the obvious way, apart from the monitor's own matcher.
std::string ExpectedOnPaper(std::string strJob, bool bRaw);

}  // namespace lmhost
