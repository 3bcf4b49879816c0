// Places in a DROM image, for the files that read and parse one.
//
// Offsets are bytes from the start of the image, multi-byte values little-endian:
//    0     CRC-8 of bytes 1 to 8 (checked in the Thunderbolt format only)
//    1..8  UID
//    9..12 CRC-32C of the data part, which starts at 13
//   13     version: 3 = USB4 format, anything else = Thunderbolt format
//   14..15 bits 11:0: data length, counted from 13
//   17..18 vendor ID, 19..20 model ID (Thunderbolt format)
//   16 (USB4) or 22 (Thunderbolt): the first entry
#pragma once
#include "include/router_record.h"

inline constexpr std::uint32_t kDromUidOffset = 1;
inline constexpr std::uint32_t kDromUidBytes = 8;
inline constexpr std::uint32_t kDromCrc32Offset = 9;
inline constexpr std::uint32_t kDromDataOffset = 13;
inline constexpr std::uint32_t kDromVersionOffset = 13;
inline constexpr std::uint16_t kDromLengthOffset = 14;
inline constexpr std::uint32_t kDromVendorOffset = 17;
inline constexpr std::uint32_t kDromModelOffset = 19;
inline constexpr std::uint32_t kDromFirstEntryUsb4 = 16;
inline constexpr std::uint32_t kDromFirstEntryTbt3 = 22;

inline std::uint16_t Le16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

// Bytes of the data part, by the image's own length field.
inline std::uint32_t DromDataLength(const USB4_SWITCH* router) {
  return Le16(router->Drom + kDromLengthOffset) & 0xFFFu;
}
