#include "log/assert.h"

#include <cstdio>

#include "base/owners.h"

void Assert(const char* pszSourceFile, const char* pszRoutine, int nLine, DWORD dwSystemErrorCode) noexcept {
  const KeepLastError keep;
  char szText[512];
  std::snprintf(szText, sizeof szText, "Assert!! \r\nFile:%s(line:%d)/ %s\r\n(system error code :%d)", pszSourceFile,
                nLine, pszRoutine, static_cast<int>(dwSystemErrorCode));
  wchar_t wszText[512] = {};
  MultiByteToWideChar(CP_ACP, 0, szText, -1, wszText, 512);
  OutputDebugStringW(wszText);
}
