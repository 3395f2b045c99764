// Open files and the sandbox that the drives map into.
#pragma once

#include "objects.h"

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

// A Windows path, checked and mapped. dwError is the code that a call on an impossible path reports.
struct MappedPath {
  std::string strHost;
  DWORD dwError = ERROR_SUCCESS;
};
MappedPath MapPath(const wchar_t* pszPath);

bool IsEmptyFolder(const std::string& strHostPath);

std::u16string FromUtf8(const std::string& strText);

// Stamps a host file or folder with the layer's clock.
void StampWithClock(const std::string& strHostPath);

}  // namespace w32
