// The models themselves: constant data.
#include "monitor/model.h"

namespace {

// Status bits of the eight-byte protocol: low nibbles of the header byte, of byte 1 and of byte 5.
constexpr StatusDef Error(LONGLONG llMask) { return {STATUS_KIND_ERROR, llMask}; }
constexpr StatusDef Info(LONGLONG llMask) { return {STATUS_KIND_INFO, llMask}; }
constexpr StatusDef kEnd = {0, 0};
constexpr LONGLONG kByte5Bit3 = 0x0000080000000000;

constexpr StatusDef kStatusHm[] = {Error(0x800), Error(0x400), Error(0x100), Error(0x1),
                                   Error(0x2),   Error(0x4),   Error(0x8),   kEnd};
constexpr StatusDef kStatusPx[] = {Error(0x800), Error(0x400), Error(0x100),      Error(0x1),
                                   Error(0x2),   Error(0x4),   Error(kByte5Bit3), kEnd};
constexpr StatusDef kStatusPx5[] = {Error(0x400), Error(0x100),      Error(0x1), Error(0x2),
                                    Error(0x4),   Error(kByte5Bit3), kEnd};
constexpr StatusDef kStatusDt2[] = {Error(0x800), Error(0x400), Error(0x100), Error(0x1), Error(0x2),
                                    Error(0x4),   Error(0x8),   Info(0x200),  kEnd};
constexpr StatusDef kStatusNone[] = {kEnd};
constexpr StatusDef kStatusTagline[] = {Error(0x1), Error(0x2), Error(0x4), kEnd};

constexpr StatusInfo kInfoHm = {kStatusHm};
constexpr StatusInfo kInfoPx = {kStatusPx};
constexpr StatusInfo kInfoPx5 = {kStatusPx5};
constexpr StatusInfo kInfoDt2 = {kStatusDt2};
constexpr StatusInfo kInfoNone = {kStatusNone};
constexpr StatusInfo kInfoTagline = {kStatusTagline};

constexpr RespInfo kRespHm520 = {&kInfoHm, 0x36};  // also of the HM-510
constexpr RespInfo kRespHm500 = {&kInfoHm, 0x06};
constexpr RespInfo kRespPx = {&kInfoPx, 0x02};
constexpr RespInfo kRespPx5 = {&kInfoPx5, 0x02};
constexpr RespInfo kRespDt2 = {&kInfoDt2, 0x46};
constexpr RespInfo kRespDt7 = {&kInfoHm, 0x07};
constexpr RespInfo kRespCv4 = {&kInfoNone, 0x18};
constexpr RespInfo kRespTagline = {&kInfoTagline, RESP_ONE_BYTE_STATUS | 0x04};

constexpr wchar_t kFourSpeeds[] = L"115200,38400,19200,9600,P,X";
constexpr DevInfo kSerial = {kFourSpeeds, 0};
constexpr DevInfo kNoSerial = {L"", 0};
constexpr DevInfo kSerialWithOption = {kFourSpeeds, DEVCAP_OPEN_OPTION};
constexpr DevInfo kNoSettings = {nullptr, 0};
constexpr DevInfo kPlainSerial = {L"115200,38400,19200,9600", 0};

constexpr DevSetting kPlainSetting = {0};
constexpr DevSetting kFlagSetting = {DEVSET_LOG_SETTING_FLAGS};

constinit const DevData kHm520{nullptr, &kRespHm520, &kPlainSetting};
constinit const DevData kHm510{nullptr, &kRespHm520, &kPlainSetting};
constinit const DevData kHm500{nullptr, &kRespHm500, &kPlainSetting};
constinit const DevData kPx7{nullptr, &kRespPx, &kPlainSetting};
constinit const DevData kPx7t{nullptr, &kRespPx, &kPlainSetting};
constinit const DevData kPx5{nullptr, &kRespPx5, &kFlagSetting};
constinit const DevData kPx6t{nullptr, &kRespPx, &kPlainSetting};
constinit const DevData kPx9{nullptr, &kRespPx, &kFlagSetting};
constinit const DevData kDt2{nullptr, &kRespDt2, &kFlagSetting};
constinit const DevData kDt7{nullptr, &kRespDt7, &kPlainSetting};
constinit const DevData kCv4{nullptr, &kRespCv4, nullptr};
constinit const DevData kTagline{nullptr, &kRespTagline, &kPlainSetting};

// One row a model, in search order.
// clang-format off
constexpr DevModelEntry kTable[] = {
    {L"Kelvane HM-520", &kSerial, &kHm520},
    {L"Kelvane HM-510", &kSerial, &kHm510},
    {L"Kelvane HM-500", &kSerial, &kHm500},
    {L"Kelvane PX-7", &kNoSerial, &kPx7},
    {L"Kelvane PX-7T", &kNoSerial, &kPx7t},
    {L"Kelvane PX-5", &kNoSerial, &kPx5},
    {L"Kelvane PX-6T", &kNoSerial, &kPx6t},
    {L"Kelvane PX-9", &kNoSerial, &kPx9},
    {L"Kelvane DT-2", &kSerialWithOption, &kDt2},
    {L"Kelvane DT-7/DT-8", &kSerial, &kDt7},
    {L"Kelvane CV-4", &kNoSettings, &kCv4},
    {L"Kelvane Tagline 62", &kPlainSerial, &kTagline},
};
// clang-format on

}  // namespace

std::span<const DevModelEntry> DevModelTable() noexcept { return kTable; }
