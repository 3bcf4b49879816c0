// A peer host's coming and going.
#include "cm/peer_link.h"

#include "hostif/power.h"
#include "include/device_context.h"
#include "include/trace.h"
#include "net/peer_network.h"
#include "topology/link.h"
#include "topology/router_queries.h"
#include "topology/upcalls.h"
#include "tunnel/dma_tunnel.h"
#include "xdomain/peer.h"
#include "xdomain/peer_removal.h"
#include "xdomain/peer_state.h"

void KivUsb4ScanXdomain(USB4_PORT* adapter) {
  USB4_SWITCH* router = adapter->Router;
  USB4_DOMAIN* domain = router->Domain;
  const USB4_ROUTE route = RouteBehind(router, adapter->Number);
  if (USB4_XDOMAIN* known = KivUsb4XdomainFind(domain, route)) {
    ReleasePeer(known);
    return;
  }
  USB4_XDOMAIN* peer = KivUsb4XdomainAlloc(domain, router, route, domain->HostRouter->Uuid, nullptr);
  if (peer == nullptr) {
    TraceError("no record of a peer", "name", router->Info.Name, "adapter", adapter->Number);
    return;
  }
  AttachPeer(peer, adapter);
  const KIV_RESULT marked = KivUsb4SetXdomainConfiguredAny(adapter, true);
  if (marked != kKivOk) TraceWarning("link to a peer not marked", "name", peer->Info.Name, "result", AsResult(marked));
  StartInterDomainHandshake(peer);
}

void UnmarkPeerLink(const USB4_PORT* adapter) {
  // Whatever comes to this adapter next sets what it needs.
  IgnoreResult(KivUsb4SetXdomainConfiguredAny(adapter, false));
  if (adapter->DualLinkPartner != nullptr) {
    IgnoreResult(KivUsb4PortSetLaneEnabled(adapter->DualLinkPartner, true));
  }
}

void UnplugPeer(USB4_PORT* adapter, USB4_XDOMAIN* peer) {
  USB4_DOMAIN* domain = adapter->Router->Domain;
  TraceInfo("peer unplugged", "name", peer->Info.Name);
  peer->Removed.Set(true);
  DetachPeer(adapter);
  KivUsb4DisconnectXdomainPaths(domain, peer, kEveryDmaTunnel);
  UnmarkPeerLink(adapter);
  KivUsb4XdomainRemove(peer);
  // Whatever tunnels there are: the next one that is built holds the device awake again.
  GiveBackPowerReference(domain);
}

void KivUsb4NetStop(USB4_DOMAIN* domain) {
  DEVICE_EXTENSION* context = ContextOf(domain);
  if (context == nullptr) return;
  USB4_XDOMAIN* peer = ReferenceDevicePeer(context);
  if (peer == nullptr) return;
  TraceStep("stop networking", "name", peer->Info.Name);
  peer->Removed.Set(true);
  if (ClosePeer(peer)) {
    KivUsb4NetTearDown(context, peer, true);
    StopInterDomainHandshake(peer);
    LetGoOfPeer(peer);
  }
  ReleasePeer(peer);
}
