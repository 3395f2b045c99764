// The standard TCP/IP port monitor's configuration request, as documented; neither platform's headers bring it.
#pragma once
#include <windows.h>

#define PROTOCOL_RAWTCP_TYPE 1
#define PROTOCOL_LPR_TYPE 2

typedef struct _CONFIG_INFO_DATA_1 {
  BYTE Reserved[128];
  DWORD dwVersion;
} CONFIG_INFO_DATA_1;

typedef struct _PORT_DATA_1 {
  WCHAR sztPortName[64];
  DWORD dwVersion;
  DWORD dwProtocol;
  DWORD cbSize;
  DWORD dwReserved;
  WCHAR sztHostAddress[49];
  WCHAR sztSNMPCommunity[33];
  DWORD dwDoubleSpool;
  WCHAR sztQueue[33];
  WCHAR sztIPAddress[16];
  BYTE Reserved[540];
  DWORD dwPortNumber;
  DWORD dwSNMPEnabled;
  DWORD dwSNMPDevIndex;
} PORT_DATA_1;

static_assert(sizeof(CONFIG_INFO_DATA_1) == 132);
static_assert(sizeof(PORT_DATA_1) == 964);
