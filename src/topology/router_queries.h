// What the records of routers and adapters say without asking the hardware. Any IRQL, under the domain's run lock.
#pragma once
#include "include/config_space.h"
#include "include/router_record.h"

// The route string, 63 bits: byte k is the downstream adapter taken at depth k; 0 for the host router.
[[nodiscard]] USB4_ROUTE KivUsb4SwitchRoute(const USB4_SWITCH* router);
[[nodiscard]] bool IsHostRouter(const USB4_SWITCH* router);
// How many bytes of the route are significant. Unlike the depth that a router's header holds, it is never cut to 3
// bits.
[[nodiscard]] std::uint32_t KivUsb4RouteDepth(USB4_ROUTE route);
// The route of whatever is plugged into an adapter of `router`.
[[nodiscard]] USB4_ROUTE RouteBehind(const USB4_SWITCH* router, std::uint8_t adapter);

// USB4 version byte of 0x20 or more; every other router is a Thunderbolt 3 router.
[[nodiscard]] bool KivUsb4SwitchIsUsb4(const USB4_SWITCH* router);
[[nodiscard]] USB4_PORT* KivUsb4SwitchUpstreamPort(const USB4_SWITCH* router);
// The adapter of `router` through which a deeper route leaves it; null when the router has no adapter of that number.
[[nodiscard]] USB4_PORT* KivUsb4SwitchPortForRoute(const USB4_SWITCH* router, USB4_ROUTE route);
// The parent's adapter that leads to `router`; null for the host router.
[[nodiscard]] USB4_PORT* ParentAdapterOf(const USB4_SWITCH* router);
// Whether `b` lies at or below the place of `a`: their routes agree down to the depth of `a`.
[[nodiscard]] bool KivUsb4SwitchRouteMatches(const USB4_SWITCH* a, const USB4_SWITCH* b);
// The first adapter from number 1 up with this 24-bit type, by the cached headers; null when none has it.
[[nodiscard]] USB4_PORT* KivUsb4SwitchFindPortByType(const USB4_SWITCH* router, std::uint32_t type);

// False for a null adapter and for the control adapter.
[[nodiscard]] bool KivUsb4PortIsLane(const USB4_PORT* adapter);
// The router's upstream adapter, or the other lane of the same link.
[[nodiscard]] bool KivUsb4PortIsUpstream(const USB4_PORT* adapter);
// Whether a router stands behind this adapter, counted once per link: the test of every walk down the tree.
[[nodiscard]] bool KivUsb4PortHasDownstreamLink(const USB4_PORT* adapter);

[[nodiscard]] const char* KivUsb4PortTypeName(const USB4_PORT* adapter);
[[nodiscard]] const char* KivUsb4SwitchGenerationName(const USB4_SWITCH* router);

// Adapters 1 to the maximum, in order: for (USB4_PORT& adapter : AdaptersOf(router)).
struct ADAPTER_SPAN {
  USB4_PORT* First;
  USB4_PORT* End;
  USB4_PORT* begin() const { return First; }
  USB4_PORT* end() const { return End; }
};
[[nodiscard]] inline ADAPTER_SPAN AdaptersOf(const USB4_SWITCH* router) {
  return {router->Adapters + 1, router->Adapters + router->MaximumAdapter() + 1};
}
