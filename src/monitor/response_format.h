// The formats of the printer's answers: eight-byte and one-byte statuses and the execution responses between them. Pure
// functions over bytes.
#pragma once

#include <windows.h>

#include <cstdint>
#include <span>

// Flag of LmAnalyzeRespData: the printer speaks the one-byte protocol.
inline constexpr DWORD kAnalyzeOneByteStatus = 0x1000000;

// Lengths of a status, header included (printer protocol).
inline constexpr DWORD kLongStatusBytes = 8;
inline constexpr DWORD kShortStatusBytes = 1;

// The status that tells nothing: it never lets a wait succeed.
inline constexpr BYTE kBlankStatus[kLongStatusBytes] = {0xC0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0, 0xD0};
// Execution response of the one-byte protocol.
inline constexpr BYTE kShortExecResponse = 0xC9;

// Keeps statuses and execution responses of received bytes and drops everything else, in place; the rest of the buffer up
// to cbReceived becomes zero.
//   pdwKept      bytes kept
//   pdwPosition  where in the input the header of an incomplete status stands; 0 when all is complete, untouched when
//                there is no response at all
// Returns TRUE when the data ends in a complete state. Logs what is incomplete.
BOOL LmAnalyzeRespData(BYTE* pBuf, DWORD cbReceived, DWORD* pdwKept, DWORD* pdwPosition, DWORD dwFlags) noexcept;

// What a wait looks for in kept bytes.
struct ResponseQuery {
  bool bOneByteStatus;
  bool bWaitExecResp;                // for the execution response, else for a printable status
  BYTE byExecResponse;               // the response that ends the wait
  std::uint64_t ullStopMask;         // bits of the 64-bit status value that stop it
  const wchar_t* pszPortName = L"";  // for log lines
};

enum class ScanResult { Nothing, Done, Stopped, NotPrintable };

// Scans kept bytes from the first to the last. Done: the execution response was found, or the last status is printable.
// Stopped: a status with a stop bit (or the blank one) came before the execution response; ullStatus receives it.
// NotPrintable: the last status is not printable. Nothing: no status and no awaited response. Logs each printable status of
// the wait for one.
ScanResult ScanResponses(std::span<const BYTE> kept, const ResponseQuery& query, std::uint64_t& ullStatus) noexcept;

// Bytes at the end of kept bytes that belong to a status whose rest has not been received; 0 when there is none.
DWORD IncompleteTail(std::span<const BYTE> kept) noexcept;

// Whether the first byte of a status in newly received bytes is a header (eight-byte protocol).
bool BeginsNewStatus(std::span<const BYTE> received) noexcept;

// In the one-byte protocol, bytes at the end of received data that may be the beginning of a blank status.
DWORD BlankStatusTail(std::span<const BYTE> received) noexcept;
