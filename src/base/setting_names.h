// Where the settings lie and what they are called: registry keys and values of the machine, printer data of a queue.
#pragma once

// Under HKEY_LOCAL_MACHINE; a key that cannot be opened is looked for in the 32-bit view.
inline constexpr wchar_t kLogKey[] = L"SOFTWARE\\Kelvane\\ThermalPrinterSdk";
inline constexpr wchar_t kLogKey32[] = L"SOFTWARE\\Wow6432Node\\Kelvane\\ThermalPrinterSdk";
inline constexpr wchar_t kLogLevelValue[] = L"LogLevelPos";
inline constexpr wchar_t kLogLifeDaysValue[] = L"LogLifeDays";

inline constexpr wchar_t kDriverKey[] = L"SOFTWARE\\Kelvane\\PrinterDriver";
inline constexpr wchar_t kDriverKey32[] = L"SOFTWARE\\Wow6432Node\\Kelvane\\PrinterDriver";
inline constexpr wchar_t kOpenWithStartDocValue[] = L"OpenWithStartDoc";

// Printer data.
inline constexpr wchar_t kAutoReprintValue[] = L"AutoReprint";
inline constexpr wchar_t kJobFilePathValue[] = L"JobFilePath";
inline constexpr wchar_t kJobSettingFlagsValue[] = L"JobSettingFlags";
inline constexpr wchar_t kJobValidDaysValue[] = L"JobValidDays";
inline constexpr wchar_t kLogSettingFlagsValue[] = L"LogSettingFlags";
inline constexpr wchar_t kUtilityGuidValue[] = L"UtilityGUID";

// The machine-wide mutex of those who write log lines.
inline constexpr wchar_t kLogMutexName[] = L"Global\\Kelvane_SDK_LOGS2";

// The device-access library and its service.
inline constexpr wchar_t kSdkLibrary[] = L"Norvex_SDK.dll";
inline constexpr wchar_t kSdkService[] = L"Norvex_Srv";
