// DP IN and DP OUT adapters: switching them, hot-plug detect, and the hop IDs that Thunderbolt 3 ones want to be told.
// PASSIVE_LEVEL. Each returns 0 or the error of the access that failed, -1 without the capability.
#pragma once
#include <cstdint>

#include "include/router_record.h"
#include "include/status.h"

// Video and AUX together.
[[nodiscard]] KIV_RESULT KivUsb4DpPortEnable(const USB4_PORT* adapter, bool enable);
// Video or AUX is on; false also when it cannot be read.
[[nodiscard]] bool KivUsb4DpPortIsEnabled(const USB4_PORT* adapter);
// Tells the source of a DP IN that its display is gone.
[[nodiscard]] KIV_RESULT KivUsb4DpPortHpdClear(const USB4_PORT* adapter);
// 1 when a display is attached, 0 when not, or a negative error.
[[nodiscard]] KIV_RESULT KivUsb4DpPortHpdIsActive(const USB4_PORT* adapter);

struct DP_HOP_IDS {
  std::uint32_t Video;
  std::uint32_t AuxTransmit;
  std::uint32_t AuxReceive;
};
// 0 without an access on a USB4 router, whose hop IDs are fixed.
[[nodiscard]] KIV_RESULT KivUsb4DpPortSetHops(const USB4_PORT* adapter, const DP_HOP_IDS& hops);
