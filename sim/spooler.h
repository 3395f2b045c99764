// The simulated spooler: queues and jobs, and the driving side that takes a job through the monitor the way a spooler does.
#pragma once

#include <windows.h>

#include <winspool.h>
#include <winsplp.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "sim/journal.h"

namespace sim {

struct DataValue {
  DWORD dwType = REG_BINARY;
  std::vector<BYTE> bytes;
  // Size that a query without a buffer reports; 0: the true one. For values that grow between the two calls.
  DWORD cbReported = 0;
};

struct Queue {
  std::string strName;
  std::string strDriver;
  std::string strPort;
  std::string strShare;
  DWORD dwAttributes = PRINTER_ATTRIBUTE_LOCAL;
  std::map<std::string, DataValue> data;  // printer data
};

struct Job {
  DWORD dwId = 0;
  std::string strQueue;
  std::string strDocument;
  std::string strDatatype;
  DWORD dwStatus = JOB_STATUS_PRINTING;
  bool bGone = false;  // has left the spooler: queries fail, the world remembers
  unsigned nSentToPrinter = 0;
  unsigned nLastPageEjected = 0;
};

struct PrintOptions {
  DWORD cbChunk = 16 * 1024;      // bytes a write
  DWORD dwRetryMs = 500;          // pause after a write that took nothing
  bool bStopWhenDeleted = false;  // stop offering a deleted job's data, as a spooler may
  // Called before each write with the bytes offered so far; may delete the job, plan faults, draw a bar.
  std::function<void(std::uint64_t)> onProgress;
};

struct PrintResult {
  bool bStarted = false;
  bool bDelivered = false;  // every byte was taken
  DWORD dwError = 0;        // last error of the call that failed
  std::uint64_t ullDelivered = 0;
  unsigned nRefused = 0;     // calls that failed or took nothing
  unsigned nMostOffers = 0;  // offers in a row of one buffer that took nothing
};

class Spooler {
 public:
  Queue& AddQueue(const Queue& queue);
  Queue* FindQueue(const std::string& strName);
  static DataValue Dword(DWORD dw);
  static DataValue Text(const std::string& strText);
  static DataValue Bytes(std::vector<BYTE> bytes);

  DWORD NewJob(const std::string& strQueue, const std::string& strDatatype, const std::string& strDocument = "receipt");
  Job* FindJob(DWORD dwId);
  void SetStatus(DWORD dwId, DWORD dwAdd);       // adds status bits: deleting, restarting, pausing
  void ClearStatus(DWORD dwId, DWORD dwRemove);  // takes bits back
  DWORD StatusOf(DWORD dwId);
  // The job leaves the spooler: later queries fail.
  void RemoveJob(DWORD dwId);
  // … and the world forgets it too.
  void ForgetJob(DWORD dwId);

  // Through the monitor, as the calling thread's client.
  HANDLE OpenPort(const std::string& strPort, const std::string& strPrinter);
  bool ClosePort(HANDLE hPort);
  void CloseAllPorts();  // those that are still open
  bool StartDoc(HANDLE hPort, DWORD dwJobId);
  bool EndDoc(HANDLE hPort);
  // A request of the printer driver through the port.
  bool Ask(HANDLE hPort, const std::string& strValue, DWORD dwControlId = 0);
  PrintResult Print(HANDLE hPort, DWORD dwJobId, const std::string& strData, const PrintOptions& options = {});

  // Starts Print on a thread of its own; Join waits for it.
  class Running {
   public:
    ~Running() { Join(); }
    PrintResult& Join();
    // Whether the job has ended; waits for it at most so long.
    // A job whose thread could not be started counts as ended.
    bool Wait(DWORD dwMilliseconds) {
      return m_hThread == nullptr || WaitForSingleObject(m_hThread, dwMilliseconds) == WAIT_OBJECT_0;
    }
    bool Started() const { return m_hThread != nullptr; }
    PrintResult result;

   private:
    friend class Spooler;
    std::function<PrintResult()> m_work;
    HANDLE m_hThread = nullptr;
    static DWORD WINAPI Main(LPVOID pArgument);
  };
  std::unique_ptr<Running> PrintAsync(HANDLE hPort, DWORD dwJobId, std::string strData, PrintOptions options = {});

  // The monitor's table and handle; set by the world.
  MONITOR2* pMonitor = nullptr;
  HANDLE hMonitor = nullptr;
  MONITOR2* pPortMonitor = nullptr;

  Lock lock;  // guards queues, jobs and the list of open ports
 private:
  bool Write(HANDLE hPort, std::vector<BYTE>& chunk, DWORD& cbWritten);
  // Makes a call of the monitor. One that is refused must have set a last error of its own: anything else is a violation.
  static bool Call(const char* pszSlot, const std::function<BOOL()>& call);

  std::map<std::string, std::unique_ptr<Queue>> m_queues;
  std::map<DWORD, std::unique_ptr<Job>> m_jobs;
  std::set<HANDLE> m_openPorts;
  DWORD m_dwNextJob = 1;
};

// Whether the calling thread acts for a client.
bool IsImpersonating();

// Which client that is from now on; 1 at first. On Windows all are the user who runs the program.
void SetClient(unsigned nClient);

// Lets the calling thread act for a client, as a spooler thread does while it handles a call.
class ActAsClient {
 public:
  ActAsClient();
  ~ActAsClient();
  ActAsClient(const ActAsClient&) = delete;
  ActAsClient& operator=(const ActAsClient&) = delete;

 private:
  bool m_bBefore;
};

}  // namespace sim
