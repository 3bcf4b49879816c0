// The DROM of a router: how its image is read, checked and applied to the records. PASSIVE_LEVEL, while a router is
// added.
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
#include <cstdint>

#include "include/router_record.h"
#include "include/status.h"

// Reads the image and applies it. 0 also when the image is broken (it is dropped then) and for every router from which
// none is wanted; -1 or an access error only when a USB4 device router's image can't be read.
[[nodiscard]] KIV_RESULT KivUsb4DromRead(USB4_SWITCH* router);
// 0, or -1 for a broken image. Entries in front of a broken one keep their effect.
[[nodiscard]] KIV_RESULT KIVUsb4DromParse(USB4_SWITCH* router);    // USB4 format
[[nodiscard]] KIV_RESULT KIVUsb4tbdromparse(USB4_SWITCH* router);  // Thunderbolt format
// Entries from byte `first` to the end of the image.
[[nodiscard]] KIV_RESULT KivUsb4DromParseEntries(USB4_SWITCH* router, std::uint32_t first);
// One entry, which starts at byte `entry` and whose length byte has been checked.
[[nodiscard]] KIV_RESULT KivUsb4DromParseEntryGeneric(USB4_SWITCH* router, std::uint32_t entry);
[[nodiscard]] KIV_RESULT KivUsb4DromParseEntryPort(USB4_SWITCH* router, std::uint32_t entry);

// Polynomial 0x07, initial value 0xFF, most significant bit first, no final complement.
[[nodiscard]] std::uint8_t Crc8(const std::uint8_t* data, std::uint32_t bytes);

// `length` bytes from byte `offset` of the DROM, by the way that the router's kind has.
[[nodiscard]] KIV_RESULT KivUsb4DromReadBytes(const USB4_SWITCH* router, std::uint16_t offset, std::uint8_t* buffer,
                                              std::uint32_t length);
// Keeps a USB4 host router's image, unchecked. `size` is its length in bytes.
[[nodiscard]] KIV_RESULT Usb4CopyHostDrom(USB4_SWITCH* router, std::uint32_t& size);
// The UID of a Thunderbolt 3 host router, from its EEPROM; -1 when the check byte disagrees.
[[nodiscard]] KIV_RESULT KivUsb4DromReadUidOnly(const USB4_SWITCH* router, std::uint64_t& uid);
// The UID that a USB4 router shows in its registers.
[[nodiscard]] KIV_RESULT Usb4SwitchReadUid(const USB4_SWITCH* router, std::uint64_t& uid);

// By router operations, at most 64 bytes each. Each call has 3 retries for failed operations; -1 after them. Offsets
// are exact when they are 0 or when the bytes lie within one dword.
[[nodiscard]] KIV_RESULT Usb4SwitchDromRead(const USB4_SWITCH* router, std::uint32_t offset, std::uint8_t* buffer,
                                            std::uint32_t length);

// `Count` dwords from dword `Address` of the DROM.
struct DROM_BLOCK {
  std::uint32_t Address;
  std::uint32_t Count;
};
[[nodiscard]] KIV_RESULT Usb4SwitchDromReadBlock(const USB4_SWITCH* router, const DROM_BLOCK& block,
                                                 std::uint32_t* buffer);
// The data that the last operation left: -1 for more than 16 dwords.
[[nodiscard]] KIV_RESULT Usb4SwitchOpReadData(const USB4_SWITCH* router, std::uint32_t* buffer, std::uint32_t dwords);
