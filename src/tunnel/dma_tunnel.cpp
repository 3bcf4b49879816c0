// DMA tunnels to peer hosts.
#include "tunnel/dma_tunnel.h"

#include <span>

#include "hostif/abort.h"
#include "include/locks.h"
#include "include/trace.h"
#include "topology/device_list.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"
#include "tunnel/path_parameters.h"
#include "tunnel/protocol_adapter.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_kind.h"
#include "tunnel/tunnel_list.h"

namespace {

constexpr std::uint32_t kTransmit = 0;
constexpr std::uint32_t kReceive = 1;
constexpr std::uint32_t kLinkNumber = 0;
constexpr std::uint32_t kMostHopCredits = 13;
constexpr std::uint32_t kReceiveCredits = 14;
constexpr DMA_PATH_PARAMETERS kReceiveParameters = {
    .IngressSharedBuffering = 0, .EgressFlowControl = kFirstHop | kInnerHops, .Credits = kReceiveCredits};

// Both ends of the tunnels to a peer; null where the host router lacks one. A peer behind a hub has the same ends as
// one behind the host's port: the path goes no further than that.
USB4_ENDS EndsTowards(const RouterReference& host, const USB4_XDOMAIN* xdomain) {
  if (!host) return {};
  return {KivUsb4SwitchFindPortByType(host.Get(), USB4_ADAPTER_HOST_INTERFACE),
          KivUsb4SwitchPortForRoute(host.Get(), xdomain->Route)};
}

bool BuildDmaPaths(USB4_TUNNEL* tunnel, const USB4_DMA_HOPS& hops) {
  USB4_PORT* host = tunnel->Source;
  USB4_PORT* lane = tunnel->Destination;
  if (!BuildPath(tunnel, kReceive, {{lane, hops.ReceiveFar}, {host, hops.ReceiveHost}, kLinkNumber, "DMA RX"}) ||
      !BuildPath(tunnel, kTransmit, {{host, hops.TransmitHost}, {lane, hops.TransmitFar}, kLinkNumber, "DMA TX"})) {
    return false;
  }
  InitDmaPath(tunnel->Paths[kReceive], kReceiveParameters);
  InitDmaPath(tunnel->Paths[kTransmit], {.IngressSharedBuffering = kFirstHop,
                                         .EgressFlowControl = kFirstHop | kInnerHops | kLastHop,
                                         .Credits = KivUsb4DmaHopCredits(host)});
  return true;
}

struct DmaPaths {
  const USB4_HOP* TransmitFirst;
  const USB4_HOP* TransmitLast;
  const USB4_HOP* ReceiveFirst;
  const USB4_HOP* ReceiveLast;
};

// By where they touch a host interface adapter; null where there is no such path.
DmaPaths PathsAtHost(const USB4_TUNNEL* tunnel) {
  DmaPaths found = {};
  for (const USB4_PATH* path : std::span<USB4_PATH*>(tunnel->Paths, tunnel->PathCount)) {
    const USB4_HOP* first = &path->Hops[0];
    const USB4_HOP* last = &path->Hops[path->HopCount - 1];
    if (PortIs(first->InputAdapter, USB4_ADAPTER_HOST_INTERFACE)) {
      found.TransmitFirst = first;
      found.TransmitLast = last;
    }
    if (PortIs(last->OutputAdapter, USB4_ADAPTER_HOST_INTERFACE)) {
      found.ReceiveFirst = first;
      found.ReceiveLast = last;
    }
  }
  return found;
}

bool HopIdIs(std::uint32_t hopId, std::int32_t wanted) {
  return static_cast<std::int32_t>(hopId) == wanted;
}

// Without a ring number any transmit path will do, whatever its far hop ID.
bool TransmitMatches(const DmaPaths& paths, const USB4_DMA_HOPS& hops) {
  if (hops.TransmitHost < 1 && hops.TransmitFar < 1) return true;
  if (paths.TransmitFirst == nullptr) return false;
  if (hops.TransmitHost < 1) return true;
  return HopIdIs(paths.TransmitFirst->InputHopId, hops.TransmitHost) &&
         HopIdIs(paths.TransmitLast->OutputHopId, hops.TransmitFar);
}

bool ReceiveMatches(const DmaPaths& paths, const USB4_DMA_HOPS& hops) {
  if (hops.ReceiveHost < 1 && hops.ReceiveFar < 1) return true;
  if (paths.ReceiveFirst == nullptr) return false;
  if (hops.ReceiveFar > 0 && !HopIdIs(paths.ReceiveFirst->InputHopId, hops.ReceiveFar)) return false;
  return hops.ReceiveHost < 1 || HopIdIs(paths.ReceiveLast->OutputHopId, hops.ReceiveHost);
}

bool IsMeant(const USB4_TUNNEL& tunnel, const USB4_ENDS& ends, const USB4_DMA_HOPS& hops) {
  return KivUsb4TunnelIsDma(&tunnel) && tunnel.Source == ends.Source && tunnel.Destination == ends.Destination &&
         KivUsb4TunnelMatchDma(&tunnel, hops);
}

}  // namespace

USB4_TUNNEL* KivUsb4TunnelAllocDma(USB4_DOMAIN* owner, USB4_PORT* hostInterface, USB4_PORT* lane,
                                   const USB4_DMA_HOPS& hops) {
  USB4_TUNNEL* tunnel = NewTunnel(USB4_TUNNEL_DMA, owner, {hostInterface, lane});
  if (tunnel == nullptr) return nullptr;
  if (BuildDmaPaths(tunnel, hops)) return tunnel;
  KivUsb4TunnelFree(tunnel);
  return nullptr;
}

KIV_RESULT KivUsb4DmaActivate(USB4_TUNNEL* tunnel, bool enable) {
  return KivUsb4PortSetAllocatedCredits(tunnel->Source, enable ? KivUsb4DmaHopCredits(tunnel->Source) : 0);
}

KIV_RESULT KivUsb4PortSetAllocatedCredits(USB4_PORT* adapter, std::uint32_t credits) {
  return ModifyRegister<AdpCs5>(adapter, 0, [credits](AdpCs5::Value& cs5) { cs5.Set<AdpCs5::LinkCredits>(credits); });
}

std::uint32_t KivUsb4DmaHopCredits(const USB4_PORT* hostInterface) {
  const AdpCs4::Value cs4(hostInterface->Header[AdpCs4::kOffset]);
  const std::uint32_t buffers = cs4.Get<AdpCs4::TotalBuffers>();
  return buffers < kMostHopCredits ? buffers : kMostHopCredits;
}

bool KivUsb4TunnelMatchDma(const USB4_TUNNEL* tunnel, const USB4_DMA_HOPS& hops) {
  if (hops.ReceiveHost == 0 || hops.TransmitHost == 0) return false;
  const DmaPaths paths = PathsAtHost(tunnel);
  return TransmitMatches(paths, hops) && ReceiveMatches(paths, hops);
}

KIV_RESULT KivUsb4ApproveXdomainPaths(USB4_DOMAIN* domain, const USB4_XDOMAIN* xdomain, const USB4_DMA_HOPS& hops) {
  TraceStep("approve paths", "name", xdomain->Info.Name, "transmit far", hops.TransmitFar, "transmit host",
            hops.TransmitHost, "receive far", hops.ReceiveFar, "receive host", hops.ReceiveHost);
  const PathGuard paths(*domain);
  const RouterReference host = KivUsb4DomainGetSwitch(domain, 0);
  const USB4_ENDS ends = EndsTowards(host, xdomain);
  if (ends.Source == nullptr || ends.Destination == nullptr) return kKivNoMemory;
  USB4_TUNNEL* tunnel = KivUsb4TunnelAllocDma(domain, ends.Source, ends.Destination, hops);
  if (tunnel == nullptr) return kKivNoMemory;
  const KIV_RESULT result = KivUsb4TunnelActivate(tunnel);
  if (result != kKivOk) {
    TraceError("paths not approved", "name", xdomain->Info.Name, "result", AsResult(result));
    KivUsb4TunnelFree(tunnel);
    return kKivIoError;
  }
  AppendTunnel(tunnel);
  return kKivOk;
}

void KivUsb4DisconnectXdomainPaths(USB4_DOMAIN* domain, USB4_XDOMAIN* xdomain, const USB4_DMA_HOPS& hops) {
  TraceStep("disconnect paths", "name", xdomain->Info.Name, "transmit far", hops.TransmitFar, "transmit host",
            hops.TransmitHost, "receive far", hops.ReceiveFar, "receive host", hops.ReceiveHost);
  const MutexGuard guard(xdomain->Lock);
  const PathGuard paths(*domain);
  const RouterReference host = KivUsb4DomainGetSwitch(domain, 0);
  const USB4_ENDS ends = EndsTowards(host, xdomain);
  for (USB4_TUNNEL& tunnel : TunnelsOf(domain)) {
    if (IsMeant(tunnel, ends, hops)) {
      IgnoreResult(UnlinkTunnel(&tunnel));  // it stands there; without it no count goes down
      KivUsb4DeactivateAndFreeTunnel(&tunnel, {.Unlink = false, .KeepHardware = false});
    } else {
      // Tunnels of other protocols were never meant to live beside a peer that leaves; they keep running, but nobody
      // manages them until the next start.
      OrphanTunnel(&tunnel);
    }
  }
}
