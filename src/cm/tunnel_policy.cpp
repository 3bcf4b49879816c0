// Building the trees of PCIe and USB3 tunnels, and clearing away what ran through an unplugged router.
#include "cm/tunnel_policy.h"

#include <span>

#include "hostif/abort.h"
#include "include/trace.h"
#include "topology/router_queries.h"
#include "tunnel/dp_resources.h"
#include "tunnel/link_bandwidth.h"
#include "tunnel/pcie_tunnel.h"
#include "tunnel/protocol_adapter.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_kind.h"
#include "tunnel/tunnel_list.h"
#include "tunnel/usb3_tunnel.h"

namespace {

using MakeTunnel = KIV_RESULT (*)(USB4_DOMAIN* domain, USB4_SWITCH* router);

KIV_RESULT CreateBelow(USB4_SWITCH* router, MakeTunnel makeTunnel) {
  if (!IsHostRouter(router)) {
    const KIV_RESULT result = makeTunnel(router->Domain, router);
    if (result != kKivOk) return result;
  }
  for (const USB4_PORT& adapter : AdaptersOf(router)) {
    if (!KivUsb4PortHasDownstreamLink(&adapter)) continue;
    const KIV_RESULT result = CreateBelow(adapter.Remote->Router, makeTunnel);
    if (result != kKivOk) return result;
  }
  return kKivOk;
}

USB4_PORT* UnlessInUse(USB4_PORT* candidate, USB4_ADAPTER_TYPE type) {
  return PortIs(candidate, type) && !KivUsb4PortIsTunnelEnabled(candidate) ? candidate : nullptr;
}

// A new tunnel becomes one of the domain's, or is freed. Null: it could not be built.
KIV_RESULT ActivateAndKeep(USB4_TUNNEL* tunnel) {
  if (tunnel == nullptr) return kKivFailed;
  if (KivUsb4TunnelActivate(tunnel) != kKivOk) {
    KivUsb4TunnelFree(tunnel);
    return kKivFailed;
  }
  CountTunnel(tunnel, false);
  AppendTunnel(tunnel);
  return kKivOk;
}

// Further down a tunnel lives inside the grant of the one that starts at the host router, and only where that reaches.
KIV_RESULT MakeRoomBelow(USB4_DOMAIN* domain, const USB4_ENDS& ends) {
  return IsHostRouter(ends.Source->Router) ? kKivOk : KivUsb4ReleaseUsb3Bandwidth(domain, ends);
}

void GiveRoomBack(USB4_DOMAIN* domain, const USB4_ENDS& ends) {
  if (IsHostRouter(ends.Source->Router)) return;
  IgnoreResult(KivUsb4ReclaimUsb3Bandwidth(domain, ends));  // traced where it fails
}

bool HasUsb3Itself(const USB4_SWITCH* parent) {
  const USB4_PORT* upstream = KivUsb4SwitchFindPortByType(parent, USB4_ADAPTER_USB3_UPSTREAM);
  return upstream != nullptr && KivUsb4PortIsTunnelEnabled(upstream);
}

KIV_RESULT BuildUsb3(USB4_DOMAIN* domain, const USB4_ENDS& ends) {
  KIV_RESULT result = MakeRoomBelow(domain, ends);
  if (result != kKivOk) return result;
  USB4_BANDWIDTH available = {};
  result = KivUsb4AvailableBandwidth(domain, ends, available);
  if (result != kKivOk) {
    GiveRoomBack(domain, ends);
    return result;
  }
  result = ActivateAndKeep(KivUsb4TunnelAllocUsb3(domain, ends, available));
  if (result == kKivOk) GiveRoomBack(domain, ends);
  return result;
}

bool IsGone(const USB4_PORT* adapter) {
  return adapter != nullptr && adapter->Router->Unplugged.IsSet();
}

}  // namespace

KIV_RESULT KivUsb4CreatePcieTunnels(USB4_SWITCH* router) {
  return CreateBelow(router, KivUsb4TunnnelPcie);
}

KIV_RESULT KivUsb4CreateUsb3Tunnels(USB4_SWITCH* router) {
  return CreateBelow(router, KivUsb4TunnelUsb3);
}

KIV_RESULT KivUsb4TunnnelPcie(USB4_DOMAIN* domain, USB4_SWITCH* router) {
  USB4_PORT* upstream = KivUsb4SwitchFindPortByType(router, USB4_ADAPTER_PCIE_UPSTREAM);
  const USB4_PORT* lane = ParentAdapterOf(router);
  if (upstream == nullptr || lane == nullptr) return kKivOk;
  USB4_PORT* downstream = KivUsb4FindPcieDown(lane->Router, lane);
  if (downstream == nullptr) return kKivOk;
  return ActivateAndKeep(KivUsb4TunnelAllocPcie(domain, {downstream, upstream}));
}

KIV_RESULT KivUsb4TunnelUsb3(USB4_DOMAIN* domain, USB4_SWITCH* router) {
  USB4_PORT* upstream = KivUsb4SwitchFindPortByType(router, USB4_ADAPTER_USB3_UPSTREAM);
  const USB4_PORT* lane = ParentAdapterOf(router);
  if (upstream == nullptr || lane == nullptr) return kKivOk;
  const USB4_SWITCH* parent = lane->Router;
  USB4_PORT* downstream = KivUsb4FindUsb3Down(parent, lane);
  if (downstream == nullptr) return kKivOk;
  if (!IsHostRouter(parent) && !HasUsb3Itself(parent)) return kKivOk;
  return BuildUsb3(domain, {downstream, upstream});
}

USB4_PORT* KivUsb4FindPcieDown(const USB4_SWITCH* parent, const USB4_PORT* laneAdapter) {
  if (KivUsb4SwitchIsUsb4(parent)) {
    USB4_PORT* candidate = UnlessInUse(Usb4SwitchMapPcieDown(parent, laneAdapter), USB4_ADAPTER_PCIE_DOWNSTREAM);
    if (candidate != nullptr) return candidate;
  }
  return KivUsb4FindUnusedPort(parent, USB4_ADAPTER_PCIE_DOWNSTREAM);
}

USB4_PORT* KivUsb4FindUsb3Down(const USB4_SWITCH* parent, const USB4_PORT* laneAdapter) {
  USB4_PORT* candidate = UnlessInUse(Usb4SwitchMapUsb3Down(parent, laneAdapter), USB4_ADAPTER_USB3_DOWNSTREAM);
  return candidate != nullptr ? candidate : KivUsb4FindUnusedPort(parent, USB4_ADAPTER_USB3_DOWNSTREAM);
}

bool KivUsb4IsTunnelInValid(const USB4_TUNNEL* tunnel) {
  for (const USB4_PATH* path : std::span<USB4_PATH*>(tunnel->Paths, tunnel->PathCount)) {
    if (path == nullptr) continue;
    for (const USB4_HOP& hop : std::span<USB4_HOP>(path->Hops, path->HopCount)) {
      if (IsGone(hop.InputAdapter) || IsGone(hop.OutputAdapter)) return true;
    }
  }
  return false;
}

void KivUsb4RemoveInvalidTunnels(USB4_DOMAIN* domain) {
  const PathGuard paths(*domain);
  for (USB4_TUNNEL& tunnel : TunnelsOf(domain)) {
    if (!KivUsb4IsTunnelInValid(&tunnel)) continue;
    TraceStep("sweep tunnel", "type", tunnel.Type);
    KivUsb4DeactivateAndFreeTunnel(&tunnel, {.Unlink = true, .KeepHardware = false});
  }
}

void KivUsb4RemoveSwitchDpResources(USB4_SWITCH* router) {
  for (const USB4_PORT& adapter : AdaptersOf(router)) {
    if (KivUsb4PortHasDownstreamLink(&adapter)) KivUsb4RemoveSwitchDpResources(adapter.Remote->Router);
  }
  for (USB4_PORT& adapter : AdaptersOf(router)) RemoveDpResource(router->Domain, &adapter);
}
