// The analysis of printer answers with the scan behind it, against a reference that works on the whole text at once.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "monitor/response_format.h"

namespace {

using Bytes = std::vector<BYTE>;

// What is kept, by the plain rules of the formats.
Bytes ReferenceKept(const Bytes& in, bool bOneByte) {
  Bytes kept;
  int nMissing = 0;  // data bytes that the current status still needs
  for (std::size_t n = 0; n < in.size(); ++n) {
    const BYTE by = in[n];
    if (bOneByte) {
      bool bBlank = n + 8 <= in.size() && by == 0xC0;
      for (std::size_t i = 1; bBlank && i < 8; ++i) bBlank = in[n + i] == 0xD0;
      if (bBlank) {
        kept.insert(kept.end(), in.begin() + static_cast<std::ptrdiff_t>(n),
                    in.begin() + static_cast<std::ptrdiff_t>(n) + 8);
        n += 7;
      } else if ((by >= 0x40 && by <= 0x7F) || by == 0xC9) {
        kept.push_back(by);
      }
    } else if (by >= 0xC0 && by <= 0xCF) {
      kept.push_back(by);
      nMissing = 7;
    } else if (by >= 0x80 && by <= 0x8F) {
      kept.push_back(by);
      nMissing = 0;
    } else if (nMissing > 0 && by == 0) {
      nMissing = 0;
    } else if (nMissing > 0 && by >= 0xD0 && by <= 0xDF) {
      kept.push_back(by);
      --nMissing;
    }
  }
  return kept;
}

void Require(bool bHolds, const char* pszWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "differs from the reference: %s\n", pszWhat);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t cb) {
  if (cb < 3 || cb > 4096) return 0;
  const bool bOneByte = (pData[0] & 1) != 0;
  const bool bExec = (pData[0] & 2) != 0;
  const std::uint64_t ullMask = pData[1];
  const Bytes in(pData + 2, pData + cb);
  Bytes work = in;
  DWORD dwKept = 0;
  DWORD dwPosition = 0;
  const BOOL bComplete = LmAnalyzeRespData(work.data(), static_cast<DWORD>(work.size()), &dwKept, &dwPosition,
                                           bOneByte ? kAnalyzeOneByteStatus : 0);
  Require(dwKept <= work.size(), "count");
  const Bytes kept(work.begin(), work.begin() + dwKept);
  Require(kept == ReferenceKept(in, bOneByte), "kept bytes");
  Require(!kept.empty() || !bComplete, "no response counts as complete");

  // The scan: first stop or response for the execution response, last status for the printable one.
  const ResponseQuery query = {bOneByte, bExec, static_cast<BYTE>(bOneByte ? 0xC9 : 0x85), ullMask};
  ScanResult expected = ScanResult::Nothing;
  for (std::size_t n = 0; n < kept.size(); ++n) {
    bool bBlank = n + 8 <= kept.size() && kept[n] == 0xC0;
    for (std::size_t i = 1; bBlank && i < 8; ++i) bBlank = kept[n + i] == 0xD0;
    const std::size_t cbStatus = bOneByte ? 1 : 8;
    const bool bHeader = bOneByte ? kept[n] >= 0x40 && kept[n] <= 0x7F : kept[n] >= 0xC0 && kept[n] <= 0xCF;
    if (!bBlank && bHeader && n + cbStatus > kept.size()) continue;
    if (!bBlank && !bHeader) {
      if (bExec && kept[n] == query.byExecResponse) {
        expected = ScanResult::Done;
        break;
      }
      continue;
    }
    const bool bStop = bBlank || (kept[n] & ullMask) != 0;  // the mask covers the header byte only
    if (bExec && bStop) {
      expected = ScanResult::Stopped;
      break;
    }
    if (!bExec) expected = bStop ? ScanResult::NotPrintable : ScanResult::Done;
  }
  std::uint64_t ullStatus = 0;
  Require(ScanResponses(kept, query, ullStatus) == expected, "scan");
  return 0;
}
