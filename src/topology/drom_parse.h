// Checking a DROM image and applying its entries to the records of the router and its adapters. PASSIVE_LEVEL, while a
// router is added.
#pragma once
#include <cstdint>

#include "include/router_record.h"
#include "include/status.h"

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
