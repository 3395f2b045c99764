// The text of one log line, in the ANSI code page: fixed columns, then the caller's message. A line is dropped rather than
// cut.
#pragma once

#include <windows.h>

#include <cstdarg>
#include <cstddef>

#include "base/memory.h"
#include "log/trace_ring.h"

// One log call as its line shows it.
struct LogCall {
  DWORD dwLevel;
  const char* pszModule;   // module pair or null
  const char* pszRoutine;  // null only in the short form
  int nLine;
  DWORD dwProcessId;
  DWORD dwThreadId;
};

// Everything that one line needs, on the stack of the call that writes it: no thread shares it, and nothing of it is left
// when the line is done. Heap buffers serve long texts only.
struct LogThreadBuffers {
  HeapPtr<wchar_t> pHeapText;
  HeapPtr<char> pHeapLine;
  HeapPtr<char> pHeapAnsi;
  HANDLE hLogFile = INVALID_HANDLE_VALUE;  // open while the line is written
  char szLine[1024];
  char szAnsi[1024];
  wchar_t wszText[512];
  char szCollect[kTraceTextBytes];  // joined trace records
};

class CMessage {
 public:
  // The whole line, or null when one of its steps gives none. pszTag is the tag for a call without a module pair.
  static const char* BuildLine(LogThreadBuffers& buffers, const LogCall& call, const SYSTEMTIME& stLine,
                               const char* pszTag, const wchar_t* pwszFormat, va_list args) noexcept;

  // The message, at most 5,119 characters; null when it is longer or memory is short.
  static const wchar_t* FormatText(LogThreadBuffers& buffers, const wchar_t* pwszFormat, va_list args) noexcept;
  // A text in the system's ANSI code page; null when it cannot be converted or memory is short.
  static const char* ToAnsi(LogThreadBuffers& buffers, const wchar_t* pwszText) noexcept;
  // The line with its columns and CR LF. It may hold 1,023 bytes or 128 bytes beside the text, whichever is more; null
  // when it does not fit.
  static const char* TemplateMessage(LogThreadBuffers& buffers, const char* pszText, const LogCall& call,
                                     const SYSTEMTIME& stLine, const char* pszTag) noexcept;
};
