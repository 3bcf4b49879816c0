// The serial EEPROM of Thunderbolt 3 routers, clocked bit by bit through the plug-events capability. PASSIVE_LEVEL.
//
// Each change of a line is one configuration access, whose round trip is slower than the clock that the part needs;
// there are no delays besides. Nobody else may touch the control register meanwhile.
#pragma once
#include <cstdint>

#include "include/registers.h"
#include "include/router_record.h"
#include "include/status.h"

enum class EepromDirection { kIn, kOut };

// Where the DROM starts inside the EEPROM, in bytes; -1 when the router has no usable EEPROM.
[[nodiscard]] KIV_RESULT KivUsb4EepromGetDromOffset(const USB4_SWITCH* router, std::uint32_t& offset);
// Selects the part, or lets it go again.
[[nodiscard]] KIV_RESULT KivUsb4EepromActive(const USB4_SWITCH* router, bool active);
// One clock pulse: presents the data bit of `control`, or samples the part's into it.
[[nodiscard]] KIV_RESULT KivUsb4EepromTransfer(const USB4_SWITCH* router, EepromControl::Value& control,
                                               EepromDirection direction);
// One byte, most significant bit first.
[[nodiscard]] KIV_RESULT KivUsb4EepromOut(const USB4_SWITCH* router, std::uint8_t byte);
[[nodiscard]] KIV_RESULT KivUsb4EepromIn(const USB4_SWITCH* router, std::uint8_t& byte);
// `length` bytes from byte `offset` of the DROM. A failure leaves the part selected.
[[nodiscard]] KIV_RESULT KivUsb4EepromReadN(const USB4_SWITCH* router, std::uint16_t offset, std::uint8_t* buffer,
                                            std::uint32_t length);
