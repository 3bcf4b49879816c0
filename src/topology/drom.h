// The DROM of a router: how its image is read and kept. PASSIVE_LEVEL, while a router is added.
#pragma once
#include <cstdint>

#include "include/router_record.h"
#include "include/status.h"

// Reads the image and applies it. 0 also when the image is broken (it is dropped then) and for every router from which
// none is wanted; -1 or an access error only when a USB4 device router's image can't be read.
[[nodiscard]] KIV_RESULT KivUsb4DromRead(USB4_SWITCH* router);

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
