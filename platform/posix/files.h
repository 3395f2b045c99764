// Open files and the sandbox that the drives map into.
#pragma once

#include "objects.h"

#include <sys/stat.h>

#include <array>
#include <string>

namespace w32 {

// Which file a handle or a name stands for, however it is called.
struct FileId {
  dev_t nDevice = 0;
  ino_t nInode = 0;
  auto operator<=>(const FileId&) const = default;
};
inline FileId IdOf(const struct stat& status) { return {status.st_dev, status.st_ino}; }

// An open file or folder. What concerns sharing and deletion belongs to the file, not to a path.
class File : public Object {
 public:
  File(int nHostFile, DWORD dwDesiredAccess, DWORD dwShareMode, bool bNotThrough, const struct stat& status)
      : nFile(nHostFile),
        dwAccess(dwDesiredAccess),
        dwShare(dwShareMode),
        bAsReparsePoint(bNotThrough),
        bFolder(S_ISDIR(status.st_mode)),
        id(IdOf(status)) {}
  ~File() override;

  const int nFile;
  const DWORD dwAccess;
  const DWORD dwShare;
  const bool bAsReparsePoint;  // opened with FILE_FLAG_OPEN_REPARSE_POINT
  const bool bFolder;
  const FileId id;
  bool bDeleteAtClose = false;  // its name goes with this handle, whoever else has it open
};
// Marks a file for deletion: its name goes when the last handle to it is closed, and nobody can open it any more.
void MarkDeleted(const FileId& id);

// What the world does to files: see control.h.
DWORD ReparseTagOf(const FileId& id);  // 0: it has none
bool NormalizedNamesAreRefused();
enum class OwnedBy { User, System };
OwnedBy OwnerOf(const FileId& id);

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

// A routine of "ntdll" by its name; null for one that the layer lacks.
FARPROC NativeRoutine(const char* pszName);

bool IsEmptyFolder(const std::string& strHostPath);

// Where an open file lies now, whatever path it was opened by.
std::string HostPathOf(const File& file);

// A path made absolute, without "." and ".." and with backslashes alone; empty for an empty one.
std::u16string FullPath(const wchar_t* pszPath);

std::u16string FromUtf8(const std::string& strText);

// Times of a host file, as futimens takes them (access and change alike), and as Windows tells them.
std::array<timespec, 2> HostStamp(std::uint64_t ullTicks);
FILETIME FileTimeOf(const timespec& time);

// Stamps a host file or folder with the layer's clock.
void StampWithClock(const std::string& strHostPath);
void StampWithClock(int nHostFile);

}  // namespace w32
