// What the scenes share: the world, the threads, and what must hold after each.
#include <algorithm>

#include "tools/lmsim/scene.h"

namespace {

// A deleted job ends within a poll of its watcher and what its call still has to do.
constexpr DWORD kOverMs = 2000;

bool IsSend(const std::string& strText) { return strText == "send is called"; }

}  // namespace

Stage::Stage() {
  sim::World::CleanMachine();
  w32::NameThread("stage");
  m_before = w32::CurrentBalance();
  m_world.emplace();
  sim::World::SetLogLevel(0);
  m_world->Attach();
}

HANDLE Stage::AddTill(const std::string& strQueue, const std::string& strPort, const sim::PrinterSettings& settings,
                      const std::string& strDriver) {
  sim::Queue& queue = m_world->AddPrinter(strQueue, strPort, strDriver, settings);
  queue.data["AutoReprint"] = sim::Spooler::Dword(1);
  return m_world->spooler.OpenPort(strPort, strQueue);
}

SceneJob& Stage::AddJob(const std::string& strQueue, const std::string& strData, const std::string& strDatatype) {
  m_jobs.push_back(std::make_unique<SceneJob>());
  SceneJob& job = *m_jobs.back();
  job.strQueue = strQueue;
  job.strData = strData;
  job.bToBeConfirmed = strDatatype != "RAW";
  job.dwId = m_world->spooler.NewJob(strQueue, strDatatype);
  return job;
}

void Stage::Thread(const char* pszName, std::function<void()> act) {
  m_actors.push_back({pszName, std::move(act), {}});
}

void Stage::Happens(std::vector<std::function<void()>> acts, DWORD dwWithinMs) {
  Thread("user", [acts = std::move(acts), dwWithinMs] {
    for (const auto& act : acts) {
      const w32::FaultsOn exempt(false);
      w32::AwaitMoment(dwWithinMs);
      w32::BeginStep();
      act();
      w32::EndStep();
    }
  });
}

void Stage::Print(HANDLE hPort, SceneJob& job, const sim::PrintOptions& options) {
  job.result = m_world->spooler.Print(hPort, job.dwId, job.strData, options);
  job.dwEnded = GetTickCount();
  job.ullLateMs = w32::LateMilliseconds();
  m_world->journal.Add(sim::Format("over: job %u", static_cast<unsigned>(job.dwId)), job.strQueue);
}

void Stage::Play() {
  w32::BeginStep();  // nobody goes before all of them are there, and this thread not before they are over
  const HANDLE hOver = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::size_t nLeft = m_actors.size();
  for (Actor& actor : m_actors) {
    actor.pThread = std::make_unique<sim::SideThread>([&actor, &nLeft, hOver] {
      w32::NameThread(actor.pszName);
      {
        const w32::FaultsOn faults;  // the stage itself works
        actor.act();
      }
      w32::BeginStep();
      if (--nLeft == 0) SetEvent(hOver);
    });
  }
  WaitForSingleObject(hOver, INFINITE);
  for (Actor& actor : m_actors) actor.pThread->Join();
  CloseHandle(hOver);
  w32::EndStep();
}

void Stage::CheckDeletion(const SceneJob& job) {
  const auto id = static_cast<unsigned>(job.dwId);
  const std::string strSeen = sim::Format("GetJob %u tells of its deletion", id);
  const std::string strOver = sim::Format("over: job %u", id);
  bool bSeen = false, bCancelled = false;
  DWORD dwSeen = 0;
  std::vector<std::string> clearing;
  for (const sim::Journal::Event& event : m_world->journal.EventsOf(job.strQueue)) {
    if (event.strText == strOver) break;
    if (event.strText == strSeen && !bSeen) {
      bSeen = true;
      dwSeen = event.dwTime;
    }
    if (!bSeen) continue;
    const bool bCancel = event.strText.starts_with("sdk SDK_CANCEL_IO_EX");
    if (bCancel || event.strText.starts_with("sdk SDK_SET_RESET")) clearing.push_back(event.strText.substr(4, 10));
    if (IsSend(event.strText))
      verdict.Holds(!bCancelled, "nothing is sent once the device was cancelled for its deletion");
    bCancelled |= bCancel;
  }
  const bool bOnDevice =
      m_world->journal.Of(sim::Format("port StartDocPort %s job=%u", PortOf(job).c_str(), id)).empty();
  if (!bSeen || !bOnDevice || !job.result.bStarted) return;
  verdict.AtMost(job.dwEnded - dwSeen, kOverMs + job.ullLateMs,
                 "milliseconds from the sight of its deletion to its end");
  verdict.Holds(
      clearing.size() >= 2 && clearing[clearing.size() - 2] == "SDK_CANCEL" && clearing.back() == "SDK_SET_RE",
      "the device is cancelled and reset behind a job that was seen deleted");
}

void Stage::CheckConfirmation(const SceneJob& job) {
  const auto id = static_cast<unsigned>(job.dwId);
  const bool bOnDevice =
      m_world->journal.Of(sim::Format("port StartDocPort %s job=%u", PortOf(job).c_str(), id)).empty();
  if (!job.result.bDelivered || job.bMayBeCutOff || !bOnDevice || IsSeenDeleted(job)) return;
  bool bAtEnd = false, bAsked = false;
  for (const sim::Journal::Event& event : m_world->journal.EventsOf(job.strQueue)) {
    if (event.strText == sim::Format("over: job %u", id)) break;
    bAtEnd |= event.strText == sim::Format("SetJob %u sent-to-printer", id);
    if (event.strText.starts_with("sdk SDK_SET_RESET")) bAsked = false;
    if (bAtEnd && event.strText.starts_with("sdk send 6/6 timeout=10000")) bAsked = true;
  }
  verdict.Holds(bAsked || !job.bToBeConfirmed, "a job that is to be confirmed is, or the device is cleared behind it");
}

bool Stage::IsSeenDeleted(const SceneJob& job) const {
  return m_world->journal.Count(sim::Format("GetJob %u tells of its deletion", static_cast<unsigned>(job.dwId))) != 0;
}

std::string Stage::PortOf(const SceneJob& job) { return m_world->spooler.FindQueue(job.strQueue)->strPort; }

void Stage::CheckPaper(const SceneJob& job) {
  if (!job.result.bDelivered || job.bMayBeCutOff || IsSeenDeleted(job)) return;
  const std::string strStrip = m_world->PrinterOf(PortOf(job)).LastStrip();
  const std::size_t nAt = strStrip.find(job.strData);
  verdict.Holds(nAt != std::string::npos && strStrip.find(job.strData, nAt + 1) == std::string::npos,
                "whole on paper, once");
}

std::string Stage::Outcome() {
  std::string str;
  for (const auto& pJob : m_jobs) {
    const SceneJob& job = *pJob;
    const std::vector<std::string> strips = m_world->PrinterOf(PortOf(job)).Strips();
    str += sim::Format("%d%d e%u %u of %zu;", job.result.bStarted, job.result.bDelivered,
                       static_cast<unsigned>(job.result.bStarted ? 0 : job.result.dwError),
                       static_cast<unsigned>(job.result.ullDelivered), job.strData.size());
    // How far it was when a deleted job was cut off is a matter of microseconds.
    if (!IsSeenDeleted(job))
      for (const std::string& strStrip : strips) str += "|" + strStrip;
    for (const sim::Journal::Event& event : m_world->journal.EventsOf(job.strQueue))
      if (!event.strText.starts_with("user changes")) str += event.strText + "\n";  // when nobody looks is all the same
  }
  return str;
}

void Stage::Finish(bool bFault) {
  Sleep(60'000);  // the paper comes out
  m_world->spooler.CloseAllPorts();
  for (const auto& pJob : m_jobs) {
    const SceneJob& job = *pJob;
    verdict.About(sim::Format("job %u", static_cast<unsigned>(job.dwId)));
    const sim::Job& spooled = *m_world->spooler.FindJob(job.dwId);
    if (!bFault) {
      if (!job.bMayBeCutOff || !job.result.bStarted)
        verdict.Equal(spooled.nSentToPrinter, job.result.bStarted ? 1u : 0u, "reports of its data");
      verdict.Equal(spooled.nLastPageEjected, job.result.bStarted ? 1u : 0u, "reports of its last page");
      CheckDeletion(job);
      CheckConfirmation(job);
      CheckPaper(job);
    }
    verdict.Holds(job.result.bStarted || job.result.dwError != 0, "a refusal has a code");
  }
  verdict.About("the world");
  // Where a call has failed, a lock may stay with the library, and a thread that could not leave the client's name works in it.
  if (!bFault) {
    verdict.Equal(m_world->library.HeldLocks(), 0u, "locks that are held");
    verdict.Equal(m_world->library.OpenSessions(), 0u, "open sessions");
  }
  for (const std::string& strText : m_world->journal.Of("violation"))
    verdict.Holds(bFault && strText.find("impersonating") != std::string::npos, strText);
  m_world.reset();
  const std::string strLeaks = w32::Leaks(m_before);
  verdict.Holds(strLeaks.empty(), "left open: " + strLeaks);
}
