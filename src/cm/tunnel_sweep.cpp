// Clearing away what ran through an unplugged router.
#include "cm/tunnel_sweep.h"

#include <span>

#include "hostif/abort.h"
#include "include/trace.h"
#include "topology/router_queries.h"
#include "tunnel/dp_resources.h"
#include "tunnel/tunnel_kind.h"
#include "tunnel/tunnel_list.h"

namespace {

bool IsGone(const USB4_PORT* adapter) {
  return adapter != nullptr && adapter->Router->Unplugged.IsSet();
}

}  // namespace

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
