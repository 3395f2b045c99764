#include "base/folder_access.h"

#include <aclapi.h>
#include <windows.h>

#include "base/owners.h"

namespace {

struct SidFreer {
  using pointer = PSID;
  void operator()(PSID p) const noexcept { FreeSid(p); }
};
struct LocalFreer {
  using pointer = HLOCAL;
  void operator()(HLOCAL h) const noexcept { LocalFree(h); }
};
using UniqueSid = std::unique_ptr<void, SidFreer>;
using UniqueLocal = std::unique_ptr<void, LocalFreer>;

}  // namespace

bool GrantUsersFullAccess(HANDLE hFolder) noexcept {
  // The old list is not merged: being able to read it only proves that the folder takes access lists.
  PSECURITY_DESCRIPTOR pDescriptor = nullptr;
  PACL pOldList = nullptr;
  if (GetSecurityInfo(hFolder, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &pOldList, nullptr,
                      &pDescriptor) != ERROR_SUCCESS)
    return false;
  const UniqueLocal descriptor(pDescriptor);

  SID_IDENTIFIER_AUTHORITY ntAuthority = {SECURITY_NT_AUTHORITY};
  PSID pUsers = nullptr;
  if (!AllocateAndInitializeSid(&ntAuthority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_USERS, 0, 0, 0, 0, 0, 0,
                                &pUsers))
    return false;
  const UniqueSid users(pUsers);

  EXPLICIT_ACCESS_W entry{};
  entry.grfAccessPermissions = GENERIC_ALL;
  entry.grfAccessMode = GRANT_ACCESS;
  entry.grfInheritance = SUB_CONTAINERS_AND_OBJECTS_INHERIT;
  entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
  entry.Trustee.TrusteeType = TRUSTEE_IS_GROUP;
  entry.Trustee.ptstrName = static_cast<LPWSTR>(pUsers);
  PACL pNewList = nullptr;
  if (SetEntriesInAclW(1, &entry, nullptr, &pNewList) != ERROR_SUCCESS) return false;
  const UniqueLocal newList(pNewList);

  return SetSecurityInfo(hFolder, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, pNewList, nullptr) ==
         ERROR_SUCCESS;
}

bool GrantUsersFullAccess(const wchar_t* pszFolder) noexcept {
  const HANDLE hFolder =
      CreateFileW(pszFolder, READ_CONTROL | WRITE_DAC, 0, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  const UniqueHandle owner(hFolder);
  return hFolder != INVALID_HANDLE_VALUE && GrantUsersFullAccess(hFolder);
}
