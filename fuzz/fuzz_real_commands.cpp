// The search for real-time commands over buffers of any length and place, cut anywhere, against a reference that looks back
// from every byte.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "monitor/stream_inspect.h"

namespace {

bool EndsWith(const std::string& data, std::size_t nEnd, const std::string& strSequence) {
  return nEnd >= strSequence.size() && data.compare(nEnd - strSequence.size(), strSequence.size(), strSequence) == 0;
}

// A byte is rewritten when it ends one of the three sequences in the data as it came.
std::string Reference(const std::string& data) {
  std::string result = data;
  for (std::size_t n = 0; n < data.size(); ++n) {
    if (EndsWith(data, n + 1, "\x13(reset\x13reset")) result[n] = 'v';
    if (EndsWith(data, n + 1, "\x13(clr")) result[n] = 's';
    const bool bPulse = n >= 4 && EndsWith(data, n - 1, "\x10\x14\x01") && data[n - 1] != 0x10 && data[n - 1] != 0x13;
    if (bPulse && data[n] >= 1 && data[n] <= 8) result[n] = static_cast<char>(data[n] | 0x10);
  }
  return result;
}

}  // namespace

// Byte 0: how far the buffer is from an aligned address; byte 1: bytes of plain text in front; byte 2: the length of the
// pieces; the rest is the data.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t cb) {
  if (cb < 3 || cb > 600) return 0;
  const std::size_t nOffset = pData[0] % 64;
  const std::size_t cbPiece = 1 + pData[2];
  std::string data(pData[1], 'x');
  data.append(reinterpret_cast<const char*>(pData) + 3, cb - 3);
  const std::string expected = Reference(data);

  std::vector<BYTE> room(data.size() + 64 + nOffset);
  BYTE* pAligned = room.data() + (64 - reinterpret_cast<std::uintptr_t>(room.data()) % 64) % 64 + nOffset;
  if (pAligned + data.size() > room.data() + room.size()) pAligned = room.data();
  std::copy(data.begin(), data.end(), pAligned);
  IniJob job = {};
  IniPort port = {};
  port.pIniJob = &job;
  for (std::size_t n = 0; n < data.size(); n += cbPiece)
    CheckRealCmd(&port, pAligned + n, static_cast<DWORD>(std::min(cbPiece, data.size() - n)));
  if (!std::equal(expected.begin(), expected.end(), pAligned,
                  [](char c, BYTE by) { return static_cast<BYTE>(c) == by; })) {
    std::fprintf(stderr, "differs from the reference\n");
    std::abort();
  }
  return 0;
}
