// The real-time command matcher over data cut anywhere, against a reference that looks back from every byte.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "monitor/stream_inspect.h"

namespace {

// The transition table as it is documented for the printer's command language, one row a line of text, walked over the
// data with the buffers' ends known.
std::string Reference(std::string data, std::size_t nCut) {
  int nState = 0;
  for (std::size_t n = 0; n < data.size(); ++n) {
    const auto by = static_cast<unsigned char>(data[n]);
    const bool bLastOfBuffer = n + 1 == nCut || n + 1 == data.size();
    if (by == 0x13) {
      if (nState == 17 && bLastOfBuffer) {
        nState = 18;
      } else if (nState == 17 && data[n + 1] == 'r') {
        ++n;
        nState = 19;
      } else {
        nState = 1;
      }
      continue;
    }
    if (by == 0x10) {
      nState = 101;
      continue;
    }
    int nNext = 0;
    switch (nState) {
      case 1: nNext = by == '(' ? 2 : 0; break;
      case 2: nNext = by == 'r' ? 13 : by == 'c' ? 33 : 0; break;
      case 13: nNext = by == 'e' ? 14 : 0; break;
      case 14: nNext = by == 's' ? 15 : 0; break;
      case 15: nNext = by == 'e' ? 16 : 0; break;
      case 16: nNext = by == 't' ? 17 : 0; break;
      case 18: nNext = by == 'r' ? 19 : by == '(' ? 2 : 0; break;
      case 19: nNext = by == 'e' ? 20 : 0; break;
      case 20: nNext = by == 's' ? 21 : 0; break;
      case 21: nNext = by == 'e' ? 22 : 0; break;
      case 22:
        if (by == 't') data[n] = 'v';
        break;
      case 33: nNext = by == 'l' ? 34 : 0; break;
      case 34:
        if (by == 'r') data[n] = 's';
        break;
      case 101: nNext = by == 0x14 ? 102 : 0; break;
      case 102: nNext = by == 1 ? 103 : 0; break;
      case 103: nNext = 104; break;
      case 104:
        if (by >= 1 && by <= 8) data[n] = static_cast<char>(by | 0x10);
        break;
      default: break;
    }
    nState = nNext;
  }
  return data;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t cb) {
  if (cb < 2) return 0;
  const std::size_t nCut = pData[0] % cb;
  std::string data(reinterpret_cast<const char*>(pData) + 1, cb - 1);
  const std::string expected = Reference(data, nCut);
  IniJob job = {};
  IniPort port = {};
  port.pIniJob = &job;
  auto* p = reinterpret_cast<BYTE*>(data.data());
  CheckRealCmd(&port, p, static_cast<DWORD>(nCut));
  CheckRealCmd(&port, p + nCut, static_cast<DWORD>(data.size() - nCut));
  if (data != expected) {
    std::fprintf(stderr, "differs from the reference\n");
    std::abort();
  }
  return 0;
}
