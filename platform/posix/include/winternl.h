// What the system's own calls take: the open that knows how not to wait. They are found by GetProcAddress in "ntdll".
#pragma once
#include <windows.h>

typedef struct _UNICODE_STRING {
  USHORT Length;
  USHORT MaximumLength;
  LPWSTR Buffer;
} UNICODE_STRING, *PUNICODE_STRING;
typedef struct _OBJECT_ATTRIBUTES {
  ULONG Length;
  HANDLE RootDirectory;
  PUNICODE_STRING ObjectName;
  ULONG Attributes;
  PVOID SecurityDescriptor;
  PVOID SecurityQualityOfService;
} OBJECT_ATTRIBUTES;
typedef struct _IO_STATUS_BLOCK {
  LONG Status;
  ULONG_PTR Information;
} IO_STATUS_BLOCK;
#define OBJ_CASE_INSENSITIVE 0x40u
