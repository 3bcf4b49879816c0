// Reservation of hop IDs, per adapter and direction. PASSIVE_LEVEL, under the domain's path lock.
#pragma once
#include <cstdint>

#include "include/router_record.h"

// Hop IDs Lowest to Highest, both included; a negative Highest stands for the adapter's own maximum.
struct USB4_HOP_ID_RANGE {
  std::int32_t Lowest;
  std::int32_t Highest;
};

inline constexpr std::int32_t kNoHopId = -1;
inline constexpr USB4_HOP_ID_RANGE kAnyHopId = {-1, -1};

// For an ID that is not negative.
[[nodiscard]] constexpr USB4_HOP_ID_RANGE ExactHopId(std::int32_t hopId) {
  return {hopId, hopId};
}

// Reserves and returns the lowest free hop ID of the range, or kNoHopId. IDs 0 to 7 are never handed out, except on a
// host interface adapter, where hop IDs are ring numbers.
[[nodiscard]] std::int32_t KivUsb4PortAllocHopid(USB4_PORT* adapter, bool input, USB4_HOP_ID_RANGE range);
[[nodiscard]] std::int32_t KivUsb4PortAllocInHopid(USB4_PORT* adapter, USB4_HOP_ID_RANGE range);
[[nodiscard]] std::int32_t KivUsb4PortAllocOutHopid(USB4_PORT* adapter, USB4_HOP_ID_RANGE range);

// Releasing a free ID, or one that no map holds, does nothing.
void KivUsb4PortReleaseInHopid(USB4_PORT* adapter, std::uint32_t hopId);
void KivUsb4PortReleaseOutHopid(USB4_PORT* adapter, std::uint32_t hopId);
