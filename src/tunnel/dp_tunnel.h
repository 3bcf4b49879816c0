// DisplayPort tunnels: video and the two ways of the AUX channel, from a DP IN to a DP OUT adapter. PASSIVE_LEVEL,
// under the domain's path lock.
#pragma once
#include <cstdint>

#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

// The paths by index.
inline constexpr std::uint32_t kDpPaths = 3;
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

// `ends`: a DP IN and a DP OUT adapter. `maximum` limits the display's mode; 0 does not. Null when an adapter has no
// capability or a path cannot be had.
[[nodiscard]] USB4_TUNNEL* KivUsb4TunnelAllocDp(USB4_DOMAIN* owner, const USB4_ENDS& ends,
                                                const USB4_BANDWIDTH& maximum);
// Gives the DP IN back to its router; what the tunnel leaves behind goes to the branch's first USB3 tunnel.
void GiveBackDp(const USB4_TUNNEL* tunnel);

// The activate callback.
[[nodiscard]] KIV_RESULT KivUsb4DpActivate(USB4_TUNNEL* tunnel, bool enable);
// By the mode that source and display have agreed on; nothing while they have not, after up to 1.6 s of waiting for it.
[[nodiscard]] KIV_RESULT KivUsb4DpConsumedBandwidth(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& consumed);
// Waits until the DP IN of a USB4 router has read the display's capabilities: -1 after 10 polls of 100 ms.
[[nodiscard]] KIV_RESULT KivUsb4PollDPRxCapDone(const USB4_TUNNEL* tunnel);
