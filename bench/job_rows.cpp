// A job's whole way, its memory, and what many open ports cost.
#include <algorithm>
#include <chrono>
#include <cstring>

#include "base/memory.h"
#include "bench/bare_line.h"
#include "bench/rows.h"
#include "monitor/records.h"
#include "monitor/sdk.h"
#include "monitor/stream_inspect.h"
#include "sim/world.h"

#ifndef _WIN32
#include "posix/control.h"
#endif

namespace bench {
namespace {

constexpr DWORD kBufferBytes = 64 * 1024;
constexpr DWORD kWritesPerJob = 100;

std::vector<BYTE> TextBuffer() {
  std::vector<BYTE> bytes(kBufferBytes);
  for (std::size_t n = 0; n < bytes.size(); ++n) bytes[n] = static_cast<BYTE>('A' + n % 26);
  return bytes;
}

// A library that takes everything at once, so that what is measured is not the simulated printer.
DWORD WINAPI TakeEverything(DWORD, LPCWSTR pszRequest, const void*, DWORD cbIn, DWORD* pdwWritten, void* pOut,
                            DWORD cbOut, DWORD* pdwValue, DWORD) {
  static bool s_bReady = false;
  if (pszRequest == nullptr) {
    *pdwWritten = cbIn;
    s_bReady = true;
  } else if (pOut != nullptr) {
    constexpr BYTE kReady[] = {0xC0, 0xD2, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0};
    *pdwValue = 0;
    if (s_bReady && cbOut >= sizeof kReady) {
      std::memcpy(pOut, kReady, sizeof kReady);
      *pdwValue = sizeof kReady;
    }
    s_bReady = false;
  }
  return ERROR_SUCCESS;
}

// The outside calls of one write on the device path.
class BareWrite {
 public:
  explicit BareWrite(const std::string& strRoot) {
    OpenPrinterW(sim::Wide("Till").data(), &m_hPrinter, nullptr);
    m_file = sim::Wide(strRoot + "\\20260101\\bare.prn");
    CreateDirectoryW(sim::Wide(strRoot + "\\20260101").c_str(), nullptr);
    m_cache.resize(std::size_t{kBufferBytes} * kWritesPerJob);
  }
  ~BareWrite() { ClosePrinter(m_hPrinter); }
  BareWrite(const BareWrite&) = delete;
  BareWrite& operator=(const BareWrite&) = delete;

  void Write(DWORD dwJob, std::vector<BYTE>& bytes, std::size_t nWrite) {
    Query([&](BYTE* p, DWORD cb, DWORD* pcb) { GetPrinterW(m_hPrinter, 2, p, cb, pcb); });
    Query([&](BYTE* p, DWORD cb, DWORD* pcb) { GetJobW(m_hPrinter, dwJob, 1, p, cb, pcb); });
    const HANDLE hToken = RevertToPrinterSelf();
    DWORD cbWritten = 0;
    TakeEverything(1, nullptr, bytes.data(), kBufferBytes, &cbWritten, nullptr, 0, nullptr, 90'000);
    ImpersonatePrinterClient(hToken);

    const HANDLE hFile =
        CreateFileW(m_file.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    SetFilePointer(hFile, 0, nullptr, FILE_END);
    WriteFile(hFile, bytes.data(), kBufferBytes, &cbWritten, nullptr);
    CloseHandle(hFile);
    std::memcpy(m_cache.data() + nWrite * kBufferBytes, bytes.data(), kBufferBytes);
  }
  void NextJob() { DeleteFileW(m_file.c_str()); }

 private:
  template <class Call>
  static void Query(Call call) {
    DWORD cb = 0;
    call(nullptr, 0, &cb);
    const auto block = AllocBlock<BYTE>(cb);
    call(block.get(), cb, &cb);
  }
  HANDLE m_hPrinter = nullptr;
  sim::WideString m_file;
  std::vector<BYTE> m_cache;
};

void DeviceWrites(Table& table) {
  sim::World world;
  world.SetLogLevel(0);
  world.Attach();
  const std::string strRoot = "C:\\BenchJobs";
  sim::World::DeleteTree(strRoot);
  sim::Queue& queue = world.AddPrinter("Till", "USB001", "Kelvane HM-520");
  queue.data["AutoReprint"] = sim::Spooler::Dword(1);
  queue.data["JobFilePath"] = sim::Spooler::Text(strRoot);
  queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
  const HANDLE hPort = world.spooler.OpenPort("USB001", "Till");
  auto& port = *static_cast<IniPort*>(hPort);
  std::vector<BYTE> bytes = TextBuffer();
  DWORD dwJob = 0;
  const auto begin = [&] {
    dwJob = world.spooler.NewJob("Till", "TEXT");
    world.spooler.StartDoc(hPort, dwJob);
    port.pSdkMng->pDevIoCtrl = TakeEverything;
  };
  const auto end = [&] {
    world.spooler.SetStatus(dwJob, JOB_STATUS_DELETING);  // nobody is there to confirm it
    world.spooler.EndDoc(hPort);
    world.spooler.RemoveJob(dwJob);
    sim::World::DeleteTree(strRoot);
    CreateDirectoryW(sim::Wide(strRoot).c_str(), nullptr);
    CreateDirectoryW(sim::Wide(strRoot + "\\20260101").c_str(), nullptr);
  };
  begin();
  BareWrite bare(strRoot);
  const sim::ActAsClient client;
  DWORD cbWritten = 0;
  const auto write = [&] { world.spooler.pMonitor->pfnWritePort(hPort, bytes.data(), kBufferBytes, &cbWritten); };
  write();  // the one that asks the printer
  std::size_t nOurs = 1;
  std::size_t nBare = 0;
  // A job of the same length after the same number of writes on both sides; its beginning and end are part of neither's
  // figure but for what they leave in the caches.
  table.Time(
      "MonWritePort 64 KiB, device path, reprint and archive", "the same outside calls, bare, and one memcpy",
      Goal::TimesAtMost, 1.3,
      [&] {
        if (nBare == kWritesPerJob) {
          bare.NextJob();
          nBare = 0;
        }
        bare.Write(dwJob, bytes, nBare++);
      },
      [&] {
        if (nOurs == kWritesPerJob) {
          port.reprintMng.cbData = 0;  // the cache begins again without a job end
          DeleteFileW(port.pIniJob->pszJobFilePath);
          nOurs = 0;
        }
        write();
        ++nOurs;
      });
  IniJob inspected = {};
  IniPort inspectedPort = {};
  inspectedPort.pIniJob = &inspected;
  table.Time(
      "CheckRealCmd's share of a 64 KiB write", "the whole write", Goal::TimesAtMost, 0.1,
      [&] {
        if (nOurs++ == kWritesPerJob) {
          port.reprintMng.cbData = 0;
          DeleteFileW(port.pIniJob->pszJobFilePath);
          nOurs = 1;
        }
        write();
      },
      [&] { CheckRealCmd(&inspectedPort, bytes.data(), kBufferBytes); });
  end();
  world.spooler.ClosePort(hPort);
  sim::World::DeleteTree(strRoot);
}

// The cheapest thing that a port monitor really does: it writes to a file.
HANDLE g_hFilePort;
BOOL WINAPI WriteToFile(HANDLE, LPBYTE pBuf, DWORD cbBuf, LPDWORD pcbWritten) {
  return WriteFile(g_hFilePort, pBuf, cbBuf, pcbWritten, nullptr);
}

void PortMonitorJob(Table& table) {
  sim::World world;
  world.SetLogLevel(0);
  world.services.dwState = SERVICE_STOPPED;
  world.Attach();
  world.AddPrinter("Till", "COM1", "Kelvane HM-520");
  world.portMonitor.table.pfnWritePort = WriteToFile;
  g_hFilePort = CreateFileW(L"C:\\bench.out", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  const HANDLE hPort = world.spooler.OpenPort("COM1", "Till");
  world.spooler.StartDoc(hPort, world.spooler.NewJob("Till", "TEXT"));
  const sim::ActAsClient client;
  std::vector<BYTE> bytes = TextBuffer();
  constexpr int kWrites = 100'000'000 / static_cast<int>(kBufferBytes);
  const auto job = [&](auto write) {
    SetFilePointer(g_hFilePort, 0, nullptr, FILE_BEGIN);
    for (int n = 0; n < kWrites; ++n) {
      DWORD cbWritten = 0;
      write(&cbWritten);
    }
  };
  const auto& fn = static_cast<IniPort*>(hPort)->fn;
  const HANDLE hUnder = static_cast<IniPort*>(hPort)->hPort;
  table.Time(
      "100 MB job in 64 KiB buffers, port-monitor path", "the bare loop over the port monitor", Goal::TimesAtMost, 1.25,
      [&] { job([&](DWORD* pcb) { fn.pfnWritePort(hUnder, bytes.data(), kBufferBytes, pcb); }); },
      [&] { job([&](DWORD* pcb) { world.spooler.pMonitor->pfnWritePort(hPort, bytes.data(), kBufferBytes, pcb); }); });
  world.spooler.EndDoc(hPort);
  world.spooler.ClosePort(hPort);
  CloseHandle(g_hFilePort);
  DeleteFileW(L"C:\\bench.out");
}

void ManyPorts(Table& table) {
  if (!table.Wants("whole small job with 100 open ports") && !table.Wants("whole small job with 1,000 open ports"))
    return;
  struct Machine {
    explicit Machine(int nPorts) {
      world.SetLogLevel(0);
      world.services.dwState = SERVICE_STOPPED;
      world.Attach();
      for (int n = 0; n < nPorts; ++n) {
        const std::string strPort = sim::Format("LPT%d", n);
        world.AddPrinter("Till", strPort,
                         "Kelvane HM-520");  // one queue: looking up many is the simulated spooler's work
        world.portMonitor.Port(strPort).pPrinter = nullptr;
        ports.push_back(world.spooler.OpenPort(strPort, "Till"));
      }
    }
    ~Machine() {
      for (const HANDLE hPort : ports) world.spooler.ClosePort(hPort);
    }
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    void Job() {
      const HANDLE hPort = ports[nNext++ % ports.size()];
      const DWORD dwJob = world.spooler.NewJob("Till", "TEXT");
      world.spooler.Print(hPort, dwJob, "a small receipt\\n");
      world.spooler.ForgetJob(dwJob);
      world.journal.Clear();
    }
    sim::World world;
    std::vector<HANDLE> ports;
    std::size_t nNext = 0;
  };
  // One world at a time is attached, so the three are timed one after the other, in several rounds.
  constexpr int kJobs = 3000;
  double adBest[3] = {1e9, 1e9, 1e9};
  for (int nRound = 0; nRound < 5; ++nRound) {
    constexpr int kPorts[3] = {1, 100, 1000};
    for (int n = 0; n < 3; ++n) {
      Machine machine(kPorts[n]);
      for (int nWarm = 0; nWarm < 1000; ++nWarm) machine.Job();
      const auto start = std::chrono::steady_clock::now();
      for (int nJob = 0; nJob < kJobs; ++nJob) machine.Job();
      const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
      adBest[n] = std::min(adBest[n], elapsed.count() / kJobs);
    }
  }
  table.Add({"whole small job with 100 open ports", "the job with 1 port", "ns", adBest[0], adBest[1],
             adBest[1] / adBest[0], Goal::TimesAtMost, 1.2});
  table.Add({"whole small job with 1,000 open ports", "the job with 1 port", "ns", adBest[0], adBest[2],
             adBest[2] / adBest[0], Goal::TimesAtMost, 1.2});
}

#ifndef _WIN32  // where a pause of half a second costs nothing
// A confirmed job that logs everything, beside the lines that it writes.
void LoggedJob(Table& table) {
  if (!table.Wants("confirmed 10 KB job, all levels logged")) return;
  sim::World world;
  world.SetLogLevel(0x596);
  w32::AdvanceClock(20'000);  // the mask is read again
  world.Attach();
  world.AddPrinter("Till", "USB001", "Kelvane HM-520").data["AutoReprint"] = sim::Spooler::Dword(1);
  const HANDLE hPort = world.spooler.OpenPort("USB001", "Till");
  const std::string strData = sim::Receipt(10'000);
  const auto job = [&] {
    const DWORD dwJob = world.spooler.NewJob("Till", "TEXT");
    world.spooler.Print(hPort, dwJob, strData);
    world.spooler.ForgetJob(dwJob);
    world.journal.Clear();
  };
  job();
  const std::string strBefore = sim::World::LogText();
  job();
  std::vector<std::string> lines;
  const std::string strText = sim::World::LogText().substr(strBefore.size());
  for (std::size_t nAt = 0; nAt < strText.size();) {
    const std::size_t nEnd = std::min(strText.find("\r\n", nAt), strText.size() - 2) + 2;
    lines.push_back(strText.substr(nAt, nEnd - nAt));
    nAt = nEnd;
  }
  BareLine bare;
  const auto watch = [](LPVOID hStop) -> DWORD { return WaitForSingleObject(hStop, 500); };
  table.Time(
      "confirmed 10 KB job, all levels logged", "its lines and its thread, bare", Goal::TimesAtMost, 1.3,
      [&] {
        const HANDLE hStop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        DWORD dwThreadId = 0;
        const HANDLE hThread = CreateThread(nullptr, 0, watch, hStop, 0, &dwThreadId);
        for (const std::string& strLine : lines) bare.Write(strLine.data(), static_cast<DWORD>(strLine.size()));
        SetEvent(hStop);
        WaitForSingleObject(hThread, INFINITE);
        CloseHandle(hThread);
        CloseHandle(hStop);
      },
      job);
  world.spooler.ClosePort(hPort);
  sim::World::SetLogLevel(0);
  w32::AdvanceClock(20'000);
}
#endif

#ifndef _WIN32  // the layer counts the product's heap; Windows' own heap does not tell it apart from the simulated world's
void Memory(Table& table) {
  if (!table.Wants("memory of one more open port") && !table.Wants("memory of a 100 MB job with reprint, at its peak"))
    return;
  sim::World world;
  world.SetLogLevel(0);
  world.Attach();
  constexpr int kPorts = 1000;
  for (int n = 0; n <= kPorts; ++n) world.AddPrinter("Till", sim::Format("USB0%04d", n), "Kelvane HM-520");
  std::vector<HANDLE> ports{world.spooler.OpenPort("USB00000", "Till")};
  const auto before = static_cast<double>(w32::HeapBytes().ullNow);
  for (int n = 1; n <= kPorts; ++n) ports.push_back(world.spooler.OpenPort(sim::Format("USB0%04d", n), "Till"));
  const double dPort = (static_cast<double>(w32::HeapBytes().ullNow) - before) / kPorts;
  const double dRecords = sizeof(IniPort) + sizeof(CSdk) + sizeof(wchar_t) * (sizeof "USB00000" + sizeof "Till");
  table.Add({"memory of one more open port", "sizes of its records and names", "bytes", dRecords, dPort,
             dPort / dRecords, Goal::TimesAtMost, 1.1});
  for (std::size_t n = 1; n < ports.size(); ++n) world.spooler.ClosePort(ports[n]);

  world.spooler.FindQueue("Till")->data["AutoReprint"] = sim::Spooler::Dword(1);
  const DWORD dwJob = world.spooler.NewJob("Till", "TEXT");
  world.spooler.StartDoc(ports[0], dwJob);
  static_cast<IniPort*>(ports[0])->pSdkMng->pDevIoCtrl = TakeEverything;
  std::vector<BYTE> bytes = TextBuffer();
  const w32::HeapCount start = w32::HeapBytes();
  w32::ResetHeapPeak();
  constexpr double kJob = 100e6;
  {
    const sim::ActAsClient client;
    for (double d = 0; d < kJob; d += kBufferBytes) {
      DWORD cbWritten = 0;
      world.spooler.pMonitor->pfnWritePort(ports[0], bytes.data(), kBufferBytes, &cbWritten);
    }
  }
  const double dPeak = static_cast<double>(w32::HeapBytes().ullPeak - start.ullNow);
  table.Add({"memory of a 100 MB job with reprint, at its peak", "the job's bytes", "bytes", kJob, dPeak, dPeak / kJob,
             Goal::TimesAtMost, 2.1});
  world.spooler.SetStatus(dwJob, JOB_STATUS_DELETING);
  world.spooler.EndDoc(ports[0]);
  world.spooler.ClosePort(ports[0]);
}
#endif

}  // namespace

void JobRows(Table& table) {
  DeviceWrites(table);
  PortMonitorJob(table);
  ManyPorts(table);
#ifndef _WIN32
  LoggedJob(table);
  Memory(table);
#endif
}

}  // namespace bench
