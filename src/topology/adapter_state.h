// The state of lane adapters and the mode of their links. PASSIVE_LEVEL.
#pragma once
#include "include/router_record.h"
#include "include/status.h"

// States of a lane adapter; all others are on the way to one of these.
inline constexpr KIV_RESULT kLaneDisabled = 0;
inline constexpr KIV_RESULT kLaneUp = 2;            // CL0
inline constexpr KIV_RESULT kLaneDisconnected = 7;  // CLd

// The adapter state, 0 to 15; -1 without a lane capability, or when the read fails.
[[nodiscard]] KIV_RESULT KivUsb4PortState(const USB4_PORT* adapter);
// Whether the link runs in USB4 mode. False without a USB4 port capability and when the read fails.
[[nodiscard]] bool KivUsb4LinkIsUsb4(const USB4_PORT* adapter);
// 1 link up; 0 disabled, disconnected (unless `whileDisconnected`: then it goes on waiting), or undecided after 10
// polls of 100 ms; negative without a lane capability, for an upstream adapter, and when a read fails.
[[nodiscard]] KIV_RESULT KivUsb4WaitForPort(const USB4_PORT* adapter, bool whileDisconnected);
// Lets packets through a downstream lane adapter of a USB4 router again, after a link drop or sleep has locked it. -1
// for anything but a lane adapter; 0 without an access on a Thunderbolt 3 router.
[[nodiscard]] KIV_RESULT KivUsb4PortUnlock(const USB4_PORT* adapter);
