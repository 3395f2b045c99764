// Access lists of folders: the calls that replace a folder's list by entries of one's own.
#pragma once
#include <windows.h>

typedef enum _SE_OBJECT_TYPE { SE_UNKNOWN_OBJECT_TYPE = 0, SE_FILE_OBJECT } SE_OBJECT_TYPE;
typedef enum _ACCESS_MODE { NOT_USED_ACCESS = 0, GRANT_ACCESS, SET_ACCESS } ACCESS_MODE;
typedef enum _TRUSTEE_FORM { TRUSTEE_IS_SID = 0, TRUSTEE_IS_NAME } TRUSTEE_FORM;
typedef enum _TRUSTEE_TYPE { TRUSTEE_IS_UNKNOWN = 0, TRUSTEE_IS_USER, TRUSTEE_IS_GROUP } TRUSTEE_TYPE;
typedef enum _MULTIPLE_TRUSTEE_OPERATION { NO_MULTIPLE_TRUSTEE = 0 } MULTIPLE_TRUSTEE_OPERATION;

#define SUB_CONTAINERS_AND_OBJECTS_INHERIT 0x3u

typedef struct _TRUSTEE_W {
  struct _TRUSTEE_W* pMultipleTrustee;
  MULTIPLE_TRUSTEE_OPERATION MultipleTrusteeOperation;
  TRUSTEE_FORM TrusteeForm;
  TRUSTEE_TYPE TrusteeType;
  LPWSTR ptstrName;
} TRUSTEE_W;

typedef struct _EXPLICIT_ACCESS_W {
  DWORD grfAccessPermissions;
  ACCESS_MODE grfAccessMode;
  DWORD grfInheritance;
  TRUSTEE_W Trustee;
} EXPLICIT_ACCESS_W, *PEXPLICIT_ACCESS_W;

extern "C" {
DWORD WINAPI GetSecurityInfo(HANDLE handle, SE_OBJECT_TYPE ObjectType, SECURITY_INFORMATION SecurityInfo,
                             PSID* ppsidOwner, PSID* ppsidGroup, PACL* ppDacl, PACL* ppSacl,
                             PSECURITY_DESCRIPTOR* ppSecurityDescriptor);
DWORD WINAPI SetSecurityInfo(HANDLE handle, SE_OBJECT_TYPE ObjectType, SECURITY_INFORMATION SecurityInfo,
                             PSID psidOwner, PSID psidGroup, PACL pDacl, PACL pSacl);
DWORD WINAPI SetEntriesInAclW(ULONG cCountOfExplicitEntries, PEXPLICIT_ACCESS_W pListOfExplicitEntries, PACL OldAcl,
                              PACL* NewAcl);
}
