#include "log/log_message.h"

#include <cstdio>
#include <cstring>
#include <cwchar>

#include "log/assert.h"
#include "log/level.h"

namespace {

constexpr std::size_t kTextChars = 512;
constexpr std::size_t kLongTextChars = 5120;
constexpr std::size_t kFixedBytes = 1024;
constexpr std::size_t kRoomBesideText = 129;  // terminator included

char LevelLetter(DWORD dwLevel) noexcept {
  for (const LogLevelLetter& known : kLogLevelLetters)
    if ((dwLevel & known.dwLevel) != 0) return known.cLetter;
  return 'V';
}

}  // namespace

const char* CMessage::BuildLine(LogThreadBuffers& buffers, const LogCall& call, const SYSTEMTIME& stLine,
                                const char* pszTag, const wchar_t* pwszFormat, va_list args) noexcept {
  const wchar_t* pwszText = FormatText(buffers, pwszFormat, args);
  const char* pszText = pwszText != nullptr ? ToAnsi(buffers, pwszText) : nullptr;
  return pszText != nullptr ? TemplateMessage(buffers, pszText, call, stLine, pszTag) : nullptr;
}

const wchar_t* CMessage::FormatText(LogThreadBuffers& buffers, const wchar_t* pwszFormat, va_list args) noexcept {
  va_list again;
  va_copy(again, args);
  const wchar_t* pwszResult = nullptr;
  const int n = _vsnwprintf(buffers.wszText, kTextChars - 1, pwszFormat, args);
  buffers.wszText[kTextChars - 1] = 0;
  if (n >= 0) {
    pwszResult = buffers.wszText;
  } else {
    buffers.pHeapText = AllocBlock<wchar_t>(kLongTextChars * sizeof(wchar_t));
    wchar_t* pwszLong = buffers.pHeapText.get();
    if (pwszLong != nullptr && _vsnwprintf(pwszLong, kLongTextChars - 1, pwszFormat, again) >= 0) {
      pwszLong[kLongTextChars - 1] = 0;
      pwszResult = pwszLong;
    }
  }
  va_end(again);
  return pwszResult;
}

const char* CMessage::ToAnsi(LogThreadBuffers& buffers, const wchar_t* pwszText) noexcept {
  const int cb = WideCharToMultiByte(CP_ACP, 0, pwszText, -1, nullptr, 0, nullptr, nullptr);
  if (cb <= 0) return nullptr;
  char* pszAnsi = buffers.szAnsi;
  if (static_cast<std::size_t>(cb) >= kFixedBytes) {
    buffers.pHeapAnsi = AllocBlock<char>(static_cast<std::size_t>(cb));
    pszAnsi = buffers.pHeapAnsi.get();
    if (pszAnsi == nullptr) return nullptr;
  }
  return WideCharToMultiByte(CP_ACP, 0, pwszText, -1, pszAnsi, cb, nullptr, nullptr) > 0 ? pszAnsi : nullptr;
}

const char* CMessage::TemplateMessage(LogThreadBuffers& buffers, const char* pszText, const LogCall& call,
                                      const SYSTEMTIME& st, const char* pszTag) noexcept {
  std::size_t cb = std::strlen(pszText) + kRoomBesideText;
  char* pszLine = buffers.szLine;
  if (cb >= kFixedBytes) {
    buffers.pHeapLine = AllocBlock<char>(cb);
    pszLine = buffers.pHeapLine.get();
    if (pszLine == nullptr) {
      Assert(".\\Message", "CMessage::TemplateMessage", 125, GetLastError());
      return nullptr;
    }
  } else {
    cb = kFixedBytes;
  }
  if (call.pszModule != nullptr) pszTag = call.pszModule;
  if (*pszTag == 0) pszTag = "UNDEF  ";
  const char cLevel = LevelLetter(call.dwLevel);
  int n = 0;
  if (call.dwProcessId == 0 && call.dwThreadId == 0 && call.pszRoutine == nullptr) {
    n = std::snprintf(pszLine, cb, "[%02d/%02d %02d:%02d(%02d.%03d)]\t[********(********)]\t[%c] \t[%s] \t%s\r\n",
                      st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds, cLevel, pszTag, pszText);
  } else {
    n = std::snprintf(pszLine, cb, "[%02d/%02d %02d:%02d(%02d.%03d)]\t[%08x(%08x)]\t[%c] \t[%s] \t%s(%d) \t%s\r\n",
                      st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds,
                      static_cast<unsigned>(call.dwProcessId), static_cast<unsigned>(call.dwThreadId), cLevel, pszTag,
                      call.pszRoutine != nullptr ? call.pszRoutine : "", call.nLine, pszText);
  }
  return n >= 0 && static_cast<std::size_t>(n) < cb ? pszLine : nullptr;
}
