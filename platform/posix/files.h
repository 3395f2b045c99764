// Open files and the sandbox that the drives map into.
#pragma once

#include "objects.h"

#include <sys/stat.h>

#include <array>
#include <string>

namespace w32 {

// An open file or folder.
class File : public Object {
 public:
  File(int nHostFile, DWORD dwDesiredAccess, DWORD dwShareMode, std::string strPath)
      : nFile(nHostFile), dwAccess(dwDesiredAccess), dwShare(dwShareMode), strHostPath(std::move(strPath)) {}
  ~File() override;

  const int nFile;
  const DWORD dwAccess;
  const DWORD dwShare;
  const std::string strHostPath;
  std::string strDeleteAtClose;  // the entry that goes with this handle; empty: none
};

// Held while an entry is opened or made and while a folder becomes a link; guards the list of open files.
extern std::mutex g_openMutex;

// A Windows path, checked and mapped.
struct MappedPath {
  std::string strHost;
  DWORD dwError = ERROR_SUCCESS;  // what a call on an impossible path reports
  bool bThere = false;
  struct stat status {};  // of what is there, of a link itself
};
MappedPath MapPath(const wchar_t* pszPath);

// Sets the error code; returns FALSE.
BOOL Fails(DWORD dwError);

// The entries that go with their handles go, as they do when the system ends a process.
void DropFilesOfTheDead();

bool IsEmptyFolder(const std::string& strHostPath);

// Where an open file lies now, whatever path it was opened by.
std::string HostPathOf(const File& file);

std::u16string FromUtf8(const std::string& strText);

// Times of a host file, as futimens takes them (access and change alike), and as Windows tells them.
std::array<timespec, 2> HostStamp(std::uint64_t ullTicks);
FILETIME FileTimeOf(const timespec& time);

// Stamps a host file or folder with the layer's clock.
void StampWithClock(const std::string& strHostPath);
void StampWithClock(int nHostFile);

}  // namespace w32
