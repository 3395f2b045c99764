// Windows' texts and print queues, for the commands of a Windows machine.
#pragma once

#include <windows.h>

#include <winspool.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/lmctl/log/error_text.h"

namespace lmctl {

// Between the tool's texts, UTF-8, and wide ones.
inline std::string Narrow(const wchar_t* pwsz) {
  if (pwsz == nullptr || *pwsz == 0) return {};
  const int cb = WideCharToMultiByte(CP_UTF8, 0, pwsz, -1, nullptr, 0, nullptr, nullptr);
  std::string str(static_cast<std::size_t>(cb > 0 ? cb - 1 : 0), '\0');
  WideCharToMultiByte(CP_UTF8, 0, pwsz, -1, str.data(), cb, nullptr, nullptr);
  return str;
}

inline std::wstring Wide(const std::string& str) {
  const int cch = MultiByteToWideChar(CP_UTF8, 0, str.c_str(), -1, nullptr, 0);
  std::wstring wstr(static_cast<std::size_t>(cch > 0 ? cch - 1 : 0), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, str.c_str(), -1, wstr.data(), cch);
  return wstr;
}

// The text in a value's bytes, which need not end in a NUL.
inline std::string TextOf(std::vector<BYTE> bytes) {
  bytes.resize(bytes.size() + sizeof(wchar_t));
  return Narrow(reinterpret_cast<const wchar_t*>(bytes.data()));
}

// An open print queue.
class Printer {
 public:
  Printer(const std::string& strQueue, DWORD dwAccess) {
    std::wstring queue = Wide(strQueue);
    PRINTER_DEFAULTSW defaults = {nullptr, nullptr, dwAccess};
    if (!OpenPrinterW(queue.data(), &m_hPrinter, &defaults))
      throw std::runtime_error("the queue " + strQueue + " cannot be opened: " + ErrorText(GetLastError()) +
                               " lmctl doctor lists the queues.");
  }
  ~Printer() { ClosePrinter(m_hPrinter); }
  Printer(const Printer&) = delete;
  Printer& operator=(const Printer&) = delete;
  HANDLE Handle() const { return m_hPrinter; }

  // A value of the queue's printer data; false when there is none.
  bool Data(const wchar_t* pszName, DWORD& dwType, std::vector<BYTE>& bytes) const {
    DWORD cb = 0;
    const DWORD dwError = GetPrinterDataW(m_hPrinter, const_cast<wchar_t*>(pszName), &dwType, nullptr, 0, &cb);
    if ((dwError != ERROR_MORE_DATA && dwError != ERROR_SUCCESS) || cb == 0) return false;
    bytes.resize(cb);
    return GetPrinterDataW(m_hPrinter, const_cast<wchar_t*>(pszName), &dwType, bytes.data(), cb, &cb) == ERROR_SUCCESS;
  }
  // A text of the queue's printer data; empty when there is none.
  std::string Text(const wchar_t* pszName) const {
    DWORD dwType = 0;
    std::vector<BYTE> bytes;
    return Data(pszName, dwType, bytes) ? TextOf(bytes) : std::string();
  }

 private:
  HANDLE m_hPrinter = nullptr;
};

}  // namespace lmctl
