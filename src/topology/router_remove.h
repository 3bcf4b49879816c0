// Taking routers, and peer hosts, out of the topology. PASSIVE_LEVEL, under the domain's run lock.
#pragma once
#include "include/router_record.h"

// Removes the router and everything behind it, deepest first: out of the links of their neighbours, and of the domain
// if it is the host router, then out of the device list. Their records are freed once nobody refers to them.
void KivUsb4SwitchRemove(USB4_SWITCH* router);
// The peer host behind the adapter, referenced, or null. It may be on its way out on another flow.
[[nodiscard]] USB4_XDOMAIN* ReferencePeerOf(const USB4_PORT* adapter);
// Removes the peer host behind the adapter and detaches it; false when there is none. The marks of the link stay: a
// caller that puts a router in the peer's place takes them off.
bool RemovePeer(USB4_PORT* adapter);
// Marks the router and everything behind it as gone: their accesses fail at once. Not for the host router.
void KivUsb4SwitchSetUnplugged(USB4_SWITCH* router);
// Gives up the topology's hold on the record, with all it owns but the UUID. From now on every access through it fails.
void KivUsb4SwitchRelease(USB4_SWITCH* router);
// Releases a router and its UUID: the end of one that leaves the device list, or that never came onto it.
void DiscardRouter(USB4_SWITCH* router);
