// The scan: from a lane adapter that is up to a router that is part of the topology.
#include "cm/scan.h"

#include "include/domain.h"
#include "include/locks.h"
#include "include/trace.h"
#include "topology/adapter_state.h"
#include "topology/link.h"
#include "topology/router_lifecycle.h"
#include "topology/router_queries.h"
#include "topology/tmu.h"
#include "topology/upcalls.h"

namespace {

// Lane adapters lead somewhere; of a link's two, the first does.
bool IsScanned(const USB4_PORT* adapter) {
  if (KivUsb4PortIsUpstream(adapter) || !KivUsb4PortIsLane(adapter)) return false;
  return adapter->DualLinkPartner == nullptr || !adapter->IsSecondLane();
}

// A host stood here before the router came.
void RemovePeer(USB4_PORT* adapter) {
  if (adapter->XDomain == nullptr) return;
  KivUsb4XdomainRemove(adapter->XDomain);
  // Marks of a link that has been down meanwhile: the router's own configuration sets what is needed.
  IgnoreResult(KivUsb4SetXdomainConfiguredAny(adapter, false));
  if (adapter->DualLinkPartner != nullptr) {
    IgnoreResult(KivUsb4PortSetLaneEnabled(adapter->DualLinkPartner, true));
  }
  const SpinLockGuard guard(adapter->Router->Domain->TopologyLock);
  adapter->XDomain = nullptr;
}

void LinkAdapters(USB4_PORT* down, USB4_PORT* up) {
  const SpinLockGuard guard(down->Router->Domain->TopologyLock);
  down->Remote = up;
  up->Remote = down;
  if (down->DualLinkPartner == nullptr || up->DualLinkPartner == nullptr) return;
  down->DualLinkPartner->Remote = up->DualLinkPartner;
  up->DualLinkPartner->Remote = down->DualLinkPartner;
}

void TraceStep(const USB4_SWITCH* router, const char* step, KIV_RESULT result) {
  if (result != kKivOk) TraceError("step failed", "name", router->Info.Name, "step", step, "result", result);
}

// The order is fixed: bonding before the marks, both before time synchronisation.
void SetUpLink(USB4_SWITCH* router) {
  TraceStep(router, "lane bonding", KivUsb4SwitchLaneBondingEnable(router));
  TraceStep(router, "link configuration", KivUsb4SwitchConfigureLink(router));
  TraceStep(router, "time synchronisation", KivUsb4EnableTmu(router));
}

// The router behind the adapter, linked and in the device list; null when there is none or a step failed.
USB4_SWITCH* Enumerate(USB4_PORT* adapter) {
  USB4_SWITCH* parent = adapter->Router;
  const ROUTER_OR_ERROR found = KivUsb4SwitchAlloc(parent->Domain, parent, RouteBehind(parent, adapter->Number));
  if (found.Error != kKivOk) return nullptr;
  USB4_SWITCH* router = found.Switch;
  KIV_RESULT result = KivUsb4SwitchConfigure(router);
  if (result == kKivOk) {
    RemovePeer(adapter);
    result = KivUsb4SwitchAdd(router);
  }
  if (result != kKivOk) {
    TraceError("router not added", "name", router->Info.Name, "result", result);
    // Straight to the record: the list may hold a peer of the same route, which has to stay.
    DiscardRouter(router);
    return nullptr;
  }
  LinkAdapters(adapter, KivUsb4SwitchUpstreamPort(router));
  return router;
}

}  // namespace

void KivUsb4ScanPort(USB4_PORT* adapter) {
  if (!IsScanned(adapter)) return;
  const KIV_RESULT up = KivUsb4WaitForPort(adapter, false);
  if (up <= 0 || adapter->Remote != nullptr) {
    TraceInfo("nothing to scan", "name", adapter->Router->Info.Name, "adapter", adapter->Number, "state", up);
    return;
  }
  USB4_SWITCH* router = Enumerate(adapter);
  if (router == nullptr) return;
  SetUpLink(router);
  KivUsb4ScanSwitch(router);
}

void KivUsb4ScanSwitch(USB4_SWITCH* router) {
  for (USB4_PORT& adapter : AdaptersOf(router)) KivUsb4ScanPort(&adapter);
}
