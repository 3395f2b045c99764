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

// The call is told where to write and how many characters fit there, terminator included. It returns how many it wrote, without
// the terminator, or, where they do not fit, how many it needs with it.
template <class Call>
bool PathText::AssignFrom(Call&& call) noexcept {
  DWORD cch = call(Reserve(0), kShortChars);
  if (cch >= kShortChars) {
    const DWORD cchRoom = cch;
    wchar_t* pszTo = Reserve(cchRoom);
    cch = pszTo != nullptr ? call(pszTo, cchRoom + 1) : 0;
    if (cch > cchRoom) cch = 0;
  }
  m_cch = cch;
  return cch > 0;
}

bool PathText::AssignFullPath(const wchar_t* psz, std::size_t cch) noexcept {
  PathText given;
  return given.Assign(psz, cch) &&
         AssignFrom([&](wchar_t* pszTo, DWORD cchTo) { return GetFullPathNameW(given.Text(), cchTo, pszTo, nullptr); });
}

bool PathText::AssignFinalPathOf(HANDLE hFile) noexcept {
  const auto named = [&](DWORD dwNames) {
    return AssignFrom([&](wchar_t* pszTo, DWORD cchTo) {
      return GetFinalPathNameByHandleW(hFile, pszTo, cchTo, VOLUME_NAME_NONE | dwNames);
    });
  };
  return named(FILE_NAME_NORMALIZED) || named(FILE_NAME_OPENED);
}
