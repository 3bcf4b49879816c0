// USB3: paths like PCIe's, and a grant at the host router's adapter.
#include "tunnel/usb3_tunnel.h"

#include "include/trace.h"
#include "topology/router_queries.h"
#include "tunnel/link_bandwidth.h"
#include "tunnel/path_parameters.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_kind.h"
#include "tunnel/two_way_tunnel.h"
#include "tunnel/usb3_adapter.h"

namespace {

constexpr TWO_WAY_PATHS kUsb3Paths = {USB4_TUNNEL_USB3, "USB3 Down", "USB3 Up", KivUsb4Usb3PathInit};

// Further down a tunnel has no bandwidth of its own to ask for, to release or to take back.
void LeaveBandwidthToHost(USB4_TUNNEL* tunnel) {
  tunnel->Init = nullptr;
  tunnel->ConsumedBandwidth = nullptr;
  tunnel->ReleaseUnusedBandwidth = nullptr;
  tunnel->ReclaimAvailableBandwidth = nullptr;
}

// What the tunnel is to start with, the same each way; negative when it is to be refused.
std::int32_t InitialGrant(const USB4_ENDS& ends, const USB4_BANDWIDTH& maximum) {
  if (maximum.Upstream <= 0 && maximum.Downstream < 1) return 0;
  const KIV_RESULT rate = KivUsb4Usb3MaxLinkRate(ends);
  if (rate < 0) return rate;
  const std::int32_t grant = Usb3UsableMbps(rate);
  if (grant <= maximum.Upstream && grant <= maximum.Downstream) return grant;
  TraceWarningBy(NAME_OF(KivUsb4TunnelAllocUsb3), "too little bandwidth", "wanted", grant, "upstream", maximum.Upstream,
                 "downstream", maximum.Downstream);
  return kKivFailed;
}

std::int32_t Raised(std::int32_t allocated, std::int32_t available, std::int32_t most) {
  const std::int32_t possible = available < most ? available : most;
  return possible > allocated ? possible : allocated;
}

}  // namespace

std::int32_t Usb3UsableMbps(std::int32_t rateMbps) {
  return rateMbps * kUsb3UsablePercent / 100;
}

USB4_BANDWIDTH Usb3ChargeOf(const USB4_BANDWIDTH& grant) {
  return {grant.Upstream * 4 / 3, grant.Downstream * 4 / 3};
}

USB4_TUNNEL* KivUsb4TunnelAllocUsb3(USB4_DOMAIN* owner, const USB4_ENDS& ends, const USB4_BANDWIDTH& maximum) {
  const std::int32_t grant = InitialGrant(ends, maximum);
  if (grant < 0) return nullptr;
  USB4_TUNNEL* tunnel = BuildTwoWayTunnel(kUsb3Paths, owner, ends);
  if (tunnel == nullptr) return nullptr;
  tunnel->Maximum = maximum;
  if (IsHostRouter(ends.Source->Router)) {
    tunnel->Allocated = {grant, grant};
  } else {
    LeaveBandwidthToHost(tunnel);
  }
  return tunnel;
}

USB4_TUNNEL* KivUsb4TunnelDiscoverUsb3(USB4_DOMAIN* domain, USB4_PORT* downstream) {
  USB4_TUNNEL* tunnel = DiscoverTwoWayTunnel(kUsb3Paths, domain, downstream);
  if (tunnel == nullptr) return nullptr;
  if (!IsHostRouter(downstream->Router)) {
    LeaveBandwidthToHost(tunnel);
    return tunnel;
  }
  const KIV_RESULT result = Usb4Usb3PortAllocatedBandwidth(downstream, tunnel->Allocated);
  if (result != kKivOk) {
    TraceError("grant not read", "adapter", AsAdapter(downstream), "result", AsResult(result));
    KivUsb4TunnelDeactivate(tunnel);
    KivUsb4TunnelFree(tunnel);
    return nullptr;
  }
  return tunnel;
}

bool TraceBrokenUsb3(USB4_DOMAIN*, USB4_PORT* downstream) {
  TraceBrokenTwoWayPaths(kUsb3Paths, downstream);
  return true;
}

void GiveBackUsb3(const USB4_TUNNEL* tunnel) {
  // Failures are traced where they happen; the tunnel goes all the same.
  IgnoreResult(KivUsb4ReclaimUsb3Bandwidth(tunnel->Owner, {tunnel->Source, tunnel->Destination}));
}

KIV_RESULT KivUsb4Usb3Init(USB4_TUNNEL* tunnel) {
  return Usb4Usb3PortAllocateBandwidth(tunnel->Source, tunnel->Allocated);
}

KIV_RESULT KivUsb4Usb3Activate(USB4_TUNNEL* tunnel, bool enable) {
  return SwitchEnds(tunnel, enable);
}

KIV_RESULT KivUsb4Usb3ConsumedBandwidth(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& consumed) {
  consumed = Usb3ChargeOf(tunnel->Allocated);
  return kKivOk;
}

KIV_RESULT KivUsb4Usb3ReleaseUnusedBandwidth(USB4_TUNNEL* tunnel) {
  return Usb4Usb3PortReleaseBandwidth(tunnel->Source, tunnel->Allocated);
}

void KivUsb4Usb3ReclaimAvailableBandwidth(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& available) {
  KIV_RESULT rate = KivUsb4Usb3PortActualLinkRate(tunnel->Source);
  if (rate == 0) rate = KivUsb4Usb3PortMaxLinkRate(tunnel->Source);
  if (rate < 0) return;
  const std::int32_t most = Usb3UsableMbps(rate);
  USB4_BANDWIDTH& allocated = tunnel->Allocated;
  if (allocated.Upstream >= most && allocated.Downstream >= most) return;
  USB4_BANDWIDTH wanted = {Raised(allocated.Upstream, available.Upstream, most),
                           Raised(allocated.Downstream, available.Downstream, most)};
  if (wanted.Upstream == allocated.Upstream && wanted.Downstream == allocated.Downstream) return;
  const KIV_RESULT result = Usb4Usb3PortAllocateBandwidth(tunnel->Source, wanted);
  if (result != kKivOk) {
    TraceError("bandwidth not reclaimed", "adapter", AsAdapter(tunnel->Source), "result", AsResult(result));
    return;
  }
  allocated = wanted;
  // The whole grant comes off, not only the increase: what stays is what others may take beside this tunnel.
  available.Upstream -= allocated.Upstream;
  available.Downstream -= allocated.Downstream;
}
