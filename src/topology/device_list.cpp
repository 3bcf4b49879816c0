// The device list. Each entry holds references to its router and its parent; a walk stands on an entry, so that the
// connection manager may remove a router while the control interface looks at it.
#include "topology/device_list.h"

#include <cstring>
#include <utility>

#include "hostif/domain.h"
#include "include/host_interface_record.h"
#include "include/locks.h"
#include "include/peer_record.h"
#include "include/trace.h"
#include "topology/router_queries.h"
#include "topology/router_remove.h"
#include "topology/upcalls.h"

namespace {

DeviceList ListOf(USB4_DOMAIN* domain) {
  return DeviceList(domain->DeviceListHead);
}

// The first entry that is not removed and satisfies `test`, or null.
template <class Test>
_Requires_lock_held_(domain->TopologyLock) USB4_DEV_ENTRY* FindLocked(USB4_DOMAIN* domain, Test test) {
  _Analysis_assume_lock_held_(domain->TopologyLock);
  for (USB4_DEV_ENTRY& entry : ListOf(domain)) {
    if (entry.Removed == 0 && test(entry)) return &entry;
  }
  return nullptr;
}

// The same for a caller without the lock, who then stands on the entry like a walk.
template <class Test>
USB4_DEV_ENTRY* FindAndEnter(USB4_DOMAIN* domain, Test test) {
  const SpinLockGuard guard(domain->TopologyLock);
  USB4_DEV_ENTRY* entry = FindLocked(domain, test);
  if (entry != nullptr) ++entry->Walks;
  return entry;
}

// Unlinks an entry that is removed and that nobody stands on; the caller frees it once the topology lock is dropped.
USB4_DEV_ENTRY* UnlinkIfUnused(USB4_DEV_ENTRY* entry) {
  if (entry->Removed == 0 || entry->Walks != 0) return nullptr;
  DeviceList::Remove(*entry);
  return entry;
}

void FreeEntry(USB4_DEV_ENTRY* entry) {
  if (entry == nullptr) return;
  if (entry->Router != nullptr) DereferenceRouter(entry->Router);
  if (entry->Info.Parent != nullptr) DereferenceRouter(entry->Info.Parent);
  if (entry->XDomain != nullptr) ReleasePeer(entry->XDomain);
  PoolDeleteArray(entry->Uuid, kUuidTag);
  PoolDelete(entry);
}

void LeaveEntry(USB4_DOMAIN* domain, USB4_DEV_ENTRY* entry) {
  USB4_DEV_ENTRY* unused = nullptr;
  {
    const SpinLockGuard guard(domain->TopologyLock);
    --entry->Walks;
    unused = UnlinkIfUnused(entry);
  }
  FreeEntry(unused);
}

// `entry` is one that the caller stands on; it leaves it.
void RemoveEntry(USB4_DOMAIN* domain, USB4_DEV_ENTRY* entry) {
  {
    const SpinLockGuard guard(domain->TopologyLock);
    entry->Removed = 1;
  }
  LeaveEntry(domain, entry);
}

bool StandsFor(const USB4_DEV_ENTRY& entry, const USB4_DEV_DESCRIPTION& device) {
  if (device.Router != nullptr && entry.Route == device.Route) return true;
  return device.Uuid != nullptr && entry.Uuid != nullptr && std::memcmp(entry.Uuid, device.Uuid, kUuidBytes) == 0;
}

}  // namespace

DeviceWalk::~DeviceWalk() {
  if (entry_ != nullptr) LeaveEntry(domain_, entry_);
}

USB4_DEV_ENTRY* DeviceWalk::Next() {
  USB4_DEV_ENTRY* const previous = entry_;
  const RouterReference left = std::move(router_);
  entry_ = nullptr;
  {
    const SpinLockGuard guard(domain_->TopologyLock);
    LIST_ENTRY* const head = &domain_->DeviceListHead;
    LIST_ENTRY* link = previous == nullptr ? head->Flink : previous->Link.Flink;
    for (; link != head && entry_ == nullptr; link = link->Flink) {
      USB4_DEV_ENTRY* entry = CONTAINING_RECORD(link, USB4_DEV_ENTRY, Link);
      if (entry->Removed == 0) entry_ = entry;
    }
    if (entry_ != nullptr) {
      ++entry_->Walks;
      router_ = RouterReference(entry_->Router);
    }
  }
  if (previous != nullptr) LeaveEntry(domain_, previous);
  return entry_;
}

void KivUsb4UpdateSwitchInfoToList(USB4_DOMAIN* domain, const USB4_DEV_DESCRIPTION& device) {
  PoolPtr<USB4_DEV_ENTRY> entry = PoolPtr<USB4_DEV_ENTRY>::New();
  if (!entry) {
    TraceError("no memory for a device list entry", "route", AsRoute(device.Route));
    return;
  }
  entry->Info = *device.Info;
  entry->Route = device.Route;
  entry->Router = device.Router;
  entry->XDomain = device.XDomain;
  if (device.Uuid != nullptr) {
    entry->Uuid = PoolNewArray<std::uint8_t>(kUuidBytes, kUuidTag);
    if (entry->Uuid != nullptr) std::memcpy(entry->Uuid, device.Uuid, kUuidBytes);
  }
  if (entry->Router != nullptr) ReferenceRouter(entry->Router);
  if (entry->Info.Parent != nullptr) ReferenceRouter(entry->Info.Parent);
  if (entry->XDomain != nullptr) ReferencePeer(entry->XDomain);
  {
    const SpinLockGuard guard(domain->TopologyLock);
    const auto same = [&device](const USB4_DEV_ENTRY& other) { return StandsFor(other, device); };
    if (FindLocked(domain, same) == nullptr) {
      ListOf(domain).Append(*entry);
      IgnoreResult(entry.Release());  // the list owns it now
    }
  }
  FreeEntry(entry.Release());
}

void KivUsb4RemoveSwitchFromDevList(USB4_DOMAIN* domain, USB4_SWITCH* router) {
  USB4_HOST_INTERFACE* hostInterface = domain->HostInterface;
  if (hostInterface != nullptr) {
    const USB4_ROUTE route = KivUsb4SwitchRoute(router);
    USB4_DEV_ENTRY* entry = FindAndEnter(domain, [route](const USB4_DEV_ENTRY& other) { return other.Route == route; });
    if (entry != nullptr) {
      if (KivUsb4DiagnosticsEnabled(domain)) KivUsb4SwitchLoggingExit(hostInterface, router);
      RemoveEntry(domain, entry);
    }
  }
  DiscardRouter(router);
}

void KivUsb4RemoveXDomainFromDevList(USB4_DOMAIN* domain, const USB4_XDOMAIN* xdomain) {
  USB4_DEV_ENTRY* entry =
      FindAndEnter(domain, [xdomain](const USB4_DEV_ENTRY& other) { return other.XDomain == xdomain; });
  if (entry != nullptr) RemoveEntry(domain, entry);
}

void KivUsb4GetDevFromSwitchToUpdate(USB4_DOMAIN* domain, const USB4_SWITCH* router) {
  const SpinLockGuard guard(domain->TopologyLock);
  USB4_DEV_ENTRY* entry = FindLocked(domain, [router](const USB4_DEV_ENTRY& other) { return other.Router == router; });
  if (entry != nullptr) entry->DirectoryCreated = 1;
}

RouterReference KivUsb4DevListFindSwitch(USB4_DOMAIN* domain, std::uint64_t route) {
  const SpinLockGuard guard(domain->TopologyLock);
  const USB4_DEV_ENTRY* entry =
      FindLocked(domain, [route](const USB4_DEV_ENTRY& other) { return other.Route == route; });
  return RouterReference(entry == nullptr ? nullptr : entry->Router);
}

RouterReference KivUsb4DomainGetSwitch(USB4_DOMAIN* domain, std::uint64_t route) {
  if (route != 0) return KivUsb4DevListFindSwitch(domain, route);
  const SpinLockGuard guard(domain->TopologyLock);
  return RouterReference(domain->HostRouter);
}
