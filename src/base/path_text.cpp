#include "base/path_text.h"

#include <cstring>
#include <cwchar>
#include <utility>

wchar_t* PathText::Reserve(std::size_t cch) noexcept {
  m_cch = 0;
  m_wszShort[0] = 0;
  m_pLong.reset();
  if (cch < kShortChars) return m_wszShort;
  m_pLong = AllocBlock<wchar_t>((cch + 1) * sizeof(wchar_t));
  return m_pLong.get();
}

bool PathText::Assign(const wchar_t* psz, std::size_t cch) noexcept {
  wchar_t* pszTo = Reserve(cch);
  if (pszTo == nullptr) return false;
  std::memcpy(pszTo, psz, cch * sizeof(wchar_t));
  pszTo[cch] = 0;
  m_cch = cch;
  return true;
}

bool PathText::Append(const wchar_t* pszName) noexcept {
  const std::size_t cchName = wcslen(pszName);
  const std::size_t cchBefore = m_cch;
  const bool bSeparator = cchBefore > 0 && Text()[cchBefore - 1] != L'\\';
  const std::size_t cch = cchBefore + (bSeparator ? 1 : 0) + cchName;
  wchar_t* pszTo = m_pLong ? nullptr : m_wszShort;
  HeapPtr<wchar_t> longer;
  if (pszTo == nullptr || cch >= kShortChars) {
    longer = AllocBlock<wchar_t>((cch + 1) * sizeof(wchar_t));
    if (!longer) return false;
    std::memcpy(longer.get(), Text(), cchBefore * sizeof(wchar_t));
    pszTo = longer.get();
  }
  if (bSeparator) pszTo[cchBefore] = L'\\';
  std::memcpy(pszTo + cch - cchName, pszName, (cchName + 1) * sizeof(wchar_t));
  if (longer) m_pLong = std::move(longer);
  m_cch = cch;
  return true;
}

bool PathText::AssignFullPath(const wchar_t* psz, std::size_t cch) noexcept {
  PathText given;
  if (!given.Assign(psz, cch)) return false;
  DWORD cchFull = GetFullPathNameW(given.Text(), kShortChars, Reserve(0), nullptr);
  if (cchFull >= kShortChars) {
    const DWORD cchRoom = cchFull;  // terminator included
    wchar_t* pszTo = Reserve(cchRoom);
    cchFull = pszTo != nullptr ? GetFullPathNameW(given.Text(), cchRoom + 1, pszTo, nullptr) : 0;
    if (cchFull > cchRoom) cchFull = 0;
  }
  m_cch = cchFull;
  return cchFull > 0;
}

bool PathText::AssignFinalPathOf(HANDLE hFile) noexcept {
  return AssignFinalPathOf(hFile, VOLUME_NAME_NONE | FILE_NAME_NORMALIZED) ||
         AssignFinalPathOf(hFile, VOLUME_NAME_NONE | FILE_NAME_OPENED);
}

bool PathText::AssignFinalPathOf(HANDLE hFile, DWORD dwFlags) noexcept {
  // A path that does not fit makes the call tell the room that it needs, terminator included.
  DWORD cch = GetFinalPathNameByHandleW(hFile, Reserve(0), kShortChars, dwFlags);
  if (cch >= kShortChars) {
    const DWORD cchRoom = cch;
    wchar_t* pszTo = Reserve(cchRoom);
    cch = pszTo != nullptr ? GetFinalPathNameByHandleW(hFile, pszTo, cchRoom + 1, dwFlags) : 0;
    if (cch > cchRoom) cch = 0;
  }
  m_cch = cch;
  return cch > 0;
}
