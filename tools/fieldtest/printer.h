// A printer for tests: a port that writes to a file, a driver that names the monitor, a queue.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>

namespace fieldtest {

class Printer {
 public:
  // The file of the port gets a folder of its own in this one, which every user may write to: the spooler makes the file in the
  // name of whoever prints. What an earlier one of this queue has left is taken away.
  explicit Printer(const std::filesystem::path& folder, const std::wstring& queue = L"Kelvane Field Test");
  ~Printer();  // removes what it made
  Printer(const Printer&) = delete;
  Printer& operator=(const Printer&) = delete;

  // Each returns an empty text, or what failed and with which code.
  std::string AddDriver(const std::wstring& monitor);
  std::string AddQueue();
  // Prints a RAW document in the name of a user (null: of this process) and waits until it lies on the port, a minute at most.
  std::string Print(const std::wstring& document, const std::string& strData, HANDLE hUser = nullptr);
  // The queue is paused meanwhile and the job deleted in it; waits until the queue is empty.
  std::string PrintAndDelete(const std::wstring& document, const std::string& strData);
  // What the port's file holds now.
  std::string OnPort() const;
  HANDLE Queue() const { return m_hQueue; }  // with full access, of this object's; null until the queue is there

 private:
  void TakeAway();
  std::string Port(const wchar_t* pszAction);
  std::string WriteDocument(const std::wstring& document, const std::string& strData, DWORD& dwJob);
  std::string WaitUntilEmpty();

  const std::filesystem::path m_folder;
  const std::filesystem::path m_port;
  std::wstring m_queue;
  bool m_bDriver = false;
  bool m_bModel = false;  // the driver that ours is made of was put into the system's list for it
  HANDLE m_hQueue = nullptr;
};

}  // namespace fieldtest
