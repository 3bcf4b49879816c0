// Adopting programmed tunnels, and clearing away half-built ones.
#include "cm/tunnel_discovery.h"

#include "include/trace.h"
#include "topology/router_queries.h"
#include "tunnel/dp_paths.h"
#include "tunnel/dp_tunnel.h"
#include "tunnel/path.h"
#include "tunnel/pcie_tunnel.h"
#include "tunnel/tunnel_list.h"
#include "tunnel/two_way_tunnel.h"
#include "tunnel/usb3_tunnel.h"

namespace {

USB4_TUNNEL* Discover(USB4_DOMAIN* domain, USB4_PORT* adapter) {
  switch (adapter->Type()) {
    case USB4_ADAPTER_DP_IN:
      return KivUsb4TunnelDiscoverDp(domain, adapter);
    case USB4_ADAPTER_PCIE_DOWNSTREAM:
      return KivUsb4TunnelDiscoverPci(domain, adapter);
    case USB4_ADAPTER_USB3_DOWNSTREAM:
      return KivUsb4TunnelDiscoverUsb3(domain, adapter);
    default:
      return nullptr;
  }
}

void MarkRouters(const USB4_TUNNEL* tunnel) {
  USB4_SWITCH* router = tunnel->Destination->Router;
  for (; router != nullptr && router != tunnel->Source->Router; router = router->Info.Parent) {
    router->OnFirmwarePcieTunnel = 1;
  }
}

// An adopted DisplayPort tunnel counts in the total only. The count of its kind says which displays this driver has
// brought up and is to bring up again after a sleep; an adopted one belongs to whoever set it up.
void Adopt(USB4_DOMAIN* domain, USB4_TUNNEL* tunnel) {
  if (tunnel->Type == USB4_TUNNEL_PCIE) MarkRouters(tunnel);
  AppendTunnel(tunnel);
  domain->TunnelCount.Increment();
  if (tunnel->Type == USB4_TUNNEL_USB3) domain->Usb3TunnelCount.Increment();
  if (tunnel->Type == USB4_TUNNEL_PCIE) domain->PcieTunnelCount.Increment();
  TraceInfo("tunnel adopted", "type", tunnel->Type, "source", tunnel->Source->Number, "destination",
            tunnel->Destination->Number);
}

// Whether one of the three paths of a DP IN breaks off at an entry that is not valid.
bool DpPathsBreakOff(USB4_PORT* dpIn) {
  USB4_PORT* last = nullptr;
  if (KivUsb4DiscoverInCompletePath({{dpIn, kVideoHopId}, {nullptr, -1}, kVideoName}, &last)) return true;
  if (KivUsb4DiscoverInCompletePath({{dpIn, kAuxHopId}, {nullptr, -1}, kAuxTransmitName}, nullptr)) return true;
  return KivUsb4DiscoverInCompletePath({{last, -1}, {dpIn, kAuxHopId}, kAuxReceiveName}, nullptr);
}

struct PathNames {
  const char* Up;
  const char* Down;
};

// Only for the trace: discovery deals with these itself.
void TraceTwoWayPaths(USB4_PORT* downstream, const PathNames& names) {
  USB4_PORT* last = nullptr;
  const bool up = KivUsb4DiscoverInCompletePath({{downstream, kTwoWayHopId}, {nullptr, -1}, names.Up}, &last);
  const bool down = KivUsb4DiscoverInCompletePath({{last, -1}, {downstream, kTwoWayHopId}, names.Down}, nullptr);
  if (up || down) TraceWarning("paths break off", "adapter", downstream->Number, names.Up, up, names.Down, down);
}

// False when the walk is to end.
bool CleanUp(USB4_DOMAIN* domain, USB4_PORT* adapter) {
  switch (adapter->Type()) {
    case USB4_ADAPTER_DP_IN:
      if (KivUsb4PortIsTunnelEnabled(adapter) || DpPathsBreakOff(adapter)) return false;
      IgnoreResult(KivUsb4TunnelWorkAroundDiscoverDp(domain, adapter));  // always 0
      return true;
    case USB4_ADAPTER_PCIE_DOWNSTREAM:
      TraceTwoWayPaths(adapter, {"PCIe Up", "PCIe Down"});
      return true;
    case USB4_ADAPTER_USB3_DOWNSTREAM:
      TraceTwoWayPaths(adapter, {"USB3 Up", "USB3 Down"});
      return true;
    default:
      return true;
  }
}

}  // namespace

void KivUsb4DiscoverTunnels(USB4_SWITCH* router) {
  TraceStep("discover tunnels", "name", router->Info.Name);
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    USB4_TUNNEL* tunnel = Discover(router->Domain, &adapter);
    if (tunnel != nullptr) Adopt(router->Domain, tunnel);
  }
  for (const USB4_PORT& adapter : AdaptersOf(router)) {
    if (KivUsb4PortHasDownstreamLink(&adapter)) KivUsb4DiscoverTunnels(adapter.Remote->Router);
  }
}

void KivUsb4TunnelDiscoverandCleanUpUnCompleteDp(USB4_DOMAIN* domain) {
  TraceStep("clean up half-built tunnels");
  for (USB4_PORT& adapter : AdaptersOf(domain->HostRouter)) {
    if (!CleanUp(domain, &adapter)) return;
  }
}
