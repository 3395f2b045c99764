// The spooler's handles of ports, and the calls that are under way on them.
//
// A handle is the address of an IniPort. It is looked up, never believed: a call on a port that was closed meanwhile is
// refused without touching the record. The table has a lock of its own, held for a few instructions and never while
// anything else happens, so that no call waits for another port's open or close.
#pragma once

#include <windows.h>

#include "monitor/records.h"

// One call of the spooler on a port, for the length of a scope. Without a port when the handle is none of ours.
class PortCall {
 public:
  explicit PortCall(HANDLE hPort) noexcept;
  ~PortCall();
  PortCall(const PortCall&) = delete;
  PortCall& operator=(const PortCall&) = delete;

  IniPort* Port() const noexcept { return m_pIniPort; }

 private:
  IniPort* m_pIniPort;
};

// Makes a new port's record a handle that calls are taken on.
void AddPortHandle(IniPort* pIniPort) noexcept;

// Takes the handle out of the table: later calls are refused. Waits until those that are under way have ended, with no lock
// held, and returns the port; null for a handle that is none of ours.
IniPort* RemovePortHandle(HANDLE hPort) noexcept;

// The four bytes behind a refused handle, for log lines; 0 for a null handle and for memory that cannot be read.
DWORD SignatureOf(HANDLE hPort) noexcept;
