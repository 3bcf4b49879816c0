// The domain's device list: one entry for each router that has been added and for each peer host. PASSIVE_LEVEL.
// Entries are made and removed under the run lock; reading needs only NextEntry, which keeps what it returns alive.
#pragma once
#include "include/domain.h"
#include "include/switch.h"

struct USB4_DEV_DESCRIPTION {
  const USB4_SWITCH_INFO* Info;
  std::uint64_t Route;
  const std::uint8_t* Uuid;  // kUuidBytes, or null
  USB4_SWITCH* Router;       // null for a peer host
  USB4_XDOMAIN* XDomain;     // null for a router
};

// The entry after `previous`, or the first one after null; null at the end. The caller stands on what it gets: the
// entry and its router stay allocated, though they may have left the domain meanwhile (every access to such a router
// fails). Passing an entry as `previous` leaves it; a walk that stops early leaves its last entry with LeaveEntry.
[[nodiscard]] USB4_DEV_ENTRY* NextEntry(USB4_DOMAIN* domain, USB4_DEV_ENTRY* previous);
void LeaveEntry(USB4_DOMAIN* domain, USB4_DEV_ENTRY* entry);

// Adds an entry, unless one stands for the device already: one with this route, if a router is given, or one with this
// UUID. An existing entry is never changed. Without memory the device stays unlisted.
void KivUsb4UpdateSwitchInfoToList(USB4_DOMAIN* domain, const USB4_DEV_DESCRIPTION& device);
// Takes the first entry with the router's route off the list, with its diagnostics directory; then, listed or not,
// frees the router's UUID and releases the router.
void KivUsb4RemoveSwitchFromDevList(USB4_DOMAIN* domain, USB4_SWITCH* router);
void KivUsb4RemoveXDomainFromDevList(USB4_DOMAIN* domain, const USB4_XDOMAIN* xdomain);
// Notes that the router's diagnostics directory exists.
void KivUsb4GetDevFromSwitchToUpdate(USB4_DOMAIN* domain, const USB4_SWITCH* router);

// The router of the first entry with this route, or null. For callers under the run lock.
[[nodiscard]] USB4_SWITCH* KivUsb4DevListFindSwitch(USB4_DOMAIN* domain, std::uint64_t route);
// The same, with the host router at route 0.
[[nodiscard]] USB4_SWITCH* KivUsb4DomainGetSwitch(USB4_DOMAIN* domain, std::uint64_t route);
