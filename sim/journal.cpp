#include "sim/journal.h"

#ifndef _WIN32
#include "posix/control.h"
#endif

namespace sim {

#ifdef _WIN32
void Lock::Enter() { EnterCriticalSection(&m_cs); }
void Lock::Leave() { LeaveCriticalSection(&m_cs); }
void NoteStep() {}
#else
using w32::NoteStep;
void Lock::Enter() {
  w32::BeginStep();
  EnterCriticalSection(&m_cs);
}
void Lock::Leave() {
  LeaveCriticalSection(&m_cs);
  w32::EndStep();
}
#endif

void Journal::Add(const std::string& strText, const std::string& strQueue) {
  NoteStep();
  const Guard guard(m_lock);
  m_events.push_back({strText, strQueue, GetTickCount()});
}

std::vector<Journal::Event> Journal::EventsOf(const std::string& strQueue) const {
  const Guard guard(m_lock);
  std::vector<Event> events;
  for (const Event& event : m_events)
    if (event.strQueue == strQueue) events.push_back(event);
  return events;
}

std::vector<std::string> Journal::Entries() const { return Of(""); }

std::vector<std::string> Journal::Of(const std::string& strStart) const {
  const Guard guard(m_lock);
  std::vector<std::string> entries;
  for (const Event& event : m_events)
    if (event.strText.starts_with(strStart)) entries.push_back(event.strText);
  return entries;
}

void Journal::Clear() {
  const Guard guard(m_lock);
  m_events.clear();
}

#ifdef _WIN32
bool FaultHere(const char*, DWORD) { return false; }
DWORD FaultCode(const char*, DWORD) { return ERROR_SUCCESS; }
void ActFor(unsigned) {}
void Book(Owned, int) {}
#else
namespace {
// Reading a job's status and reporting on it, the calls that come so often that the exploration must tell them apart.
w32::Touched TouchedBy(std::string_view strApi) {
  if (strApi == "GetJobW") return {1, true};
  return {strApi == "SetJobW" ? 1u : 0u};
}
}  // namespace
bool FaultHere(const char* pszApi, DWORD dwUsualError) {
  w32::PlatformCall(pszApi, TouchedBy(pszApi));
  return w32::FaultHere(pszApi, dwUsualError);
}
DWORD FaultCode(const char* pszApi, DWORD dwUsualError) {
  w32::PlatformCall(pszApi);
  return w32::FaultCode(pszApi, dwUsualError);
}
void ActFor(unsigned nClient) { w32::ActFor(nClient); }
void Book(Owned owned, int nChange) {
  w32::Book(owned == Owned::PrinterHandle ? w32::Account::PrinterHandles : w32::Account::ServiceHandles, nChange);
}
#endif

}  // namespace sim
