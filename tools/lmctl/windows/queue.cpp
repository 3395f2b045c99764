#include "tools/lmctl/commands/queue.h"

#include <windows.h>

#include <winspool.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "base/setting_names.h"
#include "tools/common/progress_bar.h"
#include "tools/lmctl/log/error_text.h"
#include "tools/lmctl/windows/wide.h"

namespace lmctl {

std::string ArchiveRootOfQueue(const std::string& strQueue) {
  return Printer(strQueue, PRINTER_ACCESS_USE).Text(kJobFilePathValue);
}

unsigned PrintRaw(const std::string& strQueue, const std::string& strDocument, const std::string& strBytes) {
  const Printer printer(strQueue, PRINTER_ACCESS_USE);
  std::wstring document = Wide(strDocument);
  wchar_t szRaw[] = L"RAW";
  DOC_INFO_1W info = {document.data(), nullptr, szRaw};
  const DWORD dwJob = StartDocPrinterW(printer.Handle(), 1, reinterpret_cast<BYTE*>(&info));
  const auto fail = [&](const char* pszWhat) {
    const DWORD dwError = GetLastError();
    AbortPrinter(printer.Handle());
    throw std::runtime_error(std::string(pszWhat) + " on " + strQueue + ": " + ErrorText(dwError) +
                             " Look at the queue.");
  };
  if (dwJob == 0) fail("the job cannot be started");
  constexpr std::size_t kPiece = 64 * 1024;
  lmtools::ProgressBar progress("printing", lmtools::ProgressBar::Kind::Patience);
  for (std::size_t n = 0; n < strBytes.size();) {
    const auto cb = static_cast<DWORD>(std::min(kPiece, strBytes.size() - n));
    DWORD cbWritten = 0;
    if (!WritePrinter(printer.Handle(), const_cast<char*>(strBytes.data()) + n, cb, &cbWritten) || cbWritten == 0)
      fail("the job cannot be written");
    n += cbWritten;
    progress.Show(n, strBytes.size());
  }
  if (!EndDocPrinter(printer.Handle())) fail("the job cannot be ended");
  return dwJob;
}

}  // namespace lmctl
