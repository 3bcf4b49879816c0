// Walks over the capability lists of routers and adapters. PASSIVE_LEVEL; every step reads registers.
//
// A list comes from a device: offsets are followed only as far as the access check lets them, and a list that leads
// back into itself ends with -1 after 256 steps.
#pragma once
#include "include/router_record.h"
#include "include/status.h"

// An offset in dwords (0 ends a list), or a negative result: -1 for not found or a failed read.
using CAPABILITY_OFFSET = KIV_RESULT;

// The first router capability with this ID, following the short form's next pointers alone.
[[nodiscard]] CAPABILITY_OFFSET KivUsb4SwitchFindCap(const USB4_SWITCH* router, std::uint32_t id);
// The capability after the one at `offset`; after 0 the first one. 0 at the end, -1 behind a capability other than TMU
// and vendor-specific ones, since only their lengths are known.
[[nodiscard]] CAPABILITY_OFFSET KivUsb4SwitchNextCap(const USB4_SWITCH* router, std::uint32_t offset);
[[nodiscard]] CAPABILITY_OFFSET KivUsb4SwitchFindVseCap(const USB4_SWITCH* router, std::uint32_t vendorSpecificId);

[[nodiscard]] CAPABILITY_OFFSET KivUsb4PortFindCap(const USB4_PORT* adapter, std::uint32_t id);
[[nodiscard]] CAPABILITY_OFFSET KivUsb4PortNextCap(const USB4_PORT* adapter, std::uint32_t offset);
