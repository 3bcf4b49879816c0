// The scan: from a lane adapter that is up to a router that is part of the topology.
#include "cm/scan.h"

#include "cm/peer_link.h"
#include "cm/tunnel_policy.h"
#include "hostif/abort.h"
#include "hostif/notifications.h"
#include "include/domain_record.h"
#include "include/locks.h"
#include "include/trace.h"
#include "topology/adapter_state.h"
#include "topology/link.h"
#include "topology/router_add.h"
#include "topology/router_alloc.h"
#include "topology/router_configure.h"
#include "topology/router_queries.h"
#include "topology/router_remove.h"
#include "topology/tmu.h"
#include "tunnel/dp_adapter.h"
#include "tunnel/dp_resources.h"
#include "tunnel/protocol_adapter.h"

namespace {

// Lane adapters lead somewhere; of a link's two, the first does.
bool IsScanned(const USB4_PORT* adapter) {
  if (KivUsb4PortIsUpstream(adapter) || !KivUsb4PortIsLane(adapter)) return false;
  return adapter->DualLinkPartner == nullptr || !adapter->IsSecondLane();
}

// A display is a matter for the work loop, after the scan: its tunnel needs the whole topology.
void QueueDisplay(const USB4_PORT* dpOut) {
  if (KivUsb4DpPortHpdIsActive(dpOut) != 1 || KivUsb4DpPortIsEnabled(dpOut)) return;
  const USB4_SWITCH* router = dpOut->Router;
  KivUsb4QueueHotplug(router->Domain, {KivUsb4SwitchRoute(router), dpOut->Number, false});
}

void LinkAdapters(USB4_PORT* down, USB4_PORT* up) {
  const SpinLockGuard guard(down->Router->Domain->TopologyLock);
  down->Remote = up;
  up->Remote = down;
  if (down->DualLinkPartner == nullptr || up->DualLinkPartner == nullptr) return;
  down->DualLinkPartner->Remote = up->DualLinkPartner;
  up->DualLinkPartner->Remote = down->DualLinkPartner;
}

void TraceUnlessOk(const USB4_SWITCH* router, const char* step, KIV_RESULT result) {
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(KivUsb4ScanPort), "step failed", "name", router->Info.Name, "step", step, "result",
                 AsResult(result));
  }
}

// The order is fixed: bonding before the marks, both before time synchronisation, all before any tunnel.
void SetUpLink(USB4_SWITCH* router) {
  TraceStepBy(NAME_OF(KivUsb4ScanPort), "set up link", "name", router->Info.Name);
  TraceUnlessOk(router, "lane bonding", KivUsb4SwitchLaneBondingEnable(router));
  TraceUnlessOk(router, "link configuration", KivUsb4SwitchConfigureLink(router));
  TraceUnlessOk(router, "time synchronisation", KivUsb4EnableTmu(router));
}

// 0 or the error is traced: a router stays with what it could get.
void SetUpRouterTunnels(USB4_SWITCH* router) {
  USB4_DOMAIN* domain = router->Domain;
  const PathGuard paths(*domain);
  if (domain->Started.IsSet()) {
    if (domain->Usb3TunnelSupported != 0) TraceUnlessOk(router, "USB3 tunnel", KivUsb4TunnelUsb3(domain, router));
    if (domain->PcieTunnelSupported != 0) TraceUnlessOk(router, "PCIe tunnel", KivUsb4TunnnelPcie(domain, router));
  }
  KivUsb4SwitchAddDpInResources(router);
}

// The far end answers like another host's router, or lies too deep for one of this domain.
bool LooksLikePeer(KIV_RESULT error) {
  return error == kKivIoError || error == kKivTooDeep;
}

// The router behind the adapter, linked and in the device list; null when there is none or a step failed.
USB4_SWITCH* Enumerate(USB4_PORT* adapter) {
  USB4_SWITCH* parent = adapter->Router;
  TraceStepBy(NAME_OF(KivUsb4ScanPort), "enumerate", "adapter", AsAdapter(adapter));
  const ROUTER_OR_ERROR found = KivUsb4SwitchAlloc(parent->Domain, parent, RouteBehind(parent, adapter->Number));
  if (LooksLikePeer(found.Error)) KivUsb4ScanXdomain(adapter);
  if (found.Error != kKivOk) return nullptr;
  USB4_SWITCH* router = found.Switch;
  KIV_RESULT result = KivUsb4SwitchConfigure(router);
  if (result == kKivOk) {
    // A host stood here before the router came.
    if (RemovePeer(adapter)) UnmarkPeerLink(adapter);
    result = KivUsb4SwitchAdd(router);
  }
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(KivUsb4ScanPort), "router not added", "name", router->Info.Name, "result", AsResult(result));
    // Straight to the record: the list may hold a peer of the same route, which has to stay.
    DiscardRouter(router);
    return nullptr;
  }
  LinkAdapters(adapter, KivUsb4SwitchUpstreamPort(router));
  return router;
}

}  // namespace

void KivUsb4ScanPort(USB4_PORT* adapter) {
  _Analysis_assume_lock_held_(adapter->Router->Domain->RunLock);
  if (PortIs(adapter, USB4_ADAPTER_DP_OUT)) QueueDisplay(adapter);
  if (!IsScanned(adapter)) return;
  const KIV_RESULT up = KivUsb4WaitForPort(adapter, false);
  if (up <= 0 || adapter->Remote != nullptr) {
    TraceInfo("nothing to scan", "adapter", AsAdapter(adapter), "state", AsResult(up));
    return;
  }
  USB4_SWITCH* router = Enumerate(adapter);
  if (router == nullptr) return;
  SetUpLink(router);
  SetUpRouterTunnels(router);
  KivUsb4ScanSwitch(router);
}

void KivUsb4ScanSwitch(USB4_SWITCH* router) {
  for (USB4_PORT& adapter : AdaptersOf(router)) KivUsb4ScanPort(&adapter);
}
