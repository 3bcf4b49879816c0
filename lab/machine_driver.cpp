// Looking into the driver: its records as plain data.
#include <fmt/format.h>
#include <ntddk.h>

#include <wdf.h>

#include "include/device_context.h"
#include "include/domain.h"
#include "include/switch.h"
#include "lab/machine.h"
#include "topology/device_list.h"
#include "topology/router_queries.h"
#include "topology/tmu.h"

namespace lab {
namespace {

using Capabilities = std::vector<std::pair<std::string, unsigned>>;

constexpr std::uint32_t kSearchedInVain = 0xFFFFFFFF;

std::optional<std::string> TextOf(const char* text) {
  return text ? std::optional<std::string>(text) : std::nullopt;
}

void AddCapability(Capabilities& list, const char* name, std::uint32_t offset) {
  if (offset != 0 && offset != kSearchedInVain) list.emplace_back(name, offset);
}

AdapterView ViewOf(const USB4_PORT& adapter, unsigned number) {
  AdapterView view;
  view.number = number;
  view.type = adapter.Type();
  view.disabled = adapter.Disabled != 0;
  view.bonded = adapter.Bonded != 0;
  view.secondLane = adapter.IsSecondLane();
  if (adapter.DualLinkPartner != nullptr) view.partner = adapter.DualLinkPartner->Number;
  if (adapter.Remote != nullptr)
    view.remote = AdapterPlace{KivUsb4SwitchRoute(adapter.Remote->Router), adapter.Remote->Number};
  AddCapability(view.capabilities, "lane", adapter.LaneCapability);
  AddCapability(view.capabilities, "TMU", adapter.TmuCapability);
  AddCapability(view.capabilities, "protocol", adapter.ProtocolCapability);
  AddCapability(view.capabilities, "USB4 port", adapter.Usb4PortCapability);
  return view;
}

RouterView ViewOf(const USB4_SWITCH& router) {
  RouterView view;
  view.route = KivUsb4SwitchRoute(&router);
  view.name = router.Info.Name;
  view.vendorName = TextOf(router.VendorName);
  view.deviceName = TextOf(router.DeviceName);
  if (router.Uid != 0) view.uid = fmt::format("{:016x}", router.Uid);
  view.generation = router.Generation;
  view.depth = KivUsb4RouteDepth(view.route);
  view.upstreamAdapter = router.UpstreamAdapter();
  if (router.TmuCapability != 0) view.tmu = KivUsb4SwitchTmuModeName(&router);
  view.state = router.Unplugged.IsSet() ? "unplugged" : "ready";
  AddCapability(view.capabilities, "TMU", router.TmuCapability);
  AddCapability(view.capabilities, "plug events", router.PlugEventsCapability);
  AddCapability(view.capabilities, "link controller", router.LinkControllerCapability);
  if (router.Adapters == nullptr) return view;
  for (unsigned number = 1; number <= router.MaximumAdapter(); ++number)
    view.adapters.push_back(ViewOf(router.Adapters[number], number));
  if (view.depth > 0)
    view.link = LinkView{router.LinkSpeed, router.LinkWidth, router.Adapters[view.upstreamAdapter].Bonded != 0};
  return view;
}

}  // namespace

bool Machine::InDriver(Place place, const std::function<void(DEVICE_EXTENSION&)>& look) {
  bool looked = false;
  if (!Added(place) || simulation_.Stopped()) return false;
  const auto outcome = simulation_.RunTask(&kernel(place.host), "look", [&] {
    void* device = kernel(place.host).FrameworkDevice(this->device(place));
    DEVICE_EXTENSION* context = device ? DeviceContextOf(static_cast<WDFDEVICE>(device)) : nullptr;
    if (context == nullptr) return;
    looked = true;
    look(*context);
  });
  return outcome == platform::Outcome::Done && looked;
}

DomainView Machine::Domain(Place place) {
  DomainView view;
  view.name = DomainName(place);
  InDriver(place, [&](DEVICE_EXTENSION& context) {
    USB4_DOMAIN* domain = context.Domain;
    if (domain == nullptr) return;
    view.present = true;
    const USB4_SWITCH* host = domain->HostRouter;
    if (host != nullptr) view.routers.push_back(ViewOf(*host));
    for (USB4_DEV_ENTRY* entry = NextEntry(domain, nullptr); entry != nullptr; entry = NextEntry(domain, entry))
      if (entry->Router != nullptr && entry->Router != host) view.routers.push_back(ViewOf(*entry->Router));
  });
  return view;
}

}  // namespace lab
