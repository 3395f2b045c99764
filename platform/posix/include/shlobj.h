#pragma once
#include <windows.h>

#define CSIDL_COMMON_APPDATA 0x0023

extern "C" BOOL WINAPI SHGetSpecialFolderPathW(HWND hwnd, LPWSTR pszPath, int csidl, BOOL fCreate);
