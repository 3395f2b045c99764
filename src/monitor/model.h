// The printer models that the monitor knows, by the name of their driver. Constant data, shared by every port.
#pragma once

#include <windows.h>

#include <atomic>
#include <span>

// Kinds of a status definition.
inline constexpr DWORD STATUS_KIND_INFO = 1;       // never stops a wait
inline constexpr DWORD STATUS_KIND_ERROR = 2;      // stops both waits
inline constexpr DWORD STATUS_KIND_NOT_READY = 3;  // counts only in the wait for a printable status

// DevInfo::wDevCaps: the model is opened with the library's option 0x200.
inline constexpr WORD DEVCAP_OPEN_OPTION = 0x0010;
// RespInfo::byRespFlags: the printer answers with statuses of one byte instead of eight.
inline constexpr BYTE RESP_ONE_BYTE_STATUS = 0x80;
// DevSetting::wSettingFlags: the archive settings are kept in the printer data "LogSettingFlags".
inline constexpr WORD DEVSET_LOG_SETTING_FLAGS = 0x0001;

// One status bit of the printer protocol: mask bit n tests bit (n mod 8) of status byte (n div 8), the header byte being
// byte 0. A table ends at the first row whose mask is not greater than zero.
struct StatusDef {
  DWORD dwKind;
  LONGLONG llMask;
};

struct StatusInfo {
  const StatusDef* pStatusDef;
};

struct RespInfo {
  const StatusInfo* pStatusInfo;
  BYTE byRespFlags;
};

struct DevInfo {
  const wchar_t* pszCommSetting;  // serial settings, handed to the library unchanged; may be null
  WORD wDevCaps;
};

struct DevSetting {
  WORD wSettingFlags;
};

// A model's record. pDevInfo is empty until the model has been looked up; every lookup stores the same value.
struct DevData {
  mutable std::atomic<const DevInfo*> pDevInfo{nullptr};
  const RespInfo* pRespInfo;
  const DevSetting* pDevSetting;  // null reads as no setting

  bool HasOneByteStatus() const noexcept {
    return pRespInfo != nullptr && (pRespInfo->byRespFlags & RESP_ONE_BYTE_STATUS) != 0;
  }
  bool KeepsLogSettingFlags() const noexcept {
    return pDevSetting != nullptr && (pDevSetting->wSettingFlags & DEVSET_LOG_SETTING_FLAGS) != 0;
  }
};

struct DevModelEntry {
  const wchar_t* pszModelName;  // the driver's name
  const DevInfo* pDevInfo;
  const DevData* pDevData;
};

// The table's twelve rows in search order.
std::span<const DevModelEntry> DevModelTable() noexcept;

// The record of a queue's model, by the name of its driver (whole, without regard to case), or null for a printer that
// the monitor does not know. The handle stays the caller's. Any thread.
const DevData* GetDevDataLm(HANDLE hPrinter) noexcept;
