// Bandwidth along the way of a tunnel.
#include "tunnel/link_bandwidth.h"

#include "include/trace.h"
#include "topology/link.h"
#include "topology/router_queries.h"
#include "tunnel/protocol_adapter.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_list.h"

namespace {

constexpr std::int32_t kMbpsPerGbps = 1000;
constexpr std::int32_t kReservedShare = 10;
constexpr std::int32_t kMostMbps = 40000;

void Subtract(USB4_BANDWIDTH& from, const USB4_BANDWIDTH& what) {
  from.Upstream -= what.Upstream;
  from.Downstream -= what.Downstream;
}

std::int32_t Smaller(std::int32_t a, std::int32_t b) {
  return a < b ? a : b;
}

// Gb/s per lane of the adapter's link, or an error. The end that looks upwards has it on record.
KIV_RESULT SpeedOf(const USB4_PORT* adapter) {
  if (KivUsb4PortIsUpstream(adapter)) return static_cast<KIV_RESULT>(adapter->Router->LinkSpeed);
  return KivUsb4PortGetLinkSpeed(adapter);
}

// What the link of a lane adapter leaves after its DisplayPort tunnels.
KIV_RESULT BudgetOf(USB4_DOMAIN* domain, const USB4_PORT* adapter, USB4_BANDWIDTH& budget) {
  const KIV_RESULT speed = SpeedOf(adapter);
  if (speed < 0) return speed;
  budget.Upstream = budget.Downstream = LinkUsableMbps(LinkCapacityMbps(speed, adapter->Bonded != 0));
  for (USB4_TUNNEL& tunnel : TunnelsOf(domain)) {
    if (!KivUsb4TunnelIsDp(&tunnel) || !KivUsb4TunnelUsesPort(&tunnel, adapter)) continue;
    USB4_BANDWIDTH consumed = {};
    const KIV_RESULT result = KivUsb4TunnelConsumedBandwidth(&tunnel, &consumed);
    if (result != kKivOk) return result;
    Subtract(budget, consumed);
  }
  return kKivOk;
}

const USB4_SWITCH* DeeperRouter(const USB4_ENDS& ends) {
  const USB4_SWITCH* source = ends.Source->Router;
  const USB4_SWITCH* destination = ends.Destination->Router;
  return destination->Depth() > source->Depth() ? destination : source;
}

}  // namespace

std::int32_t LinkCapacityMbps(std::int32_t gbpsPerLane, bool bonded) {
  return gbpsPerLane * (bonded ? 2 : 1) * kMbpsPerGbps;
}

std::int32_t LinkUsableMbps(std::int32_t capacityMbps) {
  return capacityMbps - capacityMbps / kReservedShare;
}

USB4_TUNNEL* KivUsb4FindFirstUsb3Tunnel(USB4_DOMAIN* domain, const USB4_ENDS& ends) {
  const USB4_SWITCH* router = DeeperRouter(ends);
  const USB4_SWITCH* host = domain->HostRouter;
  if (host == nullptr || IsHostRouter(router)) return nullptr;
  const USB4_PORT* lane = KivUsb4SwitchPortForRoute(host, KivUsb4SwitchRoute(router));
  if (lane == nullptr) return nullptr;
  // The mapping passes over an adapter that is switched on, so a tunnel that is up is not matched: a running USB3 link
  // keeps its grant, and only one whose adapter is off is asked to give way or to take back.
  USB4_PORT* downstream = Usb4SwitchMapUsb3Down(host, lane);
  if (downstream == nullptr) return nullptr;
  return KivUsb4FindTunnel(domain, USB4_TUNNEL_USB3, {downstream, nullptr});
}

KIV_RESULT KivUsb4AvailableBandwidth(USB4_DOMAIN* domain, const USB4_ENDS& ends, USB4_BANDWIDTH& available) {
  USB4_BANDWIDTH usb3 = {};
  USB4_TUNNEL* first = KivUsb4FindFirstUsb3Tunnel(domain, ends);
  if (first != nullptr) {
    const KIV_RESULT result = KivUsb4TunnelConsumedBandwidth(first, &usb3);
    if (result != kKivOk) return result;
  }
  USB4_BANDWIDTH least = {kMostMbps, kMostMbps};
  for (const USB4_PORT* adapter = KivUsb4NextPortOnPath(ends, nullptr); adapter != nullptr;
       adapter = KivUsb4NextPortOnPath(ends, adapter)) {
    if (!KivUsb4PortIsLane(adapter)) continue;
    USB4_BANDWIDTH budget = {};
    const KIV_RESULT result = BudgetOf(domain, adapter, budget);
    if (result != kKivOk) {
      TraceError("bandwidth unknown", "adapter", AsAdapter(adapter), "result", AsResult(result));
      return result;
    }
    // On every link of the way, whether or not that tunnel crosses it: below the host router all USB3 traffic of the
    // branch lives inside its grant.
    Subtract(budget, usb3);
    least.Upstream = Smaller(least.Upstream, budget.Upstream);
    least.Downstream = Smaller(least.Downstream, budget.Downstream);
  }
  available.Upstream = least.Upstream < 0 ? 0 : least.Upstream;
  available.Downstream = least.Downstream < 0 ? 0 : least.Downstream;
  return kKivOk;
}

KIV_RESULT KivUsb4ReclaimUsb3Bandwidth(USB4_DOMAIN* domain, const USB4_ENDS& ends) {
  USB4_TUNNEL* tunnel = KivUsb4FindFirstUsb3Tunnel(domain, ends);
  if (tunnel == nullptr) return kKivOk;
  USB4_BANDWIDTH available = {};
  const KIV_RESULT result = KivUsb4AvailableBandwidth(domain, {tunnel->Source, tunnel->Destination}, available);
  if (result != kKivOk) {
    TraceError("nothing reclaimed", "result", AsResult(result));
    return result;
  }
  KivUsb4TunnelReclaimAvailableBandwidth(tunnel, available);
  return kKivOk;
}

KIV_RESULT KivUsb4ReleaseUsb3Bandwidth(USB4_DOMAIN* domain, const USB4_ENDS& ends) {
  USB4_TUNNEL* tunnel = KivUsb4FindFirstUsb3Tunnel(domain, ends);
  return tunnel == nullptr ? kKivOk : KivUsb4TunnelReleaseUnusedBandwidth(tunnel);
}
