// Which PCIe and USB3 tunnels exist: one of each from every router's parent to the router, so that the tree of routers
// carries a tree of either kind; and what goes with a router that has been unplugged. PASSIVE_LEVEL, under the domain's
// run lock; building tunnels, and looking at one, under its path lock too.
#pragma once
#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

// The router's tunnel, unless it is the host router, then those of everything behind it: parents before children,
// siblings in adapter order. The first failure ends the whole walk and is returned.
[[nodiscard]] KIV_RESULT KivUsb4CreatePcieTunnels(USB4_SWITCH* router);
[[nodiscard]] KIV_RESULT KivUsb4CreateUsb3Tunnels(USB4_SWITCH* router);

// One tunnel, active, listed and counted. 0 also without one when an adapter for it is missing or none is free; -1 when
// it cannot be built, is refused for want of bandwidth or does not come up; else the error of asking for bandwidth.
[[nodiscard]] KIV_RESULT KivUsb4TunnnelPcie(USB4_DOMAIN* domain, USB4_SWITCH* router);
// Not below a router that has no running USB3 tunnel itself.
[[nodiscard]] KIV_RESULT KivUsb4TunnelUsb3(USB4_DOMAIN* domain, USB4_SWITCH* router);

// The parent's protocol adapter for the link of `laneAdapter`: the one at the link's position unless it is in use, else
// the first free one; null when there is none. A Thunderbolt 3 router knows no positions for PCIe.
[[nodiscard]] USB4_PORT* KivUsb4FindPcieDown(const USB4_SWITCH* parent, const USB4_PORT* laneAdapter);
[[nodiscard]] USB4_PORT* KivUsb4FindUsb3Down(const USB4_SWITCH* parent, const USB4_PORT* laneAdapter);

// Some hop of some path, active or not, enters or leaves a router that is marked unplugged. Under the path lock.
[[nodiscard]] bool KivUsb4IsTunnelInValid(const USB4_TUNNEL* tunnel);
// Takes every such tunnel of the domain's list down. What is left of it on the near side is switched off.
void KivUsb4RemoveInvalidTunnels(USB4_DOMAIN* domain);
// Takes the adapters of the router, and of everything behind it, off the list of DisplayPort resources.
void KivUsb4RemoveSwitchDpResources(USB4_SWITCH* router);
