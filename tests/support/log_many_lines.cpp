// Logs many lines: log_many_lines COUNT NAME. Run by the test of two processes that log at once.
#include <cstdlib>

#include "log/log.h"
#include "log/log_object.h"
#include "sim/text.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  LogObject().SetModuleFolder("DRV_LM \0PrinterDriver");
  // The registry of a POSIX process is its own: the mask is set here.
  HKEY hKey = nullptr;
  const DWORD dwMask = LOG_LEVEL_E;
  if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kelvane\\ThermalPrinterSdk", 0, nullptr, REG_OPTION_VOLATILE,
                      KEY_SET_VALUE, nullptr, &hKey, nullptr) != ERROR_SUCCESS)
    return 1;
  RegSetValueExW(hKey, L"LogLevelPos", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&dwMask), sizeof dwMask);
  RegCloseKey(hKey);
  const sim::WideString name = sim::Wide(argv[2]);
  const int nLines = std::atoi(argv[1]);
  for (int n = 0; n < nLines; ++n)
    OutputLogEx(LOG_LEVEL_E, nullptr, "main", "", n, GetCurrentProcessId(), GetCurrentThreadId(),
                L"%s line %05d of a process that logs beside another one", name.c_str(), n);
  return 0;
}
