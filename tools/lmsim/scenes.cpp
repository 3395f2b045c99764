// The scenes: the threads that really meet, and nothing else.
#include <utility>

#include "log/log.h"
#include "tools/lmsim/scene.h"

using sim::FaultKind;

namespace {

// What a scene keeps between its building and its play; the process is the scene's own.
HANDLE g_hPorts[2];
SceneJob* g_pJobs[3];

void BuildTill(Stage& stage, const std::string& strData, const sim::PrinterSettings& settings = {},
               const std::string& strDatatype = "TEXT") {
  g_hPorts[0] = stage.AddTill("Till", "USB001", settings);
  g_pJobs[0] = &stage.AddJob("Till", strData, strDatatype);
}

void PrintFirst(Stage& stage, const sim::PrintOptions& options = {}) {
  stage.Thread("spooler", [&stage, options] { stage.Print(g_hPorts[0], *g_pJobs[0], options); });
}

void DeleteFirst(Stage& stage, DWORD dwBits, bool bTakenBack = false, DWORD dwWithinMs = INFINITE) {
  std::vector<std::function<void()>> acts = {
      [&stage, dwBits] { stage.World().spooler.SetStatus(g_pJobs[0]->dwId, dwBits); }};
  if (bTakenBack) acts.emplace_back([&stage, dwBits] { stage.World().spooler.ClearStatus(g_pJobs[0]->dwId, dwBits); });
  stage.Happens(acts, dwWithinMs);
}

// A printer whose buffer holds less than the job, so that a send waits for it.
constexpr sim::PrinterSettings kSlow = {.cbBuffer = 60, .dwBytesPerSecond = 1000};

const std::vector<std::string> kLooks = {"GetJobW"};

const Scene kScenes[] = {
    {"deletion", "a job is deleted at any moment",
     [](Stage& stage) {
       PrintFirst(stage);
       DeleteFirst(stage, JOB_STATUS_DELETING);
     },
     [](Stage& stage) { BuildTill(stage, sim::Receipt(100)); }, nullptr, kLooks},

    {"deletion-taken-back", "a job is restarted, and that is taken back",
     [](Stage& stage) {
       PrintFirst(stage);
       DeleteFirst(stage, JOB_STATUS_RESTART, true);
     },
     [](Stage& stage) { BuildTill(stage, sim::Receipt(100)); }, nullptr, kLooks, 1},

    {"deletion-raw", "a job that nobody confirms is deleted, and that is taken back",
     [](Stage& stage) {
       PrintFirst(stage);
       DeleteFirst(stage, JOB_STATUS_DELETING, true);
     },
     [](Stage& stage) { BuildTill(stage, sim::Receipt(100), {}, "RAW"); }, nullptr, kLooks, 1},

    {"deletion-sending", "a job is deleted while its data waits for the printer",
     [](Stage& stage) {
       PrintFirst(stage);
       DeleteFirst(stage, JOB_STATUS_DELETING);
     },
     [](Stage& stage) { BuildTill(stage, sim::Receipt(90), kSlow); }, nullptr, kLooks, 1, false},

    {"deletion-resending", "a lost job is deleted while it is sent again",
     [](Stage& stage) {
       PrintFirst(stage);
       DeleteFirst(stage, JOB_STATUS_DELETING);
     },
     [](Stage& stage) {
       BuildTill(stage, sim::Receipt(100), kSlow);
       stage.World().library.SetPartialSends(70);
       stage.World().PrinterOf("USB001").Plan({FaultKind::PaperEnd, 80, 100});
     },
     nullptr, kLooks, 1, false},

    {"deletion-offline", "a job is deleted whose printer is off line",
     [](Stage& stage) {
       PrintFirst(stage);
       DeleteFirst(stage, JOB_STATUS_DELETING);
     },
     [](Stage& stage) {
       BuildTill(stage, sim::Receipt(100));
       stage.World().PrinterOf("USB001").Plan({FaultKind::OffLine, 0, 3000});
     },
     nullptr, kLooks, 1},

    {"refused", "a job of an unknown model, whose device refuses to be cancelled, is deleted at its end",
     [](Stage& stage) {
       stage.Thread("spooler", [&stage] { stage.Print(g_hPorts[0], *g_pJobs[0]); });
       DeleteFirst(stage, JOB_STATUS_DELETING, false, 5000);
     },
     [](Stage& stage) {
       g_hPorts[0] = stage.AddTill("Till", "USB001", {}, "Somebody's Laser");
       g_pJobs[0] = &stage.AddJob("Till", "");
       stage.World().library.Answer("SDK_CANCEL_IO_EX", ERROR_GEN_FAILURE, 1'000'000);
     },
     [](Stage& stage) {
       stage.verdict.AtMost(stage.World().journal.Count("sdk SDK_CANCEL_IO_EX"), 24u,
                            "tries to cancel in five seconds");
     },
     kLooks, 1, false},

    {"one-device",
     "two ports print on one device",
     [](Stage& stage) {
       PrintFirst(stage);
       stage.Thread("spooler B", [&stage] { stage.Print(g_hPorts[1], *g_pJobs[1]); });
     },
     [](Stage& stage) {
       BuildTill(stage, sim::Receipt(100));
       sim::Queue& queue =
           stage.World().AddQueueOn(stage.World().PrinterOf("USB001"), "Bar", "USB002", "Kelvane HM-520");
       queue.data["AutoReprint"] = sim::Spooler::Dword(1);
       g_hPorts[1] = stage.World().spooler.OpenPort("USB002", "Bar");
       g_pJobs[1] = &stage.AddJob("Bar", sim::Receipt(80, 'b'));
     },
     [](Stage& stage) {
       for (int n = 0; n < 2; ++n) {
         stage.verdict.Holds(g_pJobs[n]->result.bDelivered, "it is printed");
       }
     },
     {},
     1},

    {"close-writing",
     "a port is closed beside a job",
     [](Stage& stage) {
       PrintFirst(stage);
       stage.Thread("closer",
                    [&stage] { stage.verdict.Holds(stage.World().spooler.ClosePort(g_hPorts[0]), "it is closed"); });
     },
     [](Stage& stage) {
       BuildTill(stage, sim::Receipt(100));
       g_pJobs[0]->bMayBeCutOff = true;
     },
     nullptr,
     {}},

    {"close-asking",
     "a port is closed beside a request",
     [](Stage& stage) {
       stage.Thread("driver", [&stage] { stage.World().spooler.Ask(g_hPorts[0], "DO_SETTING_SHARE_PRN__Front"); });
       stage.Thread("closer",
                    [&stage] { stage.verdict.Holds(stage.World().spooler.ClosePort(g_hPorts[0]), "it is closed"); });
     },
     [](Stage& stage) { g_hPorts[0] = stage.AddTill("Till", "USB001"); },
     nullptr,
     {}},

    {"close-held-request",
     "a port is closed beside a request that the port monitor holds",
     [](Stage& stage) {
       stage.Thread("driver", [&stage] { stage.World().spooler.Ask(g_hPorts[0], "anything"); });
       stage.Thread("closer", [&stage] {
         const DWORD dwStart = GetTickCount();
         stage.verdict.Holds(stage.World().spooler.ClosePort(g_hPorts[0]), "it is closed");
         stage.verdict.AtMost(GetTickCount() - dwStart, 1000 + w32::LateMilliseconds(), "milliseconds of the close");
       });
       stage.Thread("port monitor", [&stage] {
         Sleep(60'000);
         SetEvent(stage.World().portMonitor.Port("USB001").hHoldRequests);
       });
     },
     [](Stage& stage) {
       g_hPorts[0] = stage.AddTill("Till", "USB001");
       stage.World().portMonitor.Port("USB001").hHoldRequests = CreateEventW(nullptr, TRUE, FALSE, nullptr);
     },
     [](Stage& stage) { CloseHandle(std::exchange(stage.World().portMonitor.Port("USB001").hHoldRequests, nullptr)); },
     {}},

    {"start-beside-end",
     "a job starts beside the end of the one before",
     [](Stage& stage) {
       PrintFirst(stage);
       stage.Thread("spooler B", [&stage] { stage.Print(g_hPorts[0], *g_pJobs[1]); });
     },
     [](Stage& stage) {
       BuildTill(stage, sim::Receipt(100));
       g_pJobs[1] = &stage.AddJob("Till", sim::Receipt(80, 'b'));
     },
     [](Stage& stage) {
       bool bOne = false;
       for (int n = 0; n < 2; ++n) {
         const SceneJob& job = *g_pJobs[n];
         bOne |= job.result.bDelivered;
         stage.verdict.Holds(job.result.bDelivered || (!job.result.bStarted && job.result.dwError == ERROR_BUSY),
                             "printed, or refused as busy");
       }
       stage.verdict.Holds(bOne, "one of the two is printed");
     },
     {},
     1},

    {"service",
     "the device-access service stops and starts beside two jobs",
     [](Stage& stage) {
       stage.Thread("spooler", [&stage] {
         for (int n = 0; n < 2; ++n) stage.Print(g_hPorts[0], *g_pJobs[n]);
       });
       stage.Happens({[&stage] { stage.World().services.dwState = SERVICE_STOPPED; },
                      [&stage] { stage.World().services.dwState = SERVICE_RUNNING; }});
     },
     [](Stage& stage) {
       BuildTill(stage, sim::Receipt(100));
       g_pJobs[1] = &stage.AddJob("Till", sim::Receipt(80, 'b'));
     },
     [](Stage& stage) {
       for (int n = 0; n < 2; ++n) {
         stage.verdict.Holds(g_pJobs[n]->result.bDelivered, "it is printed");
       }
     },
     {"QueryServiceStatus"},
     1},

    {"settings",
     "the settings change beside two jobs",
     [](Stage& stage) {
       stage.Thread("spooler", [&stage] {
         for (int n = 0; n < 2; ++n) stage.Print(g_hPorts[0], *g_pJobs[n]);
       });
       stage.Happens(
           {[] { sim::World::SetMachineDword("SOFTWARE\\Kelvane\\PrinterDriver", "OpenWithStartDoc", 1); },
            [&stage] { stage.World().spooler.FindQueue("Till")->data["AutoReprint"] = sim::Spooler::Dword(0); }});
     },
     [](Stage& stage) {
       BuildTill(stage, sim::Receipt(100));
       g_pJobs[1] = &stage.AddJob("Till", sim::Receipt(80, 'b'));
     },
     [](Stage& stage) {
       for (int n = 0; n < 2; ++n) {
         stage.verdict.Holds(g_pJobs[n]->result.bDelivered, "it is printed");
       }
     },
     {"RegQueryValueExW", "GetPrinterDataW"},
     1},

    {"log-held",
     "two threads log while another process holds the mutex",
     [](Stage& stage) {
       for (const char* pszName : {"A", "B"}) {
         stage.Thread(pszName, [pszName] {
           OutputLogEx(LOG_LEVEL_E, "DRV_LM \0PrinterDriver", "Scene", "", 1, GetCurrentProcessId(),
                       GetCurrentThreadId(), L"line of %s", sim::Wide(pszName).c_str());
         });
       }
       stage.Thread("another process", [] {
         const HANDLE hMutex = CreateMutexW(nullptr, FALSE, L"Global\\Kelvane_SDK_LOGS2");
         if (WaitForSingleObject(hMutex, INFINITE) == WAIT_OBJECT_0) ReleaseMutex(hMutex);
         CloseHandle(hMutex);
       });
     },
     [](Stage&) {
       sim::World::SetLogLevel(0x002);
       w32::AdvanceClock(20'000);  // the settings are read again
     },
     [](Stage& stage) {
       for (const char* pszLine : {"line of A\r\n", "line of B\r\n"})
         stage.verdict.Equal(sim::World::LogCount(pszLine), 1u, pszLine);
     },
     {},
     1,
     true,
     1,
     true},

    {"day-change",
     "a job is archived while the day changes",
     [](Stage& stage) {
       sim::PrintOptions options;
       options.cbChunk = 50;
       PrintFirst(stage, options);
       stage.Happens({[] { w32::SetClock({2026, 11, 4, 19, 0, 0, 0, 0}); }});
     },
     [](Stage& stage) {
       w32::SetClock({2026, 11, 3, 18, 23, 59, 50, 0});
       BuildTill(stage, sim::Receipt(100));
       sim::Queue& queue = *stage.World().spooler.FindQueue("Till");
       queue.data["JobFilePath"] = sim::Spooler::Text("C:\\Jobs");
       queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
     },
     [](Stage& stage) {
       const auto files = sim::World::ArchivedFiles("C:\\Jobs");
       stage.verdict.Equal(files.size(), 1u, "archived files");
       for (const auto& [strName, strBytes] : files)
         stage.verdict.Holds(strBytes == g_pJobs[0]->strData, "the archive has the job whole");
     },
     {"GetLocalTime", "CreateDirectoryW", "CreateFileW"},
     1,
     true,
     0,
     true},
};

}  // namespace

std::span<const Scene> AllScenes() { return kScenes; }
