// A printer of the field test's own: a port that writes to a file, a driver that names the monitor, a queue.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>

namespace fieldtest {

class Printer {
 public:
  // The file of the port lies in this folder, which every user may write to.
  explicit Printer(const std::filesystem::path& folder);
  ~Printer();  // removes what it made
  Printer(const Printer&) = delete;
  Printer& operator=(const Printer&) = delete;

  // Each returns an empty text, or what failed and with which code.
  std::string AddDriver(const std::wstring& monitor);
  std::string AddQueue();
  // Prints a RAW document in the name of the calling thread and waits until it lies on the port, a minute at most.
  std::string Print(const std::wstring& document, const std::string& strData);
  // The queue is paused meanwhile and the job deleted in it; waits until the queue is empty.
  std::string PrintAndDelete(const std::wstring& document, const std::string& strData);
  // What the port's file holds now.
  std::string OnPort() const;

 private:
  std::string Port(const wchar_t* pszAction);
  std::string WriteDocument(const std::wstring& document, const std::string& strData, DWORD& dwJob);
  std::string WaitUntilEmpty();

  const std::filesystem::path m_folder;
  const std::filesystem::path m_port;
  bool m_bDriver = false, m_bPort = false;
  HANDLE m_hQueue = nullptr;  // to administer it
};

}  // namespace fieldtest
