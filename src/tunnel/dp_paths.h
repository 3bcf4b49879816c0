// What the operations on DisplayPort tunnels share: the three paths by index, their hop IDs, the direction of the
// video.
#pragma once
#include <cstdint>

#include "tunnel/tunnel.h"

inline constexpr std::uint32_t kVideoPath = 0;
inline constexpr std::uint32_t kAuxTransmitPath = 1;  // from DP IN to DP OUT
inline constexpr std::uint32_t kAuxReceivePath = 2;

inline constexpr std::int32_t kVideoHopId = 9;
inline constexpr std::int32_t kAuxHopId = 8;

inline constexpr const char* kVideoName = "Video";
inline constexpr const char* kAuxTransmitName = "AUX TX";
inline constexpr const char* kAuxReceiveName = "AUX RX";

// Routers below it have DP adapters that exchange no capabilities.
inline constexpr std::uint32_t kFirstDpGeneration = 2;

// Away from the host. The tunnel has a destination.
[[nodiscard]] inline bool FlowsDownstream(const USB4_TUNNEL* tunnel) {
  return tunnel->Source->Router->Depth() < tunnel->Destination->Router->Depth();
}
