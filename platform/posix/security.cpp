// Security identifiers and the access lists of folders. A folder's list is kept as text in an attribute table of the
// process; the files themselves stay accessible to the user who runs the program.
#include "files.h"

#include <aclapi.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>

// The public name of an access list; its content is this layer's own.
struct _ACL {
  DWORD dwMask;
  DWORD dwFlags;
  DWORD adwSubAuthorities[8];
  int nSubAuthorities;
};

namespace w32 {
namespace {

struct Sid {
  BYTE byAuthority;
  int nSubAuthorities;
  DWORD adwSubAuthorities[8];
};

std::mutex g_listsMutex;
std::map<std::string, std::string>& Lists() {
  static auto* pLists = new std::map<std::string, std::string>;
  return *pLists;
}

}  // namespace

std::string AccessListOf(const wchar_t* pszFolder) {
  std::error_code ignored;
  const std::string strPlace = std::filesystem::canonical(HostPath(pszFolder), ignored);
  const LayerLock lock(g_listsMutex);
  const auto it = Lists().find(strPlace);
  return it == Lists().end() ? std::string() : it->second;
}

}  // namespace w32

using namespace w32;

extern "C" {

BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR pSecurityDescriptor, DWORD dwRevision) {
  std::memset(pSecurityDescriptor, 0, sizeof(SECURITY_DESCRIPTOR));
  static_cast<SECURITY_DESCRIPTOR*>(pSecurityDescriptor)->Revision = static_cast<BYTE>(dwRevision);
  return TRUE;
}

BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR pSecurityDescriptor, BOOL bDaclPresent, PACL pDacl, BOOL) {
  auto* pDescriptor = static_cast<SECURITY_DESCRIPTOR*>(pSecurityDescriptor);
  pDescriptor->Control = bDaclPresent ? 0x0004 : 0;
  pDescriptor->Dacl = pDacl;
  return TRUE;
}

BOOL WINAPI AllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY pIdentifierAuthority, BYTE nSubAuthorityCount, DWORD n0,
                                     DWORD n1, DWORD n2, DWORD n3, DWORD n4, DWORD n5, DWORD n6, DWORD n7, PSID* pSid) {
  PlatformCall();
  if (FaultHere("AllocateAndInitializeSid", ERROR_NOT_ENOUGH_MEMORY)) return FALSE;
  *pSid = new Sid{pIdentifierAuthority->Value[5], nSubAuthorityCount, {n0, n1, n2, n3, n4, n5, n6, n7}};
  Book(Account::Sids, 1);
  return TRUE;
}

PVOID WINAPI FreeSid(PSID pSid) {
  if (pSid != nullptr) Book(Account::Sids, -1);
  delete static_cast<Sid*>(pSid);
  return nullptr;
}

BOOL WINAPI EqualSid(PSID pSid1, PSID pSid2) {
  const auto& left = *static_cast<const Sid*>(pSid1);
  const auto& right = *static_cast<const Sid*>(pSid2);
  return left.byAuthority == right.byAuthority && left.nSubAuthorities == right.nSubAuthorities &&
         std::equal(left.adwSubAuthorities, left.adwSubAuthorities + left.nSubAuthorities, right.adwSubAuthorities);
}

BOOL WINAPI IsWellKnownSid(PSID pSid, WELL_KNOWN_SID_TYPE WellKnownSidType) {
  Sid known = WellKnownSidType == WinLocalSystemSid ? Sid{5, 1, {18}} : Sid{5, 2, {32, 544}};
  return EqualSid(pSid, &known);
}

HANDLE WINAPI GetCurrentThread() { return reinterpret_cast<HANDLE>(~std::uintptr_t{1}); }

BOOL WINAPI OpenThreadToken(HANDLE ThreadHandle, DWORD, BOOL, PHANDLE TokenHandle) {
  if (ThreadHandle != GetCurrentThread()) Unsupported("another thread's token");
  PlatformCall();
  if (FaultHere("OpenThreadToken", ERROR_ACCESS_DENIED)) return FALSE;
  if (Client() == 0) return Fails(ERROR_NO_TOKEN);
  *TokenHandle = NewHandle(std::make_shared<Object>());
  return TRUE;
}

DWORD WINAPI GetSecurityInfo(HANDLE handle, SE_OBJECT_TYPE ObjectType, SECURITY_INFORMATION SecurityInfo,
                             PSID* ppsidOwner, PSID*, PACL* ppDacl, PACL*, PSECURITY_DESCRIPTOR* ppSecurityDescriptor) {
  if (ObjectType != SE_FILE_OBJECT ||
      (SecurityInfo != DACL_SECURITY_INFORMATION && SecurityInfo != OWNER_SECURITY_INFORMATION))
    Unsupported("GetSecurityInfo of this kind");
  PlatformCall();
  if (const DWORD dwFault = FaultCode("GetSecurityInfo", ERROR_ACCESS_DENIED)) return dwFault;
  const auto pFile = FindObject<File>(handle);
  if (!pFile) return ERROR_INVALID_HANDLE;
  if ((pFile->dwAccess & READ_CONTROL) == 0) return ERROR_ACCESS_DENIED;
  if (ppDacl != nullptr) *ppDacl = nullptr;
  if (ppSecurityDescriptor != nullptr) {  // the owner lies behind it
    *ppSecurityDescriptor = std::calloc(1, sizeof(SECURITY_DESCRIPTOR) + sizeof(Sid));
    Book(Account::LocalBlocks, 1);
  }
  if (ppsidOwner != nullptr && ppSecurityDescriptor != nullptr) {
    auto* pSid = reinterpret_cast<Sid*>(static_cast<SECURITY_DESCRIPTOR*>(*ppSecurityDescriptor) + 1);
    *pSid = OwnerOf(pFile->id) == OwnedBy::System ? Sid{5, 1, {18}} : Sid{5, 5, {21, 1, 2, 3, 1001}};
    *ppsidOwner = pSid;
  }
  return ERROR_SUCCESS;
}

DWORD WINAPI SetEntriesInAclW(ULONG cCountOfExplicitEntries, PEXPLICIT_ACCESS_W pListOfExplicitEntries, PACL OldAcl,
                              PACL* NewAcl) {
  if (cCountOfExplicitEntries != 1 || OldAcl != nullptr || pListOfExplicitEntries->grfAccessMode != GRANT_ACCESS ||
      pListOfExplicitEntries->Trustee.TrusteeForm != TRUSTEE_IS_SID)
    Unsupported("SetEntriesInAclW with anything but one granting entry by SID and no old list");
  PlatformCall();
  if (const DWORD dwFault = FaultCode("SetEntriesInAclW", ERROR_NOT_ENOUGH_MEMORY)) return dwFault;
  const auto* pSid = reinterpret_cast<const Sid*>(pListOfExplicitEntries->Trustee.ptstrName);
  auto* pAcl = static_cast<_ACL*>(std::calloc(1, sizeof(_ACL)));
  Book(Account::LocalBlocks, 1);
  pAcl->dwMask = pListOfExplicitEntries->grfAccessPermissions;
  pAcl->dwFlags = pListOfExplicitEntries->grfInheritance;
  pAcl->nSubAuthorities = pSid->nSubAuthorities;
  std::memcpy(pAcl->adwSubAuthorities, pSid->adwSubAuthorities, sizeof pAcl->adwSubAuthorities);
  *NewAcl = pAcl;
  return ERROR_SUCCESS;
}

DWORD WINAPI SetSecurityInfo(HANDLE handle, SE_OBJECT_TYPE ObjectType, SECURITY_INFORMATION SecurityInfo, PSID, PSID,
                             PACL pDacl, PACL) {
  if (ObjectType != SE_FILE_OBJECT || SecurityInfo != DACL_SECURITY_INFORMATION)
    Unsupported("SetSecurityInfo of this kind");
  PlatformCall();
  if (const DWORD dwFault = FaultCode("SetSecurityInfo", ERROR_ACCESS_DENIED)) return dwFault;
  const auto pFile = FindObject<File>(handle);
  if (!pFile) return ERROR_INVALID_HANDLE;
  if ((pFile->dwAccess & WRITE_DAC) == 0) return ERROR_ACCESS_DENIED;
  std::string strEntry = "S-1-5";
  for (int n = 0; n < pDacl->nSubAuthorities; ++n)
    strEntry.append("-").append(std::to_string(pDacl->adwSubAuthorities[n]));
  char szRights[48];
  std::snprintf(szRights, sizeof szRights, " 0x%08x %u", pDacl->dwMask, pDacl->dwFlags);
  const LayerLock lock(g_listsMutex);
  Lists()[HostPathOf(*pFile)] = strEntry + szRights;
  return ERROR_SUCCESS;
}

}  // extern "C"
