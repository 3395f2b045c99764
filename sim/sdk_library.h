// The simulated device-access library: sessions, the job lock, direct output that may block, cancel and reset.
#pragma once

#include <windows.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "sim/journal.h"
#include "sim/printer.h"

namespace sim {

class SdkLibrary {
 public:
  explicit SdkLibrary(Journal& journal) : m_journal(journal) {}
  ~SdkLibrary();

  // Connects a queue to the printer that its device is; queues of one printer share the device and its lock.
  void Connect(const std::string& strQueue, Printer& printer);

  // The next nTimes calls of a request ("OpenW", "Close", "send", "SDK_SET_LOCK", …) answer this code and do nothing.
  void Answer(const std::string& strRequest, DWORD dwCode, unsigned nTimes = 1);
  void SetOpenDelay(DWORD dwMilliseconds) { m_dwOpenDelay = dwMilliseconds; }
  // Direct output takes at most this many bytes a call and then reports its time-out (0: no limit).
  void SetPartialSends(DWORD cbMost) { m_cbMostPerSend = cbMost; }
  // The next sends come back at once and take nothing, in turn as a success and as a time-out.
  void SetSendsThatTakeNothing(unsigned nTimes) { m_nEmptySends = nTimes; }
  // Direct output reports this many bytes more than it took.
  void SetSurplus(DWORD cb) { m_cbSurplus = cb; }

  // The job data that a queue's device took, resends included, requests left out.
  std::string DataOnWire(const std::string& strQueue) const;
  std::size_t OpenSessions() const;
  std::size_t HeldLocks() const;

  // The three entry points.
  DWORD OpenW(const wchar_t* pszPrinter, DWORD* pdwSession);
  DWORD Close(DWORD dwSession);
  DWORD DevIoCtrl(DWORD dwSession, const wchar_t* pszRequest, const BYTE* pIn, DWORD cbIn, DWORD* pdwWritten,
                  BYTE* pOut, DWORD cbOut, DWORD* pdwValue, DWORD dwTimeoutMs);

 private:
  struct Device {
    Printer* pPrinter = nullptr;
    DWORD dwLockedBy = 0;
    HANDLE hCancel = nullptr;  // manual-reset: set by a cancel, cleared when the next transfer begins
  };
  struct Session {
    Device* pDevice = nullptr;  // null: no such session
    std::string strQueue;
  };
  struct Plan {
    DWORD dwCode;
    unsigned nTimes;
  };

  bool Planned(const std::string& strRequest, DWORD& dwCode);
  Session SessionOf(DWORD dwSession);
  // What happens to the paper is for the owner of the device's lock only; anything else is a violation.
  void NoteOwner(const Device& device, DWORD dwSession, const std::string& strRequest);
  DWORD Send(Device& device, const std::string& strQueue, const BYTE* pIn, DWORD cbIn, DWORD* pdwWritten,
             DWORD dwTimeoutMs);
  DWORD SetLock(Device& device, DWORD dwSession, DWORD dwTimeoutMs);

  Journal& m_journal;
  mutable Lock m_lock;  // guards the maps and every device's lock owner
  std::map<Printer*, std::unique_ptr<Device>> m_devices;
  std::map<std::string, Device*> m_queues;
  std::map<DWORD, Session> m_sessions;
  std::map<std::string, std::string> m_wire;  // by queue
  std::map<std::string, Plan> m_plans;
  DWORD m_dwNextSession = 1;
  DWORD m_dwOpenDelay = 0;
  DWORD m_cbMostPerSend = 0;
  DWORD m_cbSurplus = 0;
  std::atomic<unsigned> m_nEmptySends{0};
};

}  // namespace sim
