// Adopting programmed tunnels, and clearing away half-built ones.
#include "cm/tunnel_discovery.h"

#include "include/trace.h"
#include "topology/router_queries.h"
#include "tunnel/tunnel_kind.h"
#include "tunnel/tunnel_list.h"

namespace {

USB4_TUNNEL* Discover(USB4_DOMAIN* domain, USB4_PORT* adapter) {
  const USB4_TUNNEL_KIND* kind = KindStartingAt(adapter->Type());
  return kind == nullptr || kind->Discover == nullptr ? nullptr : kind->Discover(domain, adapter);
}

void Adopt(USB4_TUNNEL* tunnel) {
  const USB4_TUNNEL_KIND& kind = KindOf(tunnel->Type);
  if (kind.Adopted != nullptr) kind.Adopted(tunnel);
  AppendTunnel(tunnel);
  CountTunnel(tunnel, true);
  TraceInfoBy(NAME_OF(KivUsb4DiscoverTunnels), "tunnel adopted", "type", tunnel->Type, "source",
              AsAdapter(tunnel->Source), "destination", AsAdapter(tunnel->Destination));
}

// False when the walk is to end.
bool CleanUp(USB4_DOMAIN* domain, USB4_PORT* adapter) {
  const USB4_TUNNEL_KIND* kind = KindStartingAt(adapter->Type());
  return kind == nullptr || kind->CleanUp == nullptr || kind->CleanUp(domain, adapter);
}

}  // namespace

void KivUsb4DiscoverTunnels(USB4_SWITCH* router) {
  TraceStep("discover tunnels", "name", router->Info.Name);
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    USB4_TUNNEL* tunnel = Discover(router->Domain, &adapter);
    if (tunnel != nullptr) Adopt(tunnel);
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
