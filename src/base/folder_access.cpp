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

// S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464: the service that installs Windows.
static bool IsTrustedInstaller(PSID pSid) noexcept {
  SID_IDENTIFIER_AUTHORITY ntAuthority = {SECURITY_NT_AUTHORITY};
  PSID pInstaller = nullptr;
  if (!AllocateAndInitializeSid(&ntAuthority, 6, SECURITY_SERVICE_ID_BASE_RID, 956008885, 3418522649, 1831038044,
                                1853292631, 2271478464, 0, 0, &pInstaller))
    return false;
  const UniqueSid installer(pInstaller);
  return EqualSid(pSid, pInstaller) != FALSE;
}

bool BelongsToTheMachine(HANDLE hFile) noexcept {
  PSECURITY_DESCRIPTOR pDescriptor = nullptr;
  PSID pOwner = nullptr;
  if (GetSecurityInfo(hFile, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &pOwner, nullptr, nullptr, nullptr,
                      &pDescriptor) != ERROR_SUCCESS)
    return false;
  const UniqueLocal descriptor(pDescriptor);
  return pOwner != nullptr && (IsWellKnownSid(pOwner, WinLocalSystemSid) ||
                               IsWellKnownSid(pOwner, WinBuiltinAdministratorsSid) || IsTrustedInstaller(pOwner));
}
