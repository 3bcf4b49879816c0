// The life of a peer's record.
#include "xdomain/peer.h"

#include <ntstrsafe.h>

#include <cstring>

#include "hostif/work_items.h"
#include "include/locks.h"
#include "include/trace.h"
#include "include/wait.h"
#include "topology/adapter_state.h"
#include "topology/device_list.h"
#include "topology/router_queries.h"
#include "topology/router_reference.h"
#include "topology/upcalls.h"
#include "xdomain/peer_state.h"
#include "xdomain/property_tree.h"

namespace {

std::uint8_t* CopyUuid(const std::uint8_t* uuid) {
  std::uint8_t* copy = PoolNewArray<std::uint8_t>(kUuidBytes, kUuidTag);
  if (copy != nullptr) std::memcpy(copy, uuid, kUuidBytes);
  return copy;
}

void DeleteWork(WDFWORKITEM item) {
  if (item != nullptr) WdfObjectDelete(item);
}

void FreePeer(USB4_XDOMAIN* xdomain) {
  DeleteWork(xdomain->StateWork);
  DeleteWork(xdomain->PropertiesChangedWork);
  {
    const MutexGuard guard(xdomain->Lock);
    PoolDeleteArray(xdomain->Block.Read(), USB4_XDOMAIN::kBlockTag);
    KivUsb4PropertyFreeDir(xdomain->PeerProperties);
  }
  PoolDeleteArray(xdomain->OwnUuid, kUuidTag);
  PoolDeleteArray(xdomain->PeerUuid, kUuidTag);
  PoolDeleteArray(xdomain->PeerVendorName, USB4_XDOMAIN::kNameTag);
  PoolDeleteArray(xdomain->PeerDeviceName, USB4_XDOMAIN::kNameTag);
  if (xdomain->Info.Parent != nullptr) DereferenceRouter(xdomain->Info.Parent);
  PoolDelete(xdomain);
}

void InitialiseLocks(USB4_XDOMAIN* xdomain) {
  xdomain->Lock.Initialise();
  xdomain->NetworkLock.Initialise();
  KeInitializeMutex(&xdomain->SpareMutex, 0);
  InitialiseAutoResetEvent(xdomain->NetworkReadyEvent);
}

bool CreateWork(DEVICE_EXTENSION* context, USB4_XDOMAIN* xdomain) {
  NTSTATUS status = KivUsb4InitializeGenericXDomainWorkItem(context, &xdomain->StateWork, KivUsb4XdomainStateWork);
  if (NT_SUCCESS(status)) {
    status = KivUsb4InitializeGenericXDomainWorkItem(context, &xdomain->PropertiesChangedWork,
                                                     KivUsb4XdomainPropertiesChanged);
  }
  if (!NT_SUCCESS(status)) {
    TraceErrorBy(NAME_OF(KivUsb4XdomainAlloc), "no work item for a peer", "route", AsRoute(xdomain->Route), "status",
                 AsStatus(status));
  }
  return NT_SUCCESS(status);
}

bool CopyUuids(USB4_XDOMAIN* xdomain, const std::uint8_t* ownUuid, const std::uint8_t* peerUuid) {
  xdomain->OwnUuid = CopyUuid(ownUuid);
  if (peerUuid != nullptr) xdomain->PeerUuid = CopyUuid(peerUuid);
  return xdomain->OwnUuid != nullptr && (peerUuid == nullptr || xdomain->PeerUuid != nullptr);
}

// What the adapter and the place in the topology say.
void DescribePeer(USB4_XDOMAIN* xdomain, USB4_SWITCH* parent, USB4_ROUTE route, const USB4_PORT* facing) {
  xdomain->Domain = parent->Domain;
  xdomain->Route = route;
  xdomain->Info.Parent = parent;
  ReferenceRouter(parent);
  const DEVICE_EXTENSION* context = ContextOf(xdomain->Domain);
  const AdpCs5::Value cs5(facing->Header[AdpCs5::kOffset]);
  xdomain->InputHopLimit = cs5.Get<AdpCs5::MaximumInputHop>();
  IgnoreResult(RtlStringCbPrintfA(xdomain->Info.Name, sizeof xdomain->Info.Name, "%u-%llx", context->ControllerIndex,
                                  static_cast<unsigned long long>(route)));  // the longest fits
  const bool uuidKnown = xdomain->PeerUuid != nullptr;
  xdomain->UuidUnknown.Set(!uuidKnown);
  xdomain->BondLanes.Set(!uuidKnown && facing->DualLinkPartner != nullptr);
}

// The peer on an adapter of `router` or of a router below it.
_Requires_lock_held_(router->Domain->TopologyLock) USB4_XDOMAIN* FindBelow(const USB4_SWITCH* router,
                                                                           USB4_ROUTE route) {
  _Analysis_assume_lock_held_(router->Domain->TopologyLock);
  for (const USB4_PORT& adapter : AdaptersOf(router)) {
    if (adapter.XDomain != nullptr) {
      if (adapter.XDomain->Route == route) return adapter.XDomain;
    } else if (KivUsb4PortHasDownstreamLink(&adapter)) {
      USB4_XDOMAIN* found = FindBelow(adapter.Remote->Router, route);
      if (found != nullptr) return found;
    }
  }
  return nullptr;
}

USB4_XDOMAIN* Referenced(USB4_XDOMAIN* xdomain) {
  if (xdomain != nullptr) ReferencePeer(xdomain);
  return xdomain;
}

}  // namespace

USB4_XDOMAIN* KivUsb4XdomainAlloc(USB4_DOMAIN* domain, USB4_SWITCH* parent, USB4_ROUTE route,
                                  const std::uint8_t* ownUuid, const std::uint8_t* peerUuid) {
  if (ownUuid == nullptr || domain == nullptr) return nullptr;
  DEVICE_EXTENSION* context = ContextOf(domain);
  USB4_PORT* facing = KivUsb4SwitchPortForRoute(parent, route);
  if (context == nullptr || facing == nullptr) return nullptr;
  const MutexGuard guard(context->XDomainMutex);
  // One peer at a time is served. An earlier one is served no more, but keeps its adapter, and so its memory.
  if (context->XDomain != nullptr) LeaveDevice(context, context->XDomain);
  IgnoreResult(KivUsb4PortUnlock(facing));  // a locked adapter lets no answer through, and the discovery ends
  USB4_XDOMAIN* xdomain = PoolNew<USB4_XDOMAIN>();
  if (xdomain == nullptr) return nullptr;
  xdomain->References.Store(1);
  InitialiseLocks(xdomain);
  const bool copied = CopyUuids(xdomain, ownUuid, peerUuid);
  DescribePeer(xdomain, parent, route, facing);
  if (!copied || !CreateWork(context, xdomain)) {
    TraceError("no memory for a peer", "route", AsRoute(route));
    ReleasePeer(xdomain);
    return nullptr;
  }
  {
    const SpinLockGuard topology(domain->TopologyLock);
    context->XDomain = xdomain;
  }
  KivUsb4UpdateSwitchInfoToList(domain, {&xdomain->Info, route, xdomain->PeerUuid, nullptr, xdomain});
  TraceInfo("peer found", "name", xdomain->Info.Name, "hops", xdomain->InputHopLimit);
  return xdomain;
}

USB4_XDOMAIN* KivUsb4XdomainFind(USB4_DOMAIN* domain, USB4_ROUTE route) {
  const SpinLockGuard guard(domain->TopologyLock);
  if (domain->HostRouter == nullptr || domain->HostRouter->Adapters == nullptr) return nullptr;
  return Referenced(FindBelow(domain->HostRouter, route));
}

USB4_XDOMAIN* ReferenceDevicePeer(DEVICE_EXTENSION* context) {
  const SpinLockGuard guard(context->Domain->TopologyLock);
  return Referenced(context->XDomain);
}

void AttachPeer(USB4_XDOMAIN* xdomain, USB4_PORT* adapter) {
  const SpinLockGuard guard(xdomain->Domain->TopologyLock);
  adapter->XDomain = xdomain;
  xdomain->FacingAdapter = adapter;
}

void LeaveDevice(DEVICE_EXTENSION* context, USB4_XDOMAIN* xdomain) {
  _Analysis_assume_lock_held_(context->XDomainMutex);
  USB4_DOMAIN* domain = xdomain->Domain;
  {
    const SpinLockGuard guard(domain->TopologyLock);
    if (context->XDomain == xdomain) context->XDomain = nullptr;
  }
  KivUsb4RemoveXDomainFromDevList(domain, xdomain);
}

void DetachPeer(USB4_PORT* adapter) {
  const SpinLockGuard guard(adapter->Router->Domain->TopologyLock);
  adapter->XDomain = nullptr;
}

void ReleasePeer(USB4_XDOMAIN* xdomain) {
  if (xdomain->References.Decrement() == 0) FreePeer(xdomain);
}
