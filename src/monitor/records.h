// The monitor's run-time state: one IniPort a port that the spooler has open, one IniJob a job on it.
//
// Who may touch what: csMonitor guards the port list, every job list, pDevData and pSdkMng where a job start copies or
// replaces them, and bySeqCounter. The spooler makes the calls of one port one after the other (its printer-data requests
// may come beside them), so everything else of a record belongs to the thread of the current call. Every call is counted in
// the record while it lasts (PortCall), and a close frees the record when the others have ended. The cancel watcher reads
// hPrinter, JobId, pSdkMng and hEventStop of its job, which stay unchanged while it runs. Whoever sees the job deleted, the
// watcher or a call of the job, says so once and for all in bCancelSeen and hEventCancel (NoteCancelled).
#pragma once

#include <windows.h>

#include <winspool.h>
#include <winsplp.h>

#include <atomic>
#include <cstddef>

#include "common/job_archive.h"

class CSdk;
struct DevData;
struct IniJob;

// The signature's four bytes "LMP_" in memory order.
inline constexpr DWORD kPortSignature = 0x5F504D4C;

// Bits of IniPort::dwPortFlags.
inline constexpr DWORD PORT_OPEN_ALWAYS = 0x01;    // the device session stays open between jobs
inline constexpr DWORD PORT_SHARE_SETTING = 0x04;  // a share-restore request is under way or was done
inline constexpr DWORD PORT_AUTO_REPRINT = 0x10;   // jobs are cached, confirmed and printed again when lost
inline constexpr DWORD PORT_VIRTUAL_COM = 0x20;    // the job end waits for the execution response
inline constexpr DWORD PORT_RESPONSE_MASK = 0xF0;

// Bits of IniPort::status.
inline constexpr DWORD PORT_DOC_STARTED = 0x1;  // a job is in progress

// Value of SendJobLastPageEjected for every job of the list.
inline constexpr DWORD ALL_JOBS = 0xFFFFFFFF;

// A job in the spooler with one of these status bits is cancelled for the monitor (documented job states).
inline constexpr DWORD kCancelledStates = JOB_STATUS_DELETING | JOB_STATUS_DELETED | JOB_STATUS_RESTART;

// The reprint cache of a port: the bytes that the printer took of the current job.
struct ReprintMng {
  BYTE* pBuf;      // owned; null when nothing is cached, and only then is cbAlloc 0
  DWORD cbData;    // bytes held
  DWORD cbAlloc;   // capacity of pBuf
  DWORD cbJob[2];  // cached sizes of the last two jobs, older first; 0 = unknown
};

struct IniPort {
  DWORD signature;
  IniPort* pNext;
  HANDLE hPort;           // the underlying port monitor's handle; null when its open failed
  wchar_t* pPrinterName;  // owned
  wchar_t* pszPortName;   // owned; key of the port list
  std::atomic<DWORD> status;
  IniJob* pIniJob;  // newest job first; the head is the current job
  HANDLE hEvent;    // auto-reset, owned: signalled while the port is idle
  BOOL bUseSdkSrv;  // the device-access path is usable
  CSdk* pSdkMng;    // owned
  std::atomic<DWORD> dwPortFlags;
  const DevData* pDevData;  // the model's record, constant data
  ReprintMng reprintMng;
  MONITOR2 fn;             // the underlying port monitor's table
  DWORD dwCallsInFlight;   // guarded by the handle table's lock
  IniPort* pNextInBucket;  // likewise: chain of the handle table
};
static_assert(offsetof(IniPort, signature) == 0);
static_assert(sizeof(MONITOR2) == 176);

struct IniJob {
  IniJob* pNext;
  HANDLE hPrinter;  // owned, opened with PRINTER_ACCESS_USE
  DWORD JobId;
  JOB_INFO_2W* pJob;  // owned
  SYSTEMTIME stStart;
  BYTE realCmdState;              // state of the real-time command matcher between two writes
  HANDLE hEventStop;              // manual-reset, owned: ends the cancel watcher
  HANDLE hThread;                 // owned: the cancel watcher
  CSdk* pSdkMng;                  // borrowed from the port
  wchar_t* pszJobDataPath;        // owned: archive root
  wchar_t* pszJobFilePath;        // owned: this job's archive file
  ArchivedFile archived;          // what is known of that file
  BYTE bySeqNo;                   // sequence number of the execution-response request
  HANDLE hEventCancel;            // manual-reset, owned: the job was cancelled in the spooler; for those who wait
  std::atomic<bool> bCancelSeen;  // … and for those who look; outlives the event, never taken back
};

extern CRITICAL_SECTION csMonitor;
extern IniPort* pIniFirstPort;
extern BYTE bySeqCounter;
