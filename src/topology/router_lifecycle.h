// A router's life: allocated (header read, nothing written), configured, added (described and listed), linked by the
// scan, and removed, or first marked unplugged and then removed. PASSIVE_LEVEL, under the domain's run lock.
#pragma once
#include "include/config_space.h"
#include "include/domain_record.h"
#include "include/router_record.h"

// A router, or why there is none: -12 no memory or an unreadable header, -49 too deep, else the error of the question
// through which adapter it answers (-5: an error packet, so another host may stand there).
struct ROUTER_OR_ERROR {
  USB4_SWITCH* Switch;
  KIV_RESULT Error;  // 0 with a router
};

// Reads the header of the router at `route` and makes its record; `parent` is null for the host router. The parent's
// adapter is unlocked first.
[[nodiscard]] ROUTER_OR_ERROR KivUsb4SwitchAlloc(USB4_DOMAIN* domain, USB4_SWITCH* parent, USB4_ROUTE route);

// Writes the header with route, depth and the configuration-valid bit, sets a USB4 router up, switches a Thunderbolt 3
// router's plug events on. -1 for a Thunderbolt 3 router without a plug-events capability, and when a USB4 router does
// not become ready; else the error of a failed access.
[[nodiscard]] KIV_RESULT KivUsb4SwitchConfigure(USB4_SWITCH* router);
// The USB4 part of it: tunnelling enables, then the wait for configuration ready.
[[nodiscard]] KIV_RESULT KivUsb4SwitchSetup(USB4_SWITCH* router);

// DROM, UUID, adapters, lane pairs, link attributes and TMU state; then hot-plug events on, and the router is listed.
// The first error ends it.
[[nodiscard]] KIV_RESULT KivUsb4SwitchAdd(USB4_SWITCH* router);
// Reads one adapter's header and capabilities. An adapter whose header cannot be read is marked disabled, which is no
// error.
[[nodiscard]] KIV_RESULT KivUsb4InitPort(USB4_PORT* adapter);
// Settles the pairs that a DROM has named, then makes partners of neighbouring lane adapters that have none: the lower
// number becomes lane 0. Afterwards each pair is two lane adapters that are each other's partner, one of them lane 1.
void KivUsb4SwitchDefaultLinkPorts(USB4_SWITCH* router);
// Hot-plug events of every adapter with a USB4 port capability; stops at the first error.
[[nodiscard]] KIV_RESULT KivUsb4SwitchEnableHotPlug(USB4_SWITCH* router);
// 0, or -1 without memory, or the error of a failed access. Does nothing for a router that has a UUID.
[[nodiscard]] KIV_RESULT KivUsb4SwitchSetUuid(USB4_SWITCH* router);

// Removes the router and everything behind it, deepest first: out of the links of their neighbours, and of the domain
// if it is the host router, then out of the device list. Their records are freed once nobody refers to them.
void KivUsb4SwitchRemove(USB4_SWITCH* router);
// Removes the peer host behind the adapter and detaches it; false when there is none. The marks of the link stay: a
// caller that puts a router in the peer's place takes them off.
bool RemovePeer(USB4_PORT* adapter);
// Marks the router and everything behind it as gone: their accesses fail at once. Not for the host router.
void KivUsb4SwitchSetUnplugged(USB4_SWITCH* router);
// Gives up the topology's hold on the record, with all it owns but the UUID. From now on every access through it fails.
void KivUsb4SwitchRelease(USB4_SWITCH* router);
// Releases a router and its UUID: the end of one that leaves the device list, or that never came onto it.
void DiscardRouter(USB4_SWITCH* router);
