// The limit of a log line.
#pragma once

#include <windows.h>

#include <shlobj.h>

#include <string>

#include "sim/text.h"

namespace bench {

// The calls that a written line is described by, and nothing else.
struct BareLine {
  BareLine() {
    wchar_t wszData[MAX_PATH];
    SHGetSpecialFolderPathW(nullptr, wszData, CSIDL_COMMON_APPDATA, FALSE);
    base = sim::Wide(sim::Narrow(wszData) + "\\Kelvane\\Logs");
    module = base + L"\\PrinterDriver";
    file = module + L"\\bare.txt";
    hMutex = CreateMutexW(nullptr, FALSE, L"Global\\Kelvane_SDK_LOGS2");
    hTurn = CreateEventW(nullptr, FALSE, TRUE, nullptr);
    InitializeCriticalSection(&cs);
  }
  ~BareLine() {
    CloseHandle(hMutex);
    CloseHandle(hTurn);
    DeleteCriticalSection(&cs);
    DeleteFileW(file.c_str());
  }
  BareLine(const BareLine&) = delete;
  BareLine& operator=(const BareLine&) = delete;
  void Write(const char* pBytes, DWORD cb) {
    WaitForSingleObject(hTurn, 1000);
    SYSTEMTIME st;
    GetLocalTime(&st);
    EnterCriticalSection(&cs);
    dwSink = GetFileAttributesW(base.c_str());
    dwSink = GetFileAttributesW(module.c_str());
    LeaveCriticalSection(&cs);
    WaitForSingleObject(hMutex, 60'000);
    dwSink = GetTickCount();
    const HANDLE hFile =
        CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    LARGE_INTEGER cbFile;
    GetFileSizeEx(hFile, &cbFile);
    dwSink = GetTickCount();
    SetFilePointer(hFile, 0, nullptr, FILE_END);
    DWORD cbWritten = 0;
    WriteFile(hFile, pBytes, cb, &cbWritten, nullptr);
    GetFileSizeEx(hFile, &cbFile);
    CloseHandle(hFile);
    ReleaseMutex(hMutex);
    SetEvent(hTurn);
  }
  sim::WideString base;
  sim::WideString module;
  sim::WideString file;
  volatile DWORD dwSink = 0;
  HANDLE hMutex;
  HANDLE hTurn;
  CRITICAL_SECTION cs;
};

}  // namespace bench
