#include "tools/lmctl/log/error_text.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace lmctl {
namespace {

// The documented texts of the codes that spooler, port monitors and device libraries use; logs are read on other systems too.
constexpr struct {
  std::int64_t nCode;
  const char* pszText;
} kTexts[] = {{1, "Incorrect function."},
              {2, "The system cannot find the file specified."},
              {3, "The system cannot find the path specified."},
              {5, "Access is denied."},
              {6, "The handle is invalid."},
              {8, "Not enough memory resources are available to process this command."},
              {13, "The data is invalid."},
              {21, "The device is not ready."},
              {29, "The system cannot write to the specified device."},
              {31, "A device attached to the system is not functioning."},
              {32, "The process cannot access the file because it is being used by another process."},
              {50, "The request is not supported."},
              {53, "The network path was not found."},
              {63, "Your file waiting to be printed was deleted."},
              {87, "The parameter is incorrect."},
              {111, "The file name is too long."},
              {112, "There is not enough space on the disk."},
              {121, "The semaphore timeout period has expired."},
              {122, "The data area passed to a system call is too small."},
              {158, "The segment is already unlocked."},
              {170, "The requested resource is in use."},
              {995, "The I/O operation has been aborted because of either a thread exit or an application request."},
              {1060, "The specified service does not exist as an installed service."},
              {1062, "The service has not been started."},
              {1117, "The request could not be performed because of an I/O device error."},
              {1167, "The device is not connected."},
              {1168, "Element not found."},
              {1460, "This operation returned because the timeout period expired."},
              {1722, "The RPC server is unavailable."},
              {1796, "The specified port is unknown."},
              {1801, "The printer name is invalid."},
              {1803, "The printer command is invalid."}};

const char* KnownText(std::int64_t nCode) {
  for (const auto& known : kTexts)
    if (known.nCode == nCode) return known.pszText;
  return nullptr;
}

}  // namespace

std::string ErrorMessage(std::int64_t nCode) {
  if (const char* pszText = KnownText(nCode)) return pszText;
#ifdef _WIN32
  wchar_t wszText[512] = {};
  DWORD cch = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                             static_cast<DWORD>(nCode), 0, wszText, 512, nullptr);
  while (cch > 0 && (wszText[cch - 1] == '\n' || wszText[cch - 1] == '\r' || wszText[cch - 1] == ' ')) --cch;
  char szText[3 * 512];
  const int cb =
      WideCharToMultiByte(CP_UTF8, 0, wszText, static_cast<int>(cch), szText, sizeof szText, nullptr, nullptr);
  return std::string(szText, static_cast<std::size_t>(cb > 0 ? cb : 0));
#else
  return {};
#endif
}

std::string ErrorText(std::int64_t nCode) {
  const std::string strMessage = ErrorMessage(nCode);
  return "error " + std::to_string(nCode) + (strMessage.empty() ? "" : ": " + strMessage);
}

std::string KnownErrorText(std::int64_t nCode) {
  const char* pszText = KnownText(nCode);
  return "error " + std::to_string(nCode) + (pszText == nullptr ? std::string() : ": " + std::string(pszText));
}

}  // namespace lmctl
