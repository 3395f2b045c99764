// The scenes: the threads that really meet, and nothing else.
#include <utility>

#include "log/log.h"
#include "tools/lmsim/scene.h"

using sim::FaultKind;

namespace {

// What a scene keeps between its building and its play; the process is the scene's own.
HANDLE g_hPorts[2];
SceneJob* g_pJobs[2];

void BuildTill(Stage& stage, const std::string& strData, const sim::PrinterSettings& settings = {},
               const std::string& strDatatype = "TEXT") {
  g_hPorts[0] = stage.AddTill("Till", "USB001", settings);
  g_pJobs[0] = &stage.AddJob("Till", strData, strDatatype);
}

void PrintFirst(Stage& stage) {
  stage.Thread("spooler", [&stage] { stage.Print(g_hPorts[0], *g_pJobs[0]); });
}

void DeleteFirst(Stage& stage, DWORD dwBits, bool bTakenBack = false, DWORD dwWithinMs = INFINITE) {
  std::vector<std::function<void()>> acts = {
      [&stage, dwBits] { stage.World().spooler.SetStatus(g_pJobs[0]->dwId, dwBits); }};
  if (bTakenBack) acts.emplace_back([&stage, dwBits] { stage.World().spooler.ClearStatus(g_pJobs[0]->dwId, dwBits); });
  stage.Happens(acts, dwWithinMs);
}

void PrintAndDelete(Stage& stage) {
  PrintFirst(stage);
  DeleteFirst(stage, JOB_STATUS_DELETING);
}

// A printer whose buffer holds less than the job, so that a send waits for it.
constexpr sim::PrinterSettings kSlow = {.cbBuffer = 60, .dwBytesPerSecond = 1000};

const std::vector<std::string> kLooks = {"GetJobW"};

void BuildTwoJobs(Stage& stage) {
  BuildTill(stage, sim::Receipt(100));
  g_pJobs[1] = &stage.AddJob("Till", sim::Receipt(80, 'b'));
}

// One after the other.
void PrintBoth(Stage& stage) {
  stage.Thread("spooler", [&stage] {
    for (int n = 0; n < 2; ++n) stage.Print(g_hPorts[0], *g_pJobs[n]);
  });
}

void CloseFirst(Stage& stage) {
  stage.Thread("closer", [&stage] {
    const DWORD dwStart = GetTickCount();
    stage.verdict.Holds(stage.World().spooler.ClosePort(g_hPorts[0]), "it is closed");
    stage.verdict.AtMost(GetTickCount() - dwStart, 10'000 + w32::LateMilliseconds(), "milliseconds of the close");
  });
}

void BothArePrinted(Stage& stage) {
  for (int n = 0; n < 2; ++n) stage.verdict.Holds(g_pJobs[n]->result.bDelivered, "it is printed");
}

const Scene kScenes[] = {
    {.pszName = "deletion",
     .pszWhat = "a job is deleted at any moment",
     .pfnBuild = [](Stage& stage) { BuildTill(stage, sim::Receipt(100)); },
     .pfnPlay = PrintAndDelete,
     .affected = kLooks,
     .nShare = 1,
     .pszShareFrom = "SetJobW"},

    {.pszName = "deletion-taken-back",
     .pszWhat = "a job is restarted, and that is taken back",
     .pfnBuild = [](Stage& stage) { BuildTill(stage, sim::Receipt(100)); },
     .pfnPlay =
         [](Stage& stage) {
           PrintFirst(stage);
           DeleteFirst(stage, JOB_STATUS_RESTART, true);
         },
     .affected = kLooks,
     .pszFrom = "sdk send"},

    {.pszName = "deletion-raw",
     .pszWhat = "a job that nobody confirms is deleted, and that is taken back",
     .pfnBuild = [](Stage& stage) { BuildTill(stage, sim::Receipt(90), kSlow, "RAW"); },
     .pfnPlay =
         [](Stage& stage) {
           PrintFirst(stage);
           DeleteFirst(stage, JOB_STATUS_DELETING, true);
         },
     .affected = kLooks,
     .nShare = 1,
     .pszShareFrom = "SetJobW"},

    {.pszName = "deletion-sending",
     .pszWhat = "a job is deleted while its data waits for the printer",
     .pfnBuild = [](Stage& stage) { BuildTill(stage, sim::Receipt(90), kSlow); },
     .pfnPlay = PrintAndDelete,
     .affected = kLooks},

    // One that waits longer than a deleted job may take.
    {.pszName = "deletion-stuck",
     .pszWhat = "a job is deleted while a printer that takes hardly anything has its data",
     .pfnBuild = [](Stage& stage) { BuildTill(stage, sim::Receipt(90), {.cbBuffer = 60, .dwBytesPerSecond = 14}); },
     .pfnPlay = PrintAndDelete,
     .affected = kLooks,
     .nPreemptions = 1,
     .nPreemptionsWithFault = -1,
     .pszFrom = "sdk send"},

    {.pszName = "deletion-resending",
     .pszWhat = "a lost job is deleted while it is sent again",
     .pfnBuild =
         [](Stage& stage) {
           BuildTill(stage, sim::Receipt(40), {.cbBuffer = 20, .dwBytesPerSecond = 1000});
           stage.World().library.SetPartialSends(30);
           stage.World().PrinterOf("USB001").Plan({FaultKind::PaperEnd, 35, 100});
         },
     .pfnPlay = PrintAndDelete,
     .affected = kLooks,
     .pszFrom = "SetJobW",
     .nShare = 1},

    {.pszName = "deletion-offline",
     .pszWhat = "a job is deleted whose printer is off line",
     .pfnBuild =
         [](Stage& stage) {
           BuildTill(stage, sim::Receipt(100));
           stage.World().PrinterOf("USB001").Plan({FaultKind::OffLine, 0, 400});
         },
     .pfnPlay = PrintAndDelete,
     .affected = kLooks},

    {.pszName = "refused",
     .pszWhat = "a job of an unknown model, whose device refuses to be cancelled, is deleted at its end",
     .pfnBuild =
         [](Stage& stage) {
           g_hPorts[0] = stage.AddTill("Till", "USB001", {}, "Somebody's Laser");
           g_pJobs[0] = &stage.AddJob("Till", "");
           stage.World().library.Answer("SDK_CANCEL_IO_EX", ERROR_GEN_FAILURE, 1'000'000);
         },
     .pfnPlay =
         [](Stage& stage) {
           PrintFirst(stage);
           DeleteFirst(stage, JOB_STATUS_DELETING, false, 700);
         },
     .pfnCheck =
         [](Stage& stage) {
           // The pause between tries grows to half a second: eight until the watcher looks, and three more at the end.
           stage.verdict.AtMost<std::uint64_t>(stage.World().journal.Count("sdk SDK_CANCEL_IO_EX"),
                                               11 + w32::LateMilliseconds() / 500, "tries to cancel in 0.7 s");
         },
     .affected = kLooks},

    {.pszName = "one-device",
     .pszWhat = "two ports print on one device",
     .pfnBuild =
         [](Stage& stage) {
           BuildTill(stage, sim::Receipt(100));
           sim::Queue& queue =
               stage.World().AddQueueOn(stage.World().PrinterOf("USB001"), "Bar", "USB002", "Kelvane HM-520");
           queue.data["AutoReprint"] = sim::Spooler::Dword(1);
           g_hPorts[1] = stage.World().spooler.OpenPort("USB002", "Bar");
           g_pJobs[1] = &stage.AddJob("Bar", sim::Receipt(80, 'b'));
         },
     .pfnPlay =
         [](Stage& stage) {
           PrintFirst(stage);
           stage.Thread("spooler B", [&stage] { stage.Print(g_hPorts[1], *g_pJobs[1]); });
         },
     .pfnCheck = BothArePrinted,
     .pszFrom = "sdk SDK_SET_LOCK"},

    {.pszName = "close-writing",
     .pszWhat = "a port is closed beside a job",
     .pfnBuild =
         [](Stage& stage) {
           BuildTill(stage, sim::Receipt(100));
           g_pJobs[0]->bMayBeCutOff = true;
         },
     .pfnPlay =
         [](Stage& stage) {
           PrintFirst(stage);
           CloseFirst(stage);
         }},

    {.pszName = "close-asking",
     .pszWhat = "a port is closed beside a request",
     .pfnBuild = [](Stage& stage) { g_hPorts[0] = stage.AddTill("Till", "USB001"); },
     .pfnPlay =
         [](Stage& stage) {
           stage.Thread("driver", [&stage] { stage.World().spooler.Ask(g_hPorts[0], "DO_SETTING_SHARE_PRN__Front"); });
           CloseFirst(stage);
         }},

    {.pszName = "close-held-request",
     .pszWhat = "a port is closed beside a request that the port monitor holds",
     .pfnBuild =
         [](Stage& stage) {
           g_hPorts[0] = stage.AddTill("Till", "USB001");
           stage.World().portMonitor.Port("USB001").hHoldRequests = CreateEventW(nullptr, TRUE, FALSE, nullptr);
         },
     .pfnPlay =
         [](Stage& stage) {
           stage.Thread("driver", [&stage] {
             stage.World().spooler.Ask(g_hPorts[0], "anything");
             CloseHandle(std::exchange(stage.World().portMonitor.Port("USB001").hHoldRequests, nullptr));
           });
           CloseFirst(stage);
           stage.Thread("port monitor", [&stage] {
             const w32::FaultsOn exempt(false);
             Sleep(60'000);
             if (const HANDLE hHeld = stage.World().portMonitor.Port("USB001").hHoldRequests) SetEvent(hHeld);
           });
         }},

    {.pszName = "start-beside-end",
     .pszWhat = "a job starts beside the end of the one before",
     .pfnBuild = BuildTwoJobs,
     .pfnPlay =
         [](Stage& stage) {
           PrintFirst(stage);
           stage.Thread("spooler B", [&stage] { stage.Print(g_hPorts[0], *g_pJobs[1]); });
         },
     .pfnCheck =
         [](Stage& stage) {
           bool bOne = false;
           for (const SceneJob* pJob : {g_pJobs[0], g_pJobs[1]}) {
             const sim::PrintResult& result = pJob->result;
             bOne |= result.bDelivered;
             stage.verdict.Holds(result.bDelivered || (!result.bStarted && result.dwError == ERROR_BUSY),
                                 "printed, or refused as busy");
           }
           stage.verdict.Holds(bOne, "one of the two is printed");
         }},

    {.pszName = "service",
     .pszWhat = "the device-access service stops and starts beside two jobs",
     .pfnBuild = BuildTwoJobs,
     .pfnPlay =
         [](Stage& stage) {
           PrintBoth(stage);
           stage.Happens({[&stage] { stage.World().services.dwState = SERVICE_STOPPED; },
                          [&stage] { stage.World().services.dwState = SERVICE_RUNNING; }});
         },
     .pfnCheck = BothArePrinted,
     .affected = {"QueryServiceStatus"}},

    {.pszName = "settings",
     .pszWhat = "the settings change beside two jobs",
     .pfnBuild =
         [](Stage& stage) {
           BuildTwoJobs(stage);
           for (SceneJob* pJob : g_pJobs) pJob->bToBeConfirmed = false;  // which of them are, comes out
         },
     .pfnPlay =
         [](Stage& stage) {
           PrintBoth(stage);
           stage.Happens({[&stage] {
             sim::World::SetMachineDword("SOFTWARE\\Kelvane\\PrinterDriver", "OpenWithStartDoc", 1);
             stage.World().spooler.FindQueue("Till")->data["AutoReprint"] = sim::Spooler::Dword(0);
           }});
         },
     .pfnCheck =
         [](Stage& stage) {
           BothArePrinted(stage);
           const sim::Journal& journal = stage.World().journal;
           stage.verdict.Equal(journal.Count("sdk send 6/6"), journal.Count("sdk send 3/3"),
                               "confirmations of the asked");
         },
     .affected = {"RegQueryValueExW", "GetPrinterDataW"},
     .pszFrom = "SetJobW"},  // a job's start finds them changed: the second one's

    {.pszName = "log-held",
     .pszWhat = "two threads log while another process holds the mutex",
     .pfnBuild =
         [](Stage&) {
           sim::World::SetLogLevel(LOG_LEVEL_E);
           w32::AdvanceClock(20'000);  // the settings are read again
         },
     .pfnPlay =
         [](Stage& stage) {
           for (const char* pszName : {"A", "B"}) {
             stage.Thread(pszName, [pszName, &stage] {
               const DWORD dwStart = GetTickCount();
               OutputLogEx(LOG_LEVEL_E, "DRV_LM \0PrinterDriver", "Scene", "", 1, GetCurrentProcessId(),
                           GetCurrentThreadId(), L"line of %s", sim::Wide(pszName).c_str());
               stage.verdict.AtMost(GetTickCount() - dwStart, 61'100 + w32::LateMilliseconds(),
                                    "milliseconds of a line");
             });
           }
           stage.Thread("another process", [] {
             const w32::FaultsOn exempt(false);
             const HANDLE hMutex = CreateMutexW(nullptr, FALSE, L"Global\\Kelvane_SDK_LOGS2");
             if (WaitForSingleObject(hMutex, INFINITE) == WAIT_OBJECT_0) ReleaseMutex(hMutex);
             CloseHandle(hMutex);
           });
         },
     .pfnCheck =
         [](Stage& stage) {
           for (const char* pszLine : {"line of A\r\n", "line of B\r\n"})
             stage.verdict.Equal(sim::World::LogCount(pszLine), 1u, pszLine);
         },
     .bFiles = true},

    {.pszName = "day-change",
     .pszWhat = "the day changes beside the ends of two archived jobs",
     .pfnBuild =
         [](Stage& stage) {
           w32::SetClock({2026, 11, 3, 18, 23, 59, 50, 0});
           stage.World().services.dwState = SERVICE_STOPPED;
           for (int n = 0; n < 2; ++n) {
             const std::string strQueue = n == 0 ? "Till" : "Bar";
             g_hPorts[n] = stage.AddTill(strQueue, n == 0 ? "COM1" : "COM2");
             g_pJobs[n] = &stage.AddJob(strQueue, sim::Receipt(100, n == 0 ? 'A' : 'b'));
             sim::Queue& queue = *stage.World().spooler.FindQueue(strQueue);
             queue.data["JobFilePath"] = sim::Spooler::Text("C:\\Jobs");
             queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
             queue.data["UtilityGUID"] = sim::Spooler::Text("{1}");
           }
           CreateDirectoryW(L"C:\\Jobs", nullptr);
           CreateDirectoryW(L"C:\\Jobs\\20261118", nullptr);
         },
     .pfnPlay =
         [](Stage& stage) {
           PrintFirst(stage);
           stage.Thread("spooler B", [&stage] { stage.Print(g_hPorts[1], *g_pJobs[1]); });
           stage.Happens({[] { w32::SetClock({2026, 11, 4, 19, 0, 0, 0, 0}); }});
         },
     .pfnCheck =
         [](Stage& stage) {
           BothArePrinted(stage);
           std::string strAll;
           for (const auto& [strName, strBytes] : sim::World::ArchivedFiles("C:\\Jobs")) strAll += strBytes;
           for (const SceneJob* pJob : {g_pJobs[0], g_pJobs[1]})
             stage.verdict.Holds(strAll.find(pJob->strData) != std::string::npos, "the archive has the job whole");
         },
     .affected = {"GetLocalTime"},
     .pszFrom = "SetJobW",
     .bFiles = true},
};

}  // namespace

std::span<const Scene> AllScenes() { return kScenes; }
