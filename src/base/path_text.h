// The text of a path.
#pragma once

#include <windows.h>

#include <cstddef>

#include "base/memory.h"

// A path with room of its own; one that is longer than most goes to heap memory.
class PathText {
 public:
  PathText() noexcept { m_wszShort[0] = 0; }
  PathText(const PathText&) = delete;
  PathText& operator=(const PathText&) = delete;

  // Takes the first cch characters of a text. FALSE (and empty) when memory is short.
  bool Assign(const wchar_t* psz, std::size_t cch) noexcept;
  // Appends a backslash, unless the text ends in one, and a name.
  bool Append(const wchar_t* pszName) noexcept;
  // Takes a path as the system understands it from here: absolute, without "." and "..", with backslashes alone.
  bool AssignFullPath(const wchar_t* psz, std::size_t cch) noexcept;
  // Takes the final path of an open file or folder, without its volume. Its long names, or those that it was
  // opened by where the system does not tell them (a network share may not).
  bool AssignFinalPathOf(HANDLE hFile) noexcept;

  const wchar_t* Text() const noexcept { return m_pLong ? m_pLong.get() : m_wszShort; }
  std::size_t Length() const noexcept { return m_cch; }

 private:
  template <class Call>
  bool AssignFrom(Call&& call) noexcept;
  wchar_t* Reserve(std::size_t cch) noexcept;  // room for cch characters and a terminator; the content is gone

  static constexpr std::size_t kShortChars = 280;
  wchar_t m_wszShort[kShortChars];
  HeapPtr<wchar_t> m_pLong;
  std::size_t m_cch = 0;
};
