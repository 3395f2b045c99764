// The value name of a printer-data request: whatever it is, the request reaches the port monitor and only a well-formed
// share name of at most 32 characters is set.
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "posix/control.h"
#include "sim/world.h"

namespace {

// One world for all runs; the port is opened anew for each, since a restored share is restored once a port.
sim::World& World() {
  static const auto pWorld = [] {
    w32::SetDebugSink([](const std::string&) {});
    auto p = std::make_unique<sim::World>();
    p->SetLogLevel(0);
    p->services.dwState = SERVICE_STOPPED;
    p->Attach();
    p->AddPrinter("Till", "COM1", "Kelvane HM-520");
    return p;
  }();
  return *pWorld;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t cb) {
  if (cb < 1 || cb > 200) return 0;
  sim::World& world = World();
  sim::WideString value;
  if ((pData[0] & 1) != 0) value = L"DO_SETTING_SHARE_PRN";
  for (std::size_t n = 1; n < cb; ++n) value += static_cast<wchar_t>(pData[n] & 0x7F);
  value = value.c_str();  // up to the first NUL
  sim::Queue& queue = *world.spooler.FindQueue("Till");
  queue.strShare.clear();
  world.journal.Clear();
  const HANDLE hPort = world.spooler.OpenPort("COM1", "Till");
  DWORD dwFlags = 0;
  DWORD cbReturned = 0;
  {
    const sim::ActAsClient client;
    world.spooler.pMonitor->pfnGetPrinterDataFromPort(
        hPort, 0, value.data(), nullptr, 0, reinterpret_cast<wchar_t*>(&dwFlags), sizeof dwFlags, &cbReturned);
  }
  world.spooler.ClosePort(hPort);
  const std::string strValue = sim::Narrow(value.c_str());
  const std::size_t nMark = strValue.find("__");
  std::string strExpected;
  if (strValue.starts_with("DO_SETTING_SHARE_PRN") && nMark != std::string::npos && strValue.size() - nMark - 2 <= 32)
    strExpected = strValue.substr(nMark + 2);
  if (queue.strShare != strExpected || world.journal.Count("port GetPrinterDataFromPort") != 1) {
    std::fprintf(stderr, "share \"%s\" for \"%s\"\n", queue.strShare.c_str(), strValue.c_str());
    std::abort();
  }
  return 0;
}
