#pragma once
#include <windows.h>

extern "C" BOOL WINAPI PathFileExistsW(LPCWSTR pszPath);
extern "C" BOOL WINAPI PathIsDirectoryW(LPCWSTR pszPath);
