// Places in a DROM image, for the files that read and parse one.
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
