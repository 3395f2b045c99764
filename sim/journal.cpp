#include "sim/journal.h"

#ifndef _WIN32
#include "posix/control.h"
#endif

namespace sim {

void Journal::Add(const std::string& strEntry) {
  const Guard guard(m_lock);
  m_entries.push_back(strEntry);
}

std::vector<std::string> Journal::Entries() const {
  const Guard guard(m_lock);
  return m_entries;
}

std::vector<std::string> Journal::Of(const std::string& strStart) const {
  const Guard guard(m_lock);
  std::vector<std::string> entries;
  for (const std::string& strEntry : m_entries)
    if (strEntry.starts_with(strStart)) entries.push_back(strEntry);
  return entries;
}

void Journal::Clear() {
  const Guard guard(m_lock);
  m_entries.clear();
}

#ifdef _WIN32
bool FaultHere(const char*, DWORD) { return false; }
void Book(Owned, int) {}
#else
bool FaultHere(const char* pszApi, DWORD dwUsualError) {
  w32::PlatformCall();
  return w32::FaultHere(pszApi, dwUsualError);
}
void Book(Owned owned, int nChange) {
  w32::Book(owned == Owned::PrinterHandle ? w32::Account::PrinterHandles : w32::Account::ServiceHandles, nChange);
}
#endif

}  // namespace sim
