#include "tools/lmsim/mishaps.h"

#include "posix/control.h"
#include "sim/world.h"

using sim::SideThread;

std::unique_ptr<SideThread> HoldLogMutex(DWORD dwMilliseconds) {
  return std::make_unique<SideThread>([dwMilliseconds] {
    const HANDLE hMutex = CreateMutexW(nullptr, FALSE, L"Global\\Kelvane_SDK_LOGS2");
    if (WaitForSingleObject(hMutex, INFINITE) == WAIT_OBJECT_0) {
      Sleep(dwMilliseconds);
      ReleaseMutex(hMutex);
    }
    CloseHandle(hMutex);
  });
}

void MakeOutside() {
  CreateDirectoryW(L"C:\\Outside", nullptr);
  CreateDirectoryW(L"C:\\Outside\\PrinterDriver", nullptr);
  sim::World::WriteWholeFile("C:\\Outside\\PrinterDriver\\20261118.log", "somebody's");
}

std::unique_ptr<SideThread> MakeLinks(std::vector<LinkPlan> plan, const std::atomic<bool>& bStop) {
  return std::make_unique<SideThread>([plan = std::move(plan), &bStop] {
    for (const auto& [strPlace, dwWait] : plan) {
      if (bStop) break;
      Sleep(dwWait);
      const sim::WideString place = sim::Wide(strPlace);
      const sim::WideString aside = sim::Wide(strPlace + ".aside");
      if (w32::TurnIntoLink(place.c_str(), L"C:\\Outside\\PrinterDriver")) {  // an empty one, where it stands
        Sleep(dwWait);
        w32::TurnIntoFolder(place.c_str());
        continue;
      }
      MoveFileW(place.c_str(), aside.c_str());
      if (!CreateSymbolicLinkW(place.c_str(), L"C:\\Outside\\PrinterDriver", SYMBOLIC_LINK_FLAG_DIRECTORY)) continue;
      Sleep(dwWait);
      RemoveDirectoryW(place.c_str());
      MoveFileW(aside.c_str(), place.c_str());
    }
  });
}

std::unique_ptr<SideThread> MeddleWithFiles(std::vector<std::string> places, std::mt19937_64& random,
                                            const std::atomic<bool>& bStop) {
  if (random() % 4 == 0) w32::RefuseNormalizedNames(true);  // a volume that tells only some names
  return std::make_unique<SideThread>([places = std::move(places), &random, &bStop] {
    for (int n = 0; n < 40 && !bStop; ++n) {
      Sleep(static_cast<DWORD>(random() % 300));
      const sim::WideString place = sim::Wide(places[random() % places.size()]);
      const bool bThere = GetFileAttributesW(place.c_str()) != INVALID_FILE_ATTRIBUTES;
      switch (random() % 5) {
        case 0:
          if (bThere) w32::RefuseSharing(place.c_str(), static_cast<DWORD>(random() % 60));
          break;
        case 1:
          if (bThere) w32::HoldOplock(place.c_str());
          Sleep(static_cast<DWORD>(random() % 400));
          w32::DropOplocks();
          break;
        case 2:
          if (bThere) w32::SetReparseTag(place.c_str(), 0x9000001A);
          break;
        case 3: sim::SetClient(static_cast<unsigned>(1 + random() % 3)); break;
        default: w32::RefuseHive(static_cast<unsigned>(1 + random() % 3), random() % 2 == 0);
      }
    }
  });
}

void EndMeddling() {
  w32::DropOplocks();
  w32::RefuseNormalizedNames(false);
  for (unsigned n = 1; n <= 3; ++n) w32::RefuseHive(n, false);
  sim::SetClient(1);
}

void MoveClock(int nSeconds) {
  FILETIME ft;
  SYSTEMTIME st;
  GetLocalTime(&st);
  SystemTimeToFileTime(&st, &ft);
  const std::uint64_t ull = (static_cast<std::uint64_t>(ft.dwHighDateTime) << 32 | ft.dwLowDateTime) +
                            static_cast<std::uint64_t>(nSeconds * 10'000'000LL);
  ft = {static_cast<DWORD>(ull), static_cast<DWORD>(ull >> 32)};
  FileTimeToSystemTime(&ft, &st);
  w32::SetClock(st);
}
