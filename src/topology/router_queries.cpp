// Queries on routers and adapters, answered from their cached headers and links.
#include "topology/router_queries.h"

#include <bit>

namespace {

constexpr std::uint32_t kBitsPerLevel = 8;

bool IsUpstreamItself(const USB4_PORT* adapter) {
  return adapter->Number == adapter->Router->UpstreamAdapter();
}

}  // namespace

USB4_ROUTE KivUsb4SwitchRoute(const USB4_SWITCH* router) {
  const RouterCs2::Value low(router->Header[RouterCs2::kOffset]);
  const RouterCs3::Value high(router->Header[RouterCs3::kOffset]);
  return USB4_ROUTE{high.Get<RouterCs3::RouteHigh>()} << 32 | low.Get<RouterCs2::RouteLow>();
}

bool IsHostRouter(const USB4_SWITCH* router) {
  return KivUsb4SwitchRoute(router) == 0;
}

std::uint32_t KivUsb4RouteDepth(USB4_ROUTE route) {
  return (static_cast<std::uint32_t>(std::bit_width(route)) + kBitsPerLevel - 1) / kBitsPerLevel;
}

USB4_ROUTE RouteBehind(const USB4_SWITCH* router, std::uint8_t adapter) {
  return KivUsb4SwitchRoute(router) | USB4_ROUTE{adapter} << kBitsPerLevel * router->Depth();
}

bool KivUsb4SwitchIsUsb4(const USB4_SWITCH* router) {
  const RouterCs4::Value cs4(router->Header[RouterCs4::kOffset]);
  return cs4.Get<RouterCs4::Usb4Version>() >= kUsb4VersionOfUsb4Routers;
}

USB4_PORT* KivUsb4SwitchUpstreamPort(const USB4_SWITCH* router) {
  return &router->Adapters[router->UpstreamAdapter()];
}

USB4_PORT* KivUsb4SwitchPortForRoute(const USB4_SWITCH* router, USB4_ROUTE route) {
  const std::uint32_t number = static_cast<std::uint8_t>(route >> kBitsPerLevel * router->Depth());
  return number > router->MaximumAdapter() ? nullptr : &router->Adapters[number];
}

USB4_PORT* ParentAdapterOf(const USB4_SWITCH* router) {
  if (router->Info.Parent == nullptr) return nullptr;
  return KivUsb4SwitchPortForRoute(router->Info.Parent, KivUsb4SwitchRoute(router));
}

bool KivUsb4SwitchRouteMatches(const USB4_SWITCH* a, const USB4_SWITCH* b) {
  const USB4_ROUTE compared = (USB4_ROUTE{1} << kBitsPerLevel * a->Depth()) - 1;
  return ((KivUsb4SwitchRoute(a) ^ KivUsb4SwitchRoute(b)) & compared) == 0;
}

USB4_PORT* KivUsb4SwitchFindPortByType(const USB4_SWITCH* router, std::uint32_t type) {
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    if (adapter.Type() == type) return &adapter;
  }
  return nullptr;
}

bool KivUsb4PortIsLane(const USB4_PORT* adapter) {
  return adapter != nullptr && adapter->Number != 0 && adapter->Type() == USB4_ADAPTER_LANE;
}

bool KivUsb4PortIsUpstream(const USB4_PORT* adapter) {
  if (IsUpstreamItself(adapter)) return true;
  return adapter->DualLinkPartner != nullptr && IsUpstreamItself(adapter->DualLinkPartner);
}

bool KivUsb4PortHasDownstreamLink(const USB4_PORT* adapter) {
  if (KivUsb4PortIsUpstream(adapter) || adapter->Remote == nullptr) return false;
  return adapter->DualLinkPartner == nullptr || !adapter->IsSecondLane();
}

const char* KivUsb4PortTypeName(const USB4_PORT* adapter) {
  const AdpCs2::Value type(adapter->Header[AdpCs2::kOffset]);
  switch (type.Get<AdpCs2::Protocol>()) {
    case 0x00:
      switch (type.Get<AdpCs2::Subtype>()) {
        case 0:
          return "Inactive";
        case 1:
          return "Port";
        case 2:
          return "NHI";
        default:
          return "unknown";
      }
    case 0x02:
      return "Ethernet";
    case 0x08:
      return "SATA";
    case 0x0E:
      return "DP/HDMI";
    case 0x10:
      return "PCIe";
    case 0x20:
      return "USB";
    default:
      return "unknown";
  }
}

const char* KivUsb4SwitchGenerationName(const USB4_SWITCH* router) {
  switch (router->Generation) {
    case 1:
      return "Thunderbolt 1";
    case 2:
      return "Thunderbolt 2";
    case 3:
      return "Thunderbolt 3";
    case 4:
      return "USB4";
    default:
      return "Unknown";
  }
}
