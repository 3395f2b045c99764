// The DLL itself, loaded as a spooler loads it, with the real kernel, registry, files and services.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include "tests/support/world_test.h"

using namespace testing_support;
using sim::World;

namespace {

sim::WideString ProgramFolder() {
  wchar_t wszPath[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, wszPath, MAX_PATH);
  const sim::WideString path(wszPath);
  return path.substr(0, path.rfind(L'\\'));
}

// Names in the DLL's export table and the libraries in its import table, read from the mapped image.
struct Image {
  explicit Image(HMODULE hModule) : pBase(reinterpret_cast<const BYTE*>(hModule)) {
    const auto* pDos = reinterpret_cast<const IMAGE_DOS_HEADER*>(pBase);
    pHeaders = reinterpret_cast<const IMAGE_NT_HEADERS64*>(pBase + pDos->e_lfanew);
  }
  const BYTE* Directory(int n) const { return pBase + pHeaders->OptionalHeader.DataDirectory[n].VirtualAddress; }
  std::vector<std::string> Exports() const {
    const auto* p = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(Directory(IMAGE_DIRECTORY_ENTRY_EXPORT));
    const auto* pNames = reinterpret_cast<const DWORD*>(pBase + p->AddressOfNames);
    std::vector<std::string> names;
    for (DWORD n = 0; n < p->NumberOfNames; ++n) names.emplace_back(reinterpret_cast<const char*>(pBase + pNames[n]));
    // A table of ordinals may begin with an empty place.
    const auto* pFunctions = reinterpret_cast<const DWORD*>(pBase + p->AddressOfFunctions);
    EXPECT_EQ(p->NumberOfFunctions - std::count(pFunctions, pFunctions + p->NumberOfFunctions, 0u), p->NumberOfNames);
    return names;
  }
  std::set<std::string> Imports() const {
    std::set<std::string> names;
    for (auto* p = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(Directory(IMAGE_DIRECTORY_ENTRY_IMPORT));
         p->Name != 0; ++p) {
      std::string strName = reinterpret_cast<const char*>(pBase + p->Name);
      for (char& c : strName) c = static_cast<char>(std::toupper(c));
      names.insert(strName);
    }
    return names;
  }
  const BYTE* pBase;
  const IMAGE_NT_HEADERS64* pHeaders;
};

// What a Windows that guards indirect calls does and Wine does not: it looks each call's target up in the DLL's table. One that
// is missing there would end the spooler.
struct Guard {
  static inline const BYTE* s_pBase;
  static inline DWORD s_cbImage;
  static inline std::set<DWORD> s_targets;
  static inline std::atomic<unsigned> s_nCalls;
  static void Take(const Image& image);
};

}  // namespace

extern "C" void GuardedCall();
extern "C" [[gnu::used]] void CheckGuardedCall(const BYTE* pTarget) {
  ++Guard::s_nCalls;
  const auto dwAt = static_cast<DWORD>(pTarget - Guard::s_pBase);
  if (pTarget < Guard::s_pBase || dwAt >= Guard::s_cbImage || Guard::s_targets.contains(dwAt)) return;
  std::fprintf(stderr, "an indirect call to %lx, which is not in the guard's table\n", dwAt);
  std::_Exit(1);
}
// The target is in rax; the call's own arguments stay.
__asm__(
    ".text\n.globl GuardedCall\nGuardedCall:\n"
    "push %rax\npush %rcx\npush %rdx\npush %r8\npush %r9\npush %r10\npush %r11\nsub $96, %rsp\n"
    "movups %xmm0, 32(%rsp)\nmovups %xmm1, 48(%rsp)\nmovups %xmm2, 64(%rsp)\nmovups %xmm3, 80(%rsp)\n"
    "mov %rax, %rcx\ncall CheckGuardedCall\n"
    "movups 32(%rsp), %xmm0\nmovups 48(%rsp), %xmm1\nmovups 64(%rsp), %xmm2\nmovups 80(%rsp), %xmm3\n"
    "add $96, %rsp\npop %r11\npop %r10\npop %r9\npop %r8\npop %rdx\npop %rcx\npop %rax\njmp *%rax\n");

void Guard::Take(const Image& image) {
  s_pBase = image.pBase;
  s_cbImage = image.pHeaders->OptionalHeader.SizeOfImage;
  ASSERT_NE(image.pHeaders->OptionalHeader.DllCharacteristics & 0x4000, 0);  // IMAGE_DLLCHARACTERISTICS_GUARD_CF
  const BYTE* pConfig = image.Directory(IMAGE_DIRECTORY_ENTRY_LOAD_CONFIG);
  const auto member = [&](int nOffset) { return *reinterpret_cast<const ULONG_PTR*>(pConfig + nOffset); };
  const auto* pTargets = reinterpret_cast<const DWORD*>(member(0x80));
  s_targets = std::set<DWORD>(pTargets, pTargets + member(0x88));
  ASSERT_EQ(static_cast<DWORD>(member(0x90)), 0x500u);  // calls are guarded; the table is there, four bytes an entry
  auto* pDispatch = reinterpret_cast<void**>(member(0x78));
  DWORD dwBefore = 0;
  ASSERT_TRUE(VirtualProtect(pDispatch, sizeof *pDispatch, PAGE_READWRITE, &dwBefore));
  *pDispatch = reinterpret_cast<void*>(&GuardedCall);
  // The system calls these two itself, and looks as well.
  EXPECT_TRUE(s_targets.contains(image.pHeaders->OptionalHeader.AddressOfEntryPoint));
  const auto pfn = reinterpret_cast<const BYTE*>(reinterpret_cast<void*>(
      GetProcAddress(reinterpret_cast<HMODULE>(const_cast<BYTE*>(s_pBase)), "InitializePrintMonitor2")));
  EXPECT_TRUE(s_targets.contains(static_cast<DWORD>(pfn - s_pBase)));
}

namespace {

// A world whose monitor is the DLL.
class Dll : public ::testing::Test {
 protected:
  Dll() {
    World::CleanMachine();
    m_world.emplace();
    m_hDll = LoadLibraryW((ProgramFolder() + L"\\kelvane_lm.dll").c_str());
    if (m_hDll == nullptr) return;
    Guard::Take(Image(m_hDll));
    const auto pfn = reinterpret_cast<LPMONITOR2(WINAPI*)(PMONITORINIT, PHANDLE)>(
        reinterpret_cast<void*>(GetProcAddress(m_hDll, "InitializePrintMonitor2")));
    m_init.cbSize = sizeof m_init;
    m_init.hSpooler = this;
    m_init.hckRegistryRoot = reinterpret_cast<decltype(m_init.hckRegistryRoot)>(this);
    m_init.pMonitorReg = &m_reg;
    m_init.pszServerName = L"\\\\TILL";
    HANDLE hMonitor = nullptr;
    MONITOR2* pTable = pfn(&m_init, &hMonitor);
    EXPECT_EQ(hMonitor, &m_init);
    m_world->Use(pTable, hMonitor);
  }
  ~Dll() override {
    if (m_hDll != nullptr) FreeLibrary(m_hDll);
  }
  World& world() { return *m_world; }
  std::optional<World> m_world;
  MONITORREG m_reg = {};
  MONITORINIT m_init = {};
  HMODULE m_hDll = nullptr;
};

TEST_F(Dll, ExportsOneNameAndImportsOnlySystemLibraries) {
  ASSERT_NE(m_hDll, nullptr);
  const Image image(m_hDll);
  EXPECT_EQ(image.Exports(), std::vector<std::string>{"InitializePrintMonitor2"});
  const std::set<std::string> allowed = {"KERNEL32.DLL", "ADVAPI32.DLL", "SHELL32.DLL",  "SHLWAPI.DLL",
                                         "USER32.DLL",   "MSVCRT.DLL",   "WINSPOOL.DRV", "SPOOLSS.DLL"};
  for (const std::string& strName : image.Imports()) EXPECT_EQ(allowed.count(strName), 1u) << strName;
}

TEST_F(Dll, TableHasEightSlots) {
  ASSERT_NE(m_hDll, nullptr);
  EXPECT_EQ(world().spooler.pMonitor->cbSize, 176u);
  EXPECT_NE(world().spooler.pMonitor->pfnOpenPortEx, nullptr);
  EXPECT_EQ(world().spooler.pMonitor->pfnOpenPort, nullptr);
  EXPECT_NE(world().spooler.pMonitor->pfnShutdown, nullptr);
}

TEST_F(Dll, ReceiptGoesThroughThePortMonitor) {
  world().AddPrinter("Till", "LPT1:", kModel);
  const HANDLE hPort = world().spooler.OpenPort("LPT1:", "Till");
  ASSERT_NE(hPort, nullptr);
  EXPECT_TRUE(
      world().spooler.Print(hPort, world().spooler.NewJob("Till", "TEXT"), Receipt(50'000) + "\x13(clr)").bDelivered);
  EXPECT_EQ(world().portMonitor.Port("LPT1:").strDelivered, Receipt(50'000) + "\x13(cls)");
  EXPECT_TRUE(world().spooler.ClosePort(hPort));
  EXPECT_EQ(World::LogCount("(*pIniPort->fn.pfnEndDocPort) [pszPortName:LPT1:, JobId:1]"), 1u);
  EXPECT_GT(Guard::s_nCalls, 0u);
  // The routines that the spooler calls by the table.
  for (const void* const* pp = reinterpret_cast<const void* const*>(world().spooler.pMonitor) + 1;
       pp < reinterpret_cast<const void* const*>(world().spooler.pMonitor + 1); ++pp)
    if (*pp != nullptr) {
      EXPECT_TRUE(Guard::s_targets.contains(static_cast<DWORD>(static_cast<const BYTE*>(*pp) - Guard::s_pBase)));
    }
}

// The service is real: installed, started, stopped and removed again.
class Service {
 public:
  Service() {
    m_hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    m_hService =
        CreateServiceW(m_hManager, L"Norvex_Srv", L"Norvex_Srv", SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                       SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, (ProgramFolder() + L"\\norvex_srv.exe").c_str(),
                       nullptr, nullptr, nullptr, nullptr, nullptr);
    if (m_hService == nullptr) m_hService = OpenServiceW(m_hManager, L"Norvex_Srv", SERVICE_ALL_ACCESS);
  }
  ~Service() {
    Stop();
    DeleteService(m_hService);
    CloseServiceHandle(m_hService);
    CloseServiceHandle(m_hManager);
  }
  // Wine's service manager gives a process ten seconds to report; on a busy machine the first attempt may run out.
  bool Start() {
    for (int nAttempt = 0; nAttempt < 4; ++nAttempt) {
      const bool bStarted = StartServiceW(m_hService, 0, nullptr) || GetLastError() == ERROR_SERVICE_ALREADY_RUNNING;
      if (bStarted && Reaches(SERVICE_RUNNING)) return true;
    }
    return false;
  }
  bool Stop() {
    SERVICE_STATUS status = {};
    return ControlService(m_hService, SERVICE_CONTROL_STOP, &status) && Reaches(SERVICE_STOPPED);
  }

 private:
  bool Reaches(DWORD dwState) {
    SERVICE_STATUS status = {};
    for (int n = 0; n < 200; ++n) {
      if (QueryServiceStatus(m_hService, &status) && status.dwCurrentState == dwState) return true;
      Sleep(50);
    }
    return false;
  }
  SC_HANDLE m_hManager = nullptr;
  SC_HANDLE m_hService = nullptr;
};

TEST_F(Dll, JobFollowsTheRealServiceBetweenTheTwoPaths) {
  Service service;
  world().AddPrinter("Till", "USB001", kModel);
  const HANDLE hPort = world().spooler.OpenPort("USB001", "Till");
  const auto print = [&](const char* psz) {
    return world().spooler.Print(hPort, world().spooler.NewJob("Till", "RAW"), psz).bDelivered;
  };
  EXPECT_TRUE(print("a"));
  ASSERT_TRUE(service.Start());
  EXPECT_TRUE(print("b"));
  EXPECT_TRUE(print("c"));
  ASSERT_TRUE(service.Stop());
  EXPECT_TRUE(print("d"));
  EXPECT_EQ(world().portMonitor.Port("USB001").strDelivered, "ad");
  EXPECT_EQ(world().journal.Count("sdk send 1/1"), 2u);  // through the real library file, by ordinal
  EXPECT_EQ(world().PrinterOf("USB001").LastStrip(), "abcd");
  world().spooler.ClosePort(hPort);
  EXPECT_EQ(world().library.OpenSessions(), 0u);
}

TEST_F(Dll, JobIsConfirmedPrintedAgainWhenLostAndStoppedWhenDeleted) {
  Service service;
  ASSERT_TRUE(service.Start());
  world().AddPrinter("Till", "USB001", kModel, {.cbBuffer = 4096, .dwBytesPerSecond = 20'000}).data["AutoReprint"] =
      sim::Spooler::Dword(1);
  sim::Spooler& spooler = world().spooler;
  sim::Printer& printer = world().PrinterOf("USB001");
  const HANDLE hPort = spooler.OpenPort("USB001", "Till");
  printer.Plan({sim::FaultKind::PaperEnd, 3000, 1000});
  EXPECT_TRUE(spooler.Print(hPort, spooler.NewJob("Till", "TEXT"), Receipt(6000)).bDelivered);
  EXPECT_EQ(printer.LastStrip(), Receipt(6000));
  EXPECT_EQ(World::LogCount("ReprintDumpData() done."), 1u);
  EXPECT_EQ(world().journal.Count("sdk SDK_SET_RESET"), 1u);

  printer.Plan({sim::FaultKind::CoverOpen, 7000, 30'000});  // the next job waits for that long, unless it is deleted
  const DWORD dwJob = spooler.NewJob("Till", "TEXT");
  const DWORD dwStart = GetTickCount();
  auto pJob = spooler.PrintAsync(hPort, dwJob, Receipt(6000, 'X'));
  Sleep(1500);
  spooler.SetStatus(dwJob, JOB_STATUS_DELETING);
  pJob->Join();
  EXPECT_LT(GetTickCount() - dwStart, 15'000u);
  const std::vector<std::string> entries = world().journal.Of("sdk");
  const std::vector<std::string> end(entries.end() - 3, entries.end());
  EXPECT_EQ(end, (std::vector<std::string>{"sdk SDK_CANCEL_IO_EX timeout=0", "sdk SDK_SET_RESET timeout=5000",
                                           "sdk SDK_CLR_LOCK timeout=0"}));
  spooler.ClosePort(hPort);
  EXPECT_EQ(world().library.OpenSessions(), 0u);
}

TEST_F(Dll, LoadsAndUnloadsAHundredTimesWithoutALeak) {
  FreeLibrary(m_hDll);
  const sim::WideString path = ProgramFolder() + L"\\kelvane_lm.dll";
  const auto cycle = [&] {
    m_hDll = LoadLibraryW(path.c_str());
    ASSERT_NE(m_hDll, nullptr);
    FreeLibrary(m_hDll);
  };
  for (int n = 0; n < 3; ++n) cycle();
  DWORD dwBefore = 0;
  GetProcessHandleCount(GetCurrentProcess(), &dwBefore);
  for (int n = 0; n < 100; ++n) cycle();
  DWORD dwAfter = 0;
  GetProcessHandleCount(GetCurrentProcess(), &dwAfter);
  EXPECT_EQ(dwAfter, dwBefore);
  EXPECT_EQ(GetModuleHandleW(L"kelvane_lm.dll"), nullptr);
  m_hDll = nullptr;
}

}  // namespace
