// The domain's DisplayPort resources: the host router's DP IN adapters that may be used, and DP OUT adapters at which a
// display has appeared. PASSIVE_LEVEL, under the domain's run lock, which guards the list. An adapter stands on it at
// most once; one that carries a tunnel stays on it, switched on.
#pragma once
#include <cstddef>

#include "include/domain_record.h"
#include "include/list.h"
#include "include/router_record.h"

using DpResourceList = ListView<USB4_PORT, offsetof(USB4_PORT, DpResourceLink), By<LockPlace::Run>>;

[[nodiscard]] inline DpResourceList DpResourcesOf(USB4_DOMAIN* domain) {
  return DpResourceList(domain->DpResourceListHead);
}

// Lists the router's free DP IN adapters. Every router is asked, but only the host router's are listed: graphics enter
// the domain there.
_Requires_lock_held_(router->Domain->PathLock) void KivUsb4SwitchAddDpInResources(const USB4_SWITCH* router);
// A plug event of a DP adapter: it is listed unless it carries a tunnel, and the policy runs. A DP IN of a device
// router is never listed.
void KivUsb4DpResourceAvailable(USB4_DOMAIN* domain, USB4_PORT* adapter);
// An unplug event: its tunnel goes, it leaves the list, and the policy runs, since another pair may use what was freed.
void KivUsb4DpResourceUnavailable(USB4_DOMAIN* domain, USB4_PORT* adapter);
// Lists the DP OUT of a tunnel found in the hardware.
void KivUsb4DpOutResourceForDiscoverDp(USB4_DOMAIN* domain, USB4_PORT* dpOut);
// Takes an adapter off the list; nothing happens when it does not stand there.
void RemoveDpResource(USB4_DOMAIN* domain, USB4_PORT* adapter);
// Takes all off. Before routers go, since the links live in their adapter records.
void EmptyDpResources(USB4_DOMAIN* domain);

// Before a suspend: notes whether displays are to be brought back after it, tears every DisplayPort tunnel down and
// empties the list.
void KivUsb4DisconnectAndReleaseDp(USB4_DOMAIN* domain);
