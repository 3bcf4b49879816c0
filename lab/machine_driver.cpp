// Looking into the driver: the only file of the assembly that reads the driver's records.
#include <fmt/format.h>
#include <ntddk.h>

#include <wdf.h>

#include "include/device_context.h"
#include "include/domain.h"
#include "include/switch.h"
#include "lab/machine.h"

namespace lab {
namespace {

// Words 1 to 4 of a router's header as read; layouts are the wire's.
struct RouterHeader {
  explicit RouterHeader(const std::uint32_t (&words)[5]) : w(words) {}
  unsigned UpstreamAdapter() const { return w[1] >> 8 & 0x3F; }
  unsigned MaxAdapter() const { return w[1] >> 14 & 0x3F; }
  unsigned Depth() const { return w[1] >> 20 & 7; }
  std::uint64_t Route() const { return std::uint64_t{w[3] & 0x7FFFFFFF} << 32 | w[2]; }
  const std::uint32_t (&w)[5];
};

std::optional<std::string> TextOf(const char* text) {
  return text ? std::optional<std::string>(text) : std::nullopt;
}

RouterView ViewOf(const USB4_SWITCH& router) {
  const RouterHeader header(router.Header);
  RouterView view;
  view.route = header.Route();
  view.name = router.Info.Name;
  view.vendorName = TextOf(router.VendorName);
  view.deviceName = TextOf(router.DeviceName);
  if (router.Uid != 0) view.uid = fmt::format("{:016x}", router.Uid);
  view.generation = router.Generation;
  view.depth = header.Depth();
  view.upstreamAdapter = header.UpstreamAdapter();
  for (unsigned number = 1; router.Adapters != nullptr && number <= header.MaxAdapter(); ++number)
    view.adapters.push_back({number, router.Adapters[number].Header[2] & 0xFFFFFF});
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
    if (context.Domain == nullptr) return;
    view.present = true;
    if (context.Domain->HostRouter != nullptr) view.routers.push_back(ViewOf(*context.Domain->HostRouter));
  });
  return view;
}

}  // namespace lab
