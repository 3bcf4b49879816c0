// Tunnels that left the list without being torn down.
#include "hostif/abort.h"
#include "topology/router_queries.h"
#include "topology/upcalls.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_list.h"

namespace {

bool RunsThrough(const USB4_TUNNEL& tunnel, const USB4_SWITCH* router) {
  for (const USB4_PORT& adapter : AdaptersOf(router)) {
    if (KivUsb4TunnelUsesPort(&tunnel, &adapter)) return true;
  }
  return false;
}

}  // namespace

// Only the records go, while the adapters whose hop IDs they hold are still there. The hardware is left alone: it has
// been out of reach of whoever let the tunnel go since then.
void KivUsb4FreeOrphanTunnels(const USB4_SWITCH* router) {
  const PathGuard paths(*router->Domain);
  for (USB4_TUNNEL& tunnel : OrphanTunnelList(router->Domain->OrphanTunnelListHead)) {
    if (!RunsThrough(tunnel, router)) continue;
    OrphanTunnelList::Remove(tunnel);
    KivUsb4TunnelFree(&tunnel);
  }
}
