// Ways follow the tree of routers, as paths do; capacities and what displays take come from the fabric, grants from the
// driver.
#include "lab/timeline/tunnel_tracks.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "lab/machine/bandwidth.h"

namespace lab {
namespace {

constexpr unsigned kBitsPerLevel = 8;

unsigned DepthOf(std::uint64_t route) {
  unsigned depth = 0;
  for (; route != 0; route >>= kBitsPerLevel) ++depth;
  return depth;
}

std::uint64_t Ancestor(std::uint64_t route, unsigned depth) {
  return route & ((std::uint64_t{1} << (kBitsPerLevel * depth)) - 1);
}

bool Same(const TunnelView& a, const TunnelView& b) {
  return TunnelText(a) == TunnelText(b);
}

// The routers below the links that a tunnel crosses.
std::vector<std::uint64_t> LinksOf(const TunnelView& tunnel) {
  const std::uint64_t from = tunnel.source.place.route, to = tunnel.destination->place.route;
  std::vector<std::uint64_t> links;
  for (const auto& [route, other] : {std::pair(from, to), std::pair(to, from)}) {
    for (unsigned depth = DepthOf(route); depth > 0; --depth) {
      if (Ancestor(route, depth) != Ancestor(other, depth)) links.push_back(Ancestor(route, depth));
    }
  }
  return links;
}

// "0-301" and 9: a router's name starts with its controller's index.
std::optional<TunnelEnd> EndFrom(const DriverEvent& event, std::string_view key) {
  const EventField* field = FindField(event, key);
  if (field == nullptr || !field->number || field->router.find('-') == std::string::npos) return std::nullopt;
  const auto route = NumberOf<std::uint64_t>(std::string_view(field->router).substr(field->router.find('-') + 1), 16);
  if (!route) return std::nullopt;
  return TunnelEnd{{*route, static_cast<unsigned>(*field->number)}, field->router};
}

TunnelKind KindFrom(const DriverEvent& event) {
  const auto name = FieldText(event, "type");
  for (const TunnelKind kind : TunnelKinds()) {
    if (name == TunnelKindName(kind)) return kind;
  }
  return TunnelKind::Usb3;
}

bool IsDisplayPort(const sim::Router* router, unsigned adapter) {
  const sim::Adapter* found = router == nullptr ? nullptr : router->adapter(adapter);
  return found != nullptr && found->isDisplayPort();
}

}  // namespace

std::optional<TunnelView> TunnelFrom(const DriverEvent& event) {
  const auto source = EndFrom(event, "source");
  const auto up = FieldNumber<std::int64_t>(event, "up"), down = FieldNumber<std::int64_t>(event, "down");
  if (!source || !up || !down) return std::nullopt;
  TunnelView tunnel;
  tunnel.kind = KindFrom(event);
  tunnel.source = *source;
  tunnel.destination = EndFrom(event, "destination");
  tunnel.active = true;
  // Further down a USB3 tunnel lives inside the grant of the one that starts at the host router.
  if (tunnel.kind == TunnelKind::Usb3 && source->place.route == 0) tunnel.allocated = BandwidthView{*up, *down};
  return tunnel;
}

unsigned ControllerOf(const TunnelView& tunnel) {
  return NumberOf<unsigned>(tunnel.source.router.substr(0, tunnel.source.router.find('-'))).value_or(0);
}

void TunnelTracks::Listed(const TunnelView& tunnel, platform::Time when) {
  if (!tunnel.destination) return;
  lives_.push_back({tunnel, file_.BeginLife(pid_, when, TunnelText(tunnel))});
  Sample(when);
}

void TunnelTracks::Unlisted(const TunnelView& tunnel, platform::Time when) {
  const auto life = std::find_if(lives_.begin(), lives_.end(), [&](const Life& l) { return Same(l.tunnel, tunnel); });
  if (life == lives_.end()) return;
  file_.EndLife(pid_, when, TunnelText(life->tunnel), life->number);
  lives_.erase(life);
  Sample(when);
}

void TunnelTracks::Granted(const TunnelView& tunnel, platform::Time when) {
  for (Life& life : lives_) {
    if (life.tunnel.allocated && life.tunnel.source.place.route == tunnel.source.place.route &&
        life.tunnel.source.place.adapter == tunnel.source.place.adapter) {
      life.tunnel.allocated = tunnel.allocated;
    }
  }
  Sample(when);
}

void TunnelTracks::AddRouter(DomainView& view, std::uint64_t route) {
  const sim::Router* router = host_.fabric().AtRoute(host_, route);
  if (router == nullptr || view.Find(route) != nullptr) return;
  RouterView added;
  added.route = route;
  added.depth = DepthOf(route);
  added.upstreamAdapter = router->upstreamAdapter();
  added.adapters.resize(added.upstreamAdapter);
  for (unsigned number = 1; number <= added.upstreamAdapter; ++number) added.adapters[number - 1].number = number;
  const sim::Adapter* upstream = router->adapter(added.upstreamAdapter);
  if (route != 0 && upstream != nullptr && upstream->link != nullptr) {
    added.link = LinkView{upstream->link->gbpsPerLane(), 0, upstream->link->bonded(), {}};
  }
  view.routers.push_back(std::move(added));
}

// As much of the domain as bandwidth is reckoned from. A display's source may have been pulled, and something else put
// in its place, before the driver hears of it.
DomainView TunnelTracks::View() {
  DomainView view;
  AddRouter(view, 0);
  for (const auto& [route, figures] : shown_) AddRouter(view, route);
  for (const Life& life : lives_) {
    TunnelView tunnel = life.tunnel;
    const sim::Router* source = host_.fabric().AtRoute(host_, tunnel.source.place.route);
    if (tunnel.kind == TunnelKind::Dp && !IsDisplayPort(source, tunnel.source.place.adapter)) continue;
    PathView way;
    for (const std::uint64_t route : LinksOf(tunnel)) {
      AddRouter(view, route);
      const RouterView* router = view.Find(route);
      if (router != nullptr) way.hops.push_back({route, router->upstreamAdapter, 0, 0, 0});
    }
    tunnel.paths = {way};
    view.tunnels.push_back(std::move(tunnel));
  }
  AddConsumption(view, host_);
  return view;
}

void TunnelTracks::Sample(platform::Time when) {
  const DomainView view = View();
  std::set<std::uint64_t> gone;
  for (const auto& [route, figures] : shown_) gone.insert(route);
  for (const LinkBudget& budget : LinkBudgets(view)) {
    gone.erase(budget.route);
    const BandwidthView left = budget.available;
    Show(budget.route, {budget.usable - left.up, budget.usable - left.down, left.up, left.down}, when);
  }
  for (const std::uint64_t route : gone) Show(route, {}, when);
}

void TunnelTracks::Show(std::uint64_t route, const Figures& figures, platform::Time when) {
  const auto [shown, first] = shown_.try_emplace(route);
  if (!first && shown->second == figures) return;
  shown->second = figures;
  file_.Counter(pid_, when, fmt::format("link of {:x}, Mb/s", route),
                TraceArguments()
                    .Add("consumed up", figures[0])
                    .Add("consumed down", figures[1])
                    .Add("available up", figures[2])
                    .Add("available down", figures[3]));
}

void TunnelTracks::Finish(platform::Time when) {
  for (const Life& life : lives_) file_.EndLife(pid_, when, TunnelText(life.tunnel), life.number);
  lives_.clear();
}

}  // namespace lab
