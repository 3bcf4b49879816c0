// Taking routers out of the topology.
#include "topology/router_remove.h"

#include <utility>

#include "include/locks.h"
#include "include/peer_record.h"
#include "include/trace.h"
#include "topology/device_list.h"
#include "topology/router_configure.h"
#include "topology/router_queries.h"
#include "topology/router_reference.h"
#include "topology/upcalls.h"

namespace {

USB4_SWITCH* RouterBehind(const USB4_PORT& adapter) {
  return adapter.Remote->Router;
}

// The links go before the record does: whoever follows one takes the topology lock, or is a reader of the parent.
void LeaveTopology(USB4_SWITCH* router) {
  USB4_DOMAIN* domain = router->Domain;
  const SpinLockGuard guard(domain->TopologyLock);
  if (domain->HostRouter == router) domain->HostRouter = nullptr;
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    if (adapter.Remote != nullptr && adapter.Remote->Remote == &adapter) adapter.Remote->Remote = nullptr;
  }
  KeepForReadersOfParent(router);
}

void MarkPeerRemoved(const USB4_PORT& adapter) {
  const SpinLockGuard guard(adapter.Router->Domain->TopologyLock);
  if (adapter.XDomain != nullptr) adapter.XDomain->Removed.Set(true);
}

}  // namespace

void KivUsb4SwitchRemove(USB4_SWITCH* router) {
  USB4_DOMAIN* domain = router->Domain;
  if (domain == nullptr || domain->HostInterface == nullptr) return;
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    if (KivUsb4PortHasDownstreamLink(&adapter)) {
      KivUsb4SwitchRemove(RouterBehind(adapter));
    } else {
      RemovePeer(&adapter);
    }
    if (adapter.Usb4PortCapability == 0) continue;
    for (void*& slot : adapter.Slots) slot = nullptr;
  }
  if (!router->Unplugged.IsSet()) {
    // A router that has just gone says nothing more anyway.
    IgnoreResult(KivUsb4PlugEventsActive(router, false));
  }
  TraceInfo("router removed", "name", router->Info.Name);
  KivUsb4FreeOrphanTunnels(router);
  LeaveTopology(router);
  KivUsb4RemoveSwitchFromDevList(domain, router);
}

USB4_XDOMAIN* ReferencePeerOf(const USB4_PORT* adapter) {
  const SpinLockGuard guard(adapter->Router->Domain->TopologyLock);
  if (adapter->XDomain != nullptr) ReferencePeer(adapter->XDomain);
  return adapter->XDomain;
}

bool RemovePeer(USB4_PORT* adapter) {
  USB4_XDOMAIN* peer = ReferencePeerOf(adapter);
  if (peer == nullptr) return false;
  _Analysis_assume_lock_not_held_(adapter->Router->Domain->PathLock);
  KivUsb4XdomainRemove(peer);
  ReleasePeer(peer);
  const SpinLockGuard guard(adapter->Router->Domain->TopologyLock);
  adapter->XDomain = nullptr;
  return true;
}

void KivUsb4SwitchSetUnplugged(USB4_SWITCH* router) {
  if (IsHostRouter(router) || router->Unplugged.IsSet()) return;
  router->Unplugged.Set(true);
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    if (KivUsb4PortHasDownstreamLink(&adapter)) {
      KivUsb4SwitchSetUnplugged(RouterBehind(adapter));
    } else {
      MarkPeerRemoved(adapter);
    }
  }
}

void KivUsb4SwitchRelease(USB4_SWITCH* router) {
  router->Unplugged.Set(true);
  DereferenceRouter(router);
}

void DiscardRouter(USB4_SWITCH* router) {
  std::uint8_t* uuid = nullptr;
  {
    const SpinLockGuard guard(router->Domain->TopologyLock);
    uuid = std::exchange(router->Uuid.Change(), nullptr);
  }
  PoolDeleteArray(uuid, kUuidTag);
  KivUsb4SwitchRelease(router);
}
