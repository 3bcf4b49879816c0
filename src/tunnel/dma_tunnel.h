// DMA tunnels: rings of the host interface joined with those of a peer host. PASSIVE_LEVEL.
//
// Two paths of one hop: "DMA TX" from the host interface adapter to the lane adapter that faces the peer, and "DMA RX"
// back. On the host interface adapter a hop ID is a ring's number.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/domain_record.h"
#include "include/peer_record.h"
#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

struct USB4_DMA_HOPS {
  std::int32_t TransmitFar;   // where "DMA TX" ends at the lane adapter
  std::int32_t TransmitHost;  // where it starts at the host interface adapter
  std::int32_t ReceiveFar;    // where "DMA RX" starts at the lane adapter
  std::int32_t ReceiveHost;   // where it ends at the host interface adapter
};
inline constexpr std::uint32_t kDmaPaths = 2;
inline constexpr USB4_DMA_HOPS kEveryDmaTunnel = {-1, -1, -1, -1};

// Null when a hop ID is taken or there is no memory; nothing is written until activation.
[[nodiscard]] USB4_TUNNEL* KivUsb4TunnelAllocDma(USB4_DOMAIN* owner, USB4_PORT* hostInterface, USB4_PORT* lane,
                                                 const USB4_DMA_HOPS& hops);
// The activate callback: gives the host interface adapter its link credits, or takes them.
[[nodiscard]] KIV_RESULT KivUsb4DmaActivate(USB4_TUNNEL* tunnel, bool enable);
[[nodiscard]] KIV_RESULT KivUsb4PortSetAllocatedCredits(USB4_PORT* adapter, std::uint32_t credits);
// What the host interface adapter has buffers for, 13 at most.
[[nodiscard]] std::uint32_t KivUsb4DmaHopCredits(const USB4_PORT* hostInterface);
// Whether the tunnel's paths run at these hop IDs. A value of 0 or less stands for any, but a host hop ID of 0 matches
// no tunnel.
[[nodiscard]] bool KivUsb4TunnelMatchDma(const USB4_TUNNEL* tunnel, const USB4_DMA_HOPS& hops);

// Builds and activates the tunnel to a peer, and lists it; no count changes. -12 when it cannot be built, -5 when it
// cannot be activated: then nothing is left of it.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4ApproveXdomainPaths(USB4_DOMAIN* domain, const USB4_XDOMAIN* xdomain, const USB4_DMA_HOPS& hops);
// Takes down the listed tunnels to the peer that match, and takes every other tunnel off the list, too: those stay
// active, as orphans. Holds the peer's lock.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4DisconnectXdomainPaths(USB4_DOMAIN* domain, USB4_XDOMAIN* xdomain,
                                                                      const USB4_DMA_HOPS& hops);
