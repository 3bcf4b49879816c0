// The domain's device list: one entry for each router that has been added and for each peer host. PASSIVE_LEVEL.
// Entries are made and removed under the run lock; readers need no lock: a walk and a reference keep what they give.
#pragma once
#include "include/domain_record.h"
#include "include/router_record.h"
#include "topology/router_reference.h"

struct USB4_DEV_DESCRIPTION {
  const USB4_SWITCH_INFO* Info;
  std::uint64_t Route;
  const std::uint8_t* Uuid;  // kUuidBytes, or null
  USB4_SWITCH* Router;       // null for a peer host
  USB4_XDOMAIN* XDomain;     // null for a router
};

// Goes over the entries from the first to the last. What it stands on stays allocated, entry, router and parent, though
// they may leave the domain meanwhile.
class DeviceWalk {
 public:
  explicit DeviceWalk(USB4_DOMAIN* domain) : domain_(domain) {}
  ~DeviceWalk();
  DeviceWalk(const DeviceWalk&) = delete;
  DeviceWalk& operator=(const DeviceWalk&) = delete;

  // Leaves the entry that it stands on. Null at the end.
  [[nodiscard]] USB4_DEV_ENTRY* Next();

 private:
  USB4_DOMAIN* domain_;
  USB4_DEV_ENTRY* entry_ = nullptr;
  RouterReference router_;  // of the entry, if it has one
};

// Adds an entry, unless one stands for the device already: one with this route, if a router is given, or one with this
// UUID. An existing entry is never changed. Without memory the device stays unlisted.
void KivUsb4UpdateSwitchInfoToList(USB4_DOMAIN* domain, const USB4_DEV_DESCRIPTION& device);
// Takes the first entry with the router's route off the list, with its diagnostics directory; then, listed or not,
// frees the router's UUID and releases the router.
void KivUsb4RemoveSwitchFromDevList(USB4_DOMAIN* domain, USB4_SWITCH* router);
void KivUsb4RemoveXDomainFromDevList(USB4_DOMAIN* domain, const USB4_XDOMAIN* xdomain);
// Notes that the router's diagnostics directory exists.
void KivUsb4GetDevFromSwitchToUpdate(USB4_DOMAIN* domain, const USB4_SWITCH* router);

// The router of the first entry with this route, or none.
[[nodiscard]] RouterReference KivUsb4DevListFindSwitch(USB4_DOMAIN* domain, std::uint64_t route);
// The same, with the host router at route 0.
[[nodiscard]] RouterReference KivUsb4DomainGetSwitch(USB4_DOMAIN* domain, std::uint64_t route);
