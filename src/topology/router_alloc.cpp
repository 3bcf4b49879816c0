// Making a router's record from the header that the router reports.
#include "topology/router_alloc.h"

#include <ntddk.h>

#include <ntstrsafe.h>

#include "hostif/config_access.h"
#include "include/device_context.h"
#include "include/trace.h"
#include "topology/adapter_state.h"
#include "topology/capabilities.h"
#include "topology/router_queries.h"
#include "topology/router_reference.h"
#include "topology/router_remove.h"

namespace {

constexpr std::uint32_t kDepthLimitUsb4 = 5;
constexpr std::uint32_t kDepthLimitTbt3 = 6;

constexpr std::uint16_t kGeneration1[] = {0x1513, 0x151A, 0x151B, 0x1547, 0x1548, 0x1549, 0x1567, 0x1569};
constexpr std::uint16_t kGeneration2[] = {0x156B, 0x156D, 0x157E};
constexpr std::uint16_t kGeneration3[] = {0x1576, 0x1578, 0x15C0, 0x15D3, 0x15DA,
                                          0x15E7, 0x15EA, 0x15EF, 0x8A0D, 0x8A17};

template <std::size_t Count>
bool Contains(const std::uint16_t (&ids)[Count], std::uint32_t id) {
  for (const std::uint16_t known : ids) {
    if (known == id) return true;
  }
  return false;
}

// By device ID alone: licensees ship these devices under vendor IDs of their own.
std::uint32_t GenerationOf(const USB4_SWITCH* router) {
  const std::uint32_t id = RouterCs0::Value(router->Header[RouterCs0::kOffset]).Get<RouterCs0::DeviceId>();
  if (Contains(kGeneration1, id)) return 1;
  if (Contains(kGeneration2, id)) return 2;
  if (Contains(kGeneration3, id)) return 3;
  return KivUsb4SwitchIsUsb4(router) ? 4 : 1;
}

// What the router will be told in its configuration stands in the cached header from now on.
void PatchHeader(USB4_SWITCH* router, USB4_ROUTE route, std::uint32_t upstreamAdapter) {
  RouterCs1::Value cs1(router->Header[RouterCs1::kOffset]);
  cs1.Set<RouterCs1::UpstreamAdapter>(upstreamAdapter);
  cs1.Set<RouterCs1::Depth>(KivUsb4RouteDepth(route));
  router->Header[RouterCs1::kOffset] = cs1.Word();
  RouterCs2::Value cs2;
  cs2.Set<RouterCs2::RouteLow>(static_cast<std::uint32_t>(route));
  router->Header[RouterCs2::kOffset] = cs2.Word();
  RouterCs3::Value cs3;
  cs3.Set<RouterCs3::RouteHigh>(static_cast<std::uint32_t>(route >> 32));
  router->Header[RouterCs3::kOffset] = cs3.Word();
}

// A chain may hold six Thunderbolt 3 routers below its root, but only five as soon as USB4 is part of it.
bool IsTooDeep(const USB4_SWITCH* router, USB4_ROUTE route) {
  const USB4_SWITCH* root = router->Domain->HostRouter;
  const bool usb4 = KivUsb4SwitchIsUsb4(router) || (root != nullptr && KivUsb4SwitchIsUsb4(root));
  return KivUsb4RouteDepth(route) > (usb4 ? kDepthLimitUsb4 : kDepthLimitTbt3);
}

KIV_RESULT AllocateAdapters(USB4_SWITCH* router) {
  const std::size_t count = std::size_t{router->MaximumAdapter()} + 1;
  router->Adapters = PoolNewArray<USB4_PORT>(count, USB4_PORT::kPoolTag);
  if (router->Adapters == nullptr) return kKivNoMemory;
  for (std::size_t number = 0; number < count; ++number) {
    router->Adapters[number].Router = router;
    router->Adapters[number].Number = static_cast<std::uint8_t>(number);
  }
  return kKivOk;
}

// A search that fails is stored like an offset: all ones, which every access check refuses. Only 0 means that there is
// nothing to use.
void FindVendorSpecificBlocks(USB4_SWITCH* router) {
  const CAPABILITY_OFFSET plugEvents = KivUsb4SwitchFindVseCap(router, kVendorSpecificPlugEvents);
  if (plugEvents != 0) router->PlugEventsCapability = static_cast<std::uint32_t>(plugEvents);
  const CAPABILITY_OFFSET linkController = KivUsb4SwitchFindVseCap(router, kVendorSpecificLinkController);
  if (linkController != 0) router->LinkControllerCapability = static_cast<std::uint32_t>(linkController);
}

void NameRouter(USB4_SWITCH* router) {
  const std::uint32_t controller = ControllerIndexOf(router->Domain->HostInterface);
  // 10 digits, a dash and 16 digits always fit.
  IgnoreResult(RtlStringCbPrintfA(router->Info.Name, sizeof router->Info.Name, "%u-%llx", controller,
                                  static_cast<unsigned long long>(KivUsb4SwitchRoute(router))));
}

// Everything after the header has been read; on an error the caller discards the record.
KIV_RESULT Describe(USB4_SWITCH* router, USB4_ROUTE route, std::uint32_t upstreamAdapter) {
  router->Generation = GenerationOf(router);
  PatchHeader(router, route, upstreamAdapter);
  if (IsTooDeep(router, route)) {
    TraceErrorBy(NAME_OF(KivUsb4SwitchAlloc), "router is too deep", "route", AsRoute(route), "depth",
                 KivUsb4RouteDepth(route));
    return kKivTooDeep;
  }
  if (router->UpstreamAdapter() > router->MaximumAdapter()) {
    TraceErrorBy(NAME_OF(KivUsb4SwitchAlloc), "router answers through an adapter that it does not have", "route",
                 AsRoute(route), "adapter", router->UpstreamAdapter());
    return kKivNoMemory;
  }
  if (AllocateAdapters(router) != kKivOk) return kKivNoMemory;
  router->RegistersText = PoolNew<USB4_PATH_TEXT>();
  router->MiscText = PoolNew<USB4_PATH_TEXT>();
  if (router->RegistersText == nullptr || router->MiscText == nullptr) return kKivNoMemory;
  FindVendorSpecificBlocks(router);
  NameRouter(router);
  return kKivOk;
}

}  // namespace

ROUTER_OR_ERROR KivUsb4SwitchAlloc(USB4_DOMAIN* domain, USB4_SWITCH* parent, USB4_ROUTE route) {
  if (route != 0 && parent != nullptr) {
    // A lock that stays makes the next access fail, and that is answered there.
    IgnoreResult(KivUsb4PortUnlock(KivUsb4SwitchPortForRoute(parent, route)));
  }
  const KIV_RESULT upstreamAdapter = KivUsb4CfgGetUpstreamPort(domain->ControlChannel, route);
  if (upstreamAdapter < 0) {
    TraceWarning("no router answers", "route", AsRoute(route), "result", AsResult(upstreamAdapter));
    return {nullptr, upstreamAdapter};
  }
  USB4_SWITCH* router = PoolNew<USB4_SWITCH>();
  if (router == nullptr) return {nullptr, kKivNoMemory};
  ReferenceRouter(router);
  router->Domain = domain;
  router->Info.Parent = parent;
  if (parent != nullptr) ReferenceRouter(parent);
  const USB4_CFG_TARGET header = {route, 0, {USB4_CFG_SPACE_ROUTER, 0, kRouterHeaderDwords}};
  KIV_RESULT result = KivUsb4CfgRead(domain->ControlChannel, router->Header, header);
  result = result == kKivOk ? Describe(router, route, static_cast<std::uint32_t>(upstreamAdapter)) : kKivNoMemory;
  if (result != kKivOk) {
    KivUsb4SwitchRelease(router);
    return {nullptr, result};
  }
  TraceInfo("router found", "name", router->Info.Name, "route", AsRoute(route), "generation", router->Generation);
  return {router, kKivOk};
}
