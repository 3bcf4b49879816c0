// What goes with a router that has been unplugged: the tunnels through it, and the displays at it. PASSIVE_LEVEL, under
// the domain's run lock.
#pragma once
#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/tunnel_record.h"

// Some hop of some path, active or not, enters or leaves a router that is marked unplugged. Under the path lock.
[[nodiscard]] bool KivUsb4IsTunnelInValid(const USB4_TUNNEL* tunnel);
// Takes every such tunnel of the domain's list down. What is left of it on the near side is switched off.
void KivUsb4RemoveInvalidTunnels(USB4_DOMAIN* domain);
// Takes the adapters of the router, and of everything behind it, off the list of DisplayPort resources.
void KivUsb4RemoveSwitchDpResources(USB4_SWITCH* router);
