// The real-time command matcher the plain way: every byte through one table of states. What the product's search is measured
// against.
#pragma once

#include <windows.h>

namespace bench {

inline BYTE MatchEachByte(BYTE byState, BYTE* pBuf, std::size_t cb) {
  for (std::size_t n = 0; n < cb; ++n) {
    BYTE& by = pBuf[n];
    if (by == 0x13) {
      if (byState != 17) {
        byState = 1;
      } else if (n + 1 == cb) {
        byState = 18;
      } else if (pBuf[n + 1] == 'r') {
        ++n;
        byState = 19;
      } else {
        byState = 1;
      }
      continue;
    }
    if (by == 0x10) {
      byState = 101;
      continue;
    }
    switch (byState) {
      case 1: byState = by == '(' ? 2 : 0; break;
      case 2: byState = by == 'r' ? 13 : by == 'c' ? 33 : 0; break;
      case 13:
      case 15: byState = by == 'e' ? static_cast<BYTE>(byState + 1) : BYTE{0}; break;
      case 14: byState = by == 's' ? 15 : 0; break;
      case 16: byState = by == 't' ? 17 : 0; break;
      case 18: byState = by == 'r' ? 19 : by == '(' ? 2 : 0; break;
      case 19:
      case 21: byState = by == 'e' ? static_cast<BYTE>(byState + 1) : BYTE{0}; break;
      case 20: byState = by == 's' ? 21 : 0; break;
      case 22:
        if (by == 't') by = 'v';
        byState = 0;
        break;
      case 33: byState = by == 'l' ? 34 : 0; break;
      case 34:
        if (by == 'r') by = 's';
        byState = 0;
        break;
      case 101: byState = by == 0x14 ? 102 : 0; break;
      case 102: byState = by == 1 ? 103 : 0; break;
      case 103: byState = 104; break;
      case 104:
        if (by >= 1 && by <= 8) by |= 0x10;
        byState = 0;
        break;
      default: byState = 0;
    }
  }
  return byState;
}

}  // namespace bench
