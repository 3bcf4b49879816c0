// Taking routers out of the topology, and freeing their records once nobody stands on them.
#include <utility>

#include "include/locks.h"
#include "include/trace.h"
#include "include/xdomain.h"
#include "topology/device_list.h"
#include "topology/plug_events.h"
#include "topology/router_lifecycle.h"
#include "topology/router_queries.h"
#include "topology/upcalls.h"

namespace {

void FreeRouter(USB4_SWITCH* router) {
  if (router->Adapters != nullptr) {
    for (const USB4_PORT& adapter : AdaptersOf(router)) {
      PoolDelete(adapter.RegistersText);
      PoolDelete(adapter.PathsText);
      PoolDelete(adapter.CountersText);
    }
    PoolDeleteArray(router->Adapters, USB4_PORT::kPoolTag);
  }
  PoolDelete(router->RegistersText);
  PoolDelete(router->MiscText);
  PoolDeleteArray(router->DeviceName, USB4_SWITCH::kDeviceNameTag);
  PoolDeleteArray(router->VendorName, USB4_SWITCH::kVendorNameTag);
  PoolDeleteArray(router->Drom, USB4_SWITCH::kDromTag);
  PoolDelete(router);
}

USB4_SWITCH* RouterBehind(const USB4_PORT& adapter) {
  return adapter.Remote->Router;
}

}  // namespace

void KivUsb4SwitchRemove(USB4_SWITCH* router) {
  USB4_DOMAIN* domain = router->Domain;
  if (domain == nullptr || domain->HostInterface == nullptr) return;
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    if (KivUsb4PortHasDownstreamLink(&adapter)) {
      KivUsb4SwitchRemove(RouterBehind(adapter));
      ForgetRemote(&adapter);
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
  KivUsb4RemoveSwitchFromDevList(domain, router);
}

void ForgetRemote(USB4_PORT* adapter) {
  const SpinLockGuard guard(adapter->Router->Domain->TopologyLock);
  adapter->Remote = nullptr;
  if (adapter->DualLinkPartner != nullptr) adapter->DualLinkPartner->Remote = nullptr;
}

bool RemovePeer(USB4_PORT* adapter) {
  USB4_XDOMAIN* peer = adapter->XDomain;
  if (peer == nullptr) return false;
  KivUsb4XdomainRemove(peer);
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
    } else if (adapter.XDomain != nullptr) {
      adapter.XDomain->Removed.Set(true);
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
    uuid = std::exchange(router->Uuid, nullptr);
  }
  PoolDeleteArray(uuid, kUuidTag);
  KivUsb4SwitchRelease(router);
}

void ReferenceRouter(USB4_SWITCH* router) {
  router->References.Increment();
}

void DereferenceRouter(USB4_SWITCH* router) {
  if (router->References.Decrement() == 0) FreeRouter(router);
}
