#include "tools/lmhost/job_check.h"

namespace lmhost {
namespace {

unsigned CountWhole(const std::string& strPaper, const std::string& strJob) {
  unsigned n = 0;
  for (std::size_t nAt = strPaper.find(strJob); nAt != std::string::npos && !strJob.empty();
       nAt = strPaper.find(strJob, nAt + strJob.size()))
    ++n;
  return n;
}

}  // namespace

JobCheck::JobCheck(sim::World& world, const std::string& strPort, const std::string& strQueue,
                   const std::string& strArchive)
    : m_world(world),
      m_strPort(strPort),
      m_strQueue(strQueue),
      m_strArchive(strArchive),
      m_printer(world.PrinterOf(strPort)),
      m_nResets(world.journal.Count("sdk SDK_SET_RESET")),
      m_nStrips(m_printer.Strips().size()),
      m_cbLastStrip(m_printer.LastStrip().size()),
      m_cbWire(Wire().size()),
      m_nResponses(m_printer.Responses().nCount),
      m_archived(sim::World::ArchivedFiles(strArchive)) {}

unsigned JobCheck::Resets() const {
  return static_cast<unsigned>(m_world.journal.Count("sdk SDK_SET_RESET") - m_nResets);
}

// Whichever of the two paths the jobs take, the other one carries nothing.
std::string JobCheck::Wire() const {
  return m_world.library.DataOnWire(m_strQueue) + m_world.portMonitor.Port(m_strPort).strDelivered;
}

JobCheck::Outcome JobCheck::Compare(const std::string& strExpected) const {
  Outcome outcome;
  const auto strips = m_printer.Strips();
  const bool bNewStrip = strips.size() > m_nStrips;
  const std::string strLast = bNewStrip ? strips.back() : strips.back().substr(m_cbLastStrip);
  outcome.nWholeLast = CountWhole(strLast, strExpected);
  for (std::size_t n = m_nStrips - 1; n < strips.size(); ++n)
    outcome.nWholeAll += CountWhole(n == m_nStrips - 1 ? strips[n].substr(m_cbLastStrip) : strips[n], strExpected);
  outcome.nReprints = Resets();
  const sim::Printer::ExecResponses responses = m_printer.Responses();
  outcome.bConfirmed = responses.nCount > m_nResponses;
  outcome.byResponse = responses.byLast;

  if (m_strArchive.empty()) return outcome;
  std::string strArchived;
  for (const auto& [strName, strBytes] : sim::World::ArchivedFiles(m_strArchive)) {
    const auto before = m_archived.find(strName);
    strArchived += before == m_archived.end() ? strBytes : strBytes.substr(before->second.size());
  }
  outcome.cbArchived = strArchived.size();
  if (strArchived.empty()) return outcome;  // the queue's settings may have switched the archive off
  const std::string strWire = Wire().substr(m_cbWire);
  outcome.bArchiveIsWire = outcome.nReprints == 0 ? strWire == strArchived : strWire.ends_with(strArchived);
  outcome.bArchiveIsPaper = strLast == strArchived;
  return outcome;
}

std::string ExpectedOnPaper(std::string strJob, bool bRaw) {
  if (bRaw) return strJob;
  const auto rewrite = [&](const std::string& strSequence, char cLast) {
    for (std::size_t nAt = strJob.find(strSequence); nAt != std::string::npos; nAt = strJob.find(strSequence, nAt + 1))
      strJob[nAt + strSequence.size() - 1] = cLast;
  };
  rewrite("\x13(reset\x13reset", 'v');
  rewrite("\x13(clr", 's');
  for (std::size_t n = 0; n + 4 < strJob.size(); ++n)
    if (strJob.compare(n, 3, "\x10\x14\x01") == 0 && strJob[n + 3] != 0x10 && strJob[n + 3] != 0x13 &&
        strJob[n + 4] >= 1 && strJob[n + 4] <= 8)
      strJob[n + 4] = static_cast<char>(strJob[n + 4] | 0x10);
  return strJob;
}

}  // namespace lmhost
