// The rules that decide over tunnels, asked one after the other in the order in which the policy meets them.
#include "lab/report/explain.h"

#include <fmt/format.h>

#include <algorithm>

#include "lab/machine/bandwidth.h"
#include "lab/report/tree.h"
#include "sim/dataplane/display_adapter.h"
#include "sim/dataplane/usb3_function.h"
#include "sim/fabric/fabric_books.h"
#include "sim/router/cable.h"
#include "tunnel/usb3_tunnel.h"

namespace lab {
namespace {

std::string At(const AdapterPlace& place) {
  return fmt::format("{:x}:{}", place.route, place.adapter);
}

bool Same(const AdapterPlace& a, const AdapterPlace& b) {
  return a.route == b.route && a.adapter == b.adapter;
}

std::string RateText(const sim::DpRate& rate) {
  return fmt::format("{} x {} ({} Mb/s)", rate.mbpsPerLane, rate.lanes, sim::DpMbps(rate));
}

class DomainExplanation {
 public:
  DomainExplanation(const DomainView& domain, Machine& machine, Place place)
      : domain_(domain),
        fabric_(machine.fabric()),
        host_(fabric_.Find(HostRouterName(machine.config(), place))),
        budgets_(LinkBudgets(domain)) {}

  std::string Go() {
    text_ = "Domain " + domain_.name + "\n";
    if (!domain_.started) return text_ + "  the device is not running: it has no tunnels, whatever its routers keep\n";
    for (const RouterView& router : domain_.routers) Router(router);
    for (const LinkBudget& budget : budgets_) Link(budget);
    for (const PeerView& peer : domain_.peers) Peer(peer);
    return std::move(text_);
  }

 private:
  void Say(const std::string& what, const std::string& why) { text_ += fmt::format("  {}\n      {}\n", what, why); }

  const sim::Adapter* Hardware(const AdapterPlace& place) const {
    const sim::Router* router = fabric_.AtRoute(*host_, place.route);
    return router == nullptr ? nullptr : router->adapter(place.adapter);
  }

  const TunnelView* TunnelAt(TunnelKind kind, const AdapterPlace& place, bool source) const {
    for (const TunnelView& tunnel : domain_.tunnels) {
      const bool there =
          source ? Same(tunnel.source.place, place) : tunnel.destination && Same(tunnel.destination->place, place);
      if (tunnel.kind == kind && tunnel.listed && there) return &tunnel;
    }
    return nullptr;
  }

  std::vector<AdapterPlace> AdaptersOf(const RouterView& router, std::uint32_t type) const {
    std::vector<AdapterPlace> places;
    for (const AdapterView& adapter : router.adapters) {
      if (adapter.type == type) places.push_back({router.route, adapter.number});
    }
    return places;
  }

  void Router(const RouterView& router) {
    for (const AdapterPlace& place : AdaptersOf(router, EndsOf(TunnelKind::Dp).destination)) {
      const sim::Adapter* adapter = Hardware(place);
      if (adapter != nullptr && adapter->dp.display) Display(place, *adapter);
    }
    if (router.depth == 0) return;
    for (const TunnelKind kind : {TunnelKind::Pcie, TunnelKind::Usb3}) {
      for (const AdapterPlace& place : AdaptersOf(router, EndsOf(kind).destination)) Tree(kind, router, place);
    }
  }

  const RouterView* Parent(const RouterView& router) const {
    return domain_.Find(router.route & ~(std::uint64_t{0xFF} << (8 * (router.depth - 1))));
  }

  // --- PCIe and USB3: from the router's parent
  void Tree(TunnelKind kind, const RouterView& router, const AdapterPlace& place) {
    const std::string what = fmt::format("{} of router {:x} ({})", TunnelKindName(kind), router.route, At(place));
    const TunnelView* tunnel = TunnelAt(kind, place, false);
    if (tunnel != nullptr) return Say(what, "has " + TunnelLine(*tunnel) + Inside(*tunnel));
    Say(what, "has no tunnel: " + WhyNoTree(kind, router, place));
  }

  static std::string Inside(const TunnelView& tunnel) {
    return tunnel.kind == TunnelKind::Usb3 && !tunnel.allocated
               ? "; its bandwidth lives inside the grant of the tunnel at the host router"
               : "";
  }

  std::string WhyNoTree(TunnelKind kind, const RouterView& router, const AdapterPlace& place) const {
    const bool pcie = kind == TunnelKind::Pcie;
    if (pcie ? !domain_.pcieAllowed : !domain_.usb3Allowed) return "the registry does not allow tunnels of this kind";
    const RouterView* parent = Parent(router);
    if (parent == nullptr) return "its parent is not listed";
    std::string taken;
    std::vector<AdapterPlace> free;
    for (const AdapterPlace& down : AdaptersOf(*parent, EndsOf(kind).source)) {
      const TunnelView* holder = TunnelAt(kind, down, true);
      if (holder == nullptr) {
        free.push_back(down);
      } else {
        taken += (taken.empty() ? "" : ", ") + TunnelText(*holder);
      }
    }
    if (free.empty()) {
      return taken.empty() ? "its parent has no downstream adapter of this kind"
                           : "every downstream adapter of its parent is in use: " + taken;
    }
    return pcie ? "a tunnel was tried and did not come up, or one before it in the tree did not"
                : WhyNoUsb3(*parent, free.front(), place);
  }

  std::string WhyNoUsb3(const RouterView& parent, const AdapterPlace& down, const AdapterPlace& up) const {
    if (parent.depth > 0) {
      const std::vector<AdapterPlace> above = AdaptersOf(parent, EndsOf(TunnelKind::Usb3).destination);
      if (above.empty() || TunnelAt(TunnelKind::Usb3, above.front(), false) == nullptr) {
        return "its parent has no USB3 tunnel itself";
      }
    }
    const sim::Adapter *from = Hardware(down), *to = Hardware(up);
    if (from == nullptr || to == nullptr) return "its adapters cannot be reached";
    const unsigned rate = std::min(sim::ReadUsb3(*from).maxRateMbps, sim::ReadUsb3(*to).maxRateMbps);
    const std::int32_t wanted = Usb3UsableMbps(static_cast<std::int32_t>(rate));
    for (const LinkBudget& budget : budgets_) {
      if (budget.route != up.route) continue;
      const BandwidthView left = LeftByDisplays(budget);
      if (std::min(left.up, left.down) < wanted) {
        return fmt::format("it wants {} Mb/s ({} % of {}) each way, its link leaves {} up/down after displays", wanted,
                           kUsb3UsablePercent, rate, BandwidthText(left));
      }
    }
    return "a tunnel was tried and did not come up, or one before it in the tree did not";
  }

  // What admission sees: a USB3 tunnel that runs is not counted.
  static BandwidthView LeftByDisplays(const LinkBudget& budget) {
    BandwidthView left{budget.usable, budget.usable};
    for (const TunnelView* tunnel : budget.crossing) {
      if (tunnel->kind != TunnelKind::Dp || !tunnel->consumed) continue;
      left.up -= tunnel->consumed->up;
      left.down -= tunnel->consumed->down;
    }
    return {std::max<std::int64_t>(left.up, 0), std::max<std::int64_t>(left.down, 0)};
  }

  // --- displays: from a DP IN of the host router
  void Display(const AdapterPlace& place, const sim::Adapter& dpOut) {
    const std::string what = fmt::format("display at {} of {}, up to {}", At(place), dpOut.router().name(),
                                         RateText(dpOut.dp.display->most));
    const TunnelView* tunnel = TunnelAt(TunnelKind::Dp, place, false);
    if (tunnel != nullptr) return Say(what, "has " + TunnelLine(*tunnel) + "; " + WhyThisRate(*tunnel, dpOut));
    Say(what, "has no tunnel: " + WhyNoDisplay(place, dpOut));
  }

  std::string WhyThisRate(const TunnelView& tunnel, const sim::Adapter& dpOut) const {
    const sim::Adapter* dpIn = Hardware(tunnel.source.place);
    if (dpIn == nullptr) return "its source cannot be reached";
    const sim::DpBook source = sim::ReadDp(*dpIn), sink = sim::ReadDp(dpOut);
    if (dpIn->router().model().usb4() && !source.negotiated) {
      return "its capabilities have not been read, so it is charged nothing";
    }
    const sim::DpRate rate = source.negotiated.value_or(source.remote);
    std::string text = "runs at " + RateText(rate);
    if (rate == dpOut.dp.display->most) return text + ", all that it can do";
    text += fmt::format("; source {}, sink adapter {}", RateText(source.local), RateText(sink.local));
    if (!(source.remote == sink.local)) {
      text += fmt::format("; reduced to {} because {} Mb/s up/down were to be had", RateText(source.remote),
                          BandwidthText(tunnel.maximum));
    }
    return text;
  }

  bool Offered(const AdapterPlace& place) const {
    return std::any_of(domain_.displayResources.begin(), domain_.displayResources.end(),
                       [&](const AdapterPlace& each) { return Same(each, place); });
  }

  std::string WhyNoDisplay(const AdapterPlace& place, const sim::Adapter& dpOut) const {
    const sim::DpBook book = sim::ReadDp(dpOut);
    if (book.video || book.aux) return "its DP OUT is still switched on, by whoever had it before";
    if (!Offered(place)) return "no plug event of its DP OUT has been handled";
    std::string taken;
    std::vector<AdapterPlace> free;
    for (const AdapterPlace& resource : domain_.displayResources) {
      const sim::Adapter* adapter = Hardware(resource);
      if (adapter == nullptr || adapter->type() != EndsOf(TunnelKind::Dp).source) continue;
      const TunnelView* holder = TunnelAt(TunnelKind::Dp, resource, true);
      if (holder == nullptr) {
        free.push_back(resource);
      } else {
        taken += (taken.empty() ? "" : ", ") + TunnelText(*holder);
      }
    }
    if (free.empty()) return taken.empty() ? "the host router offers no DP IN" : "every DP IN is in use: " + taken;
    return WhyRefused(free.front(), place, book);
  }

  std::string WhyRefused(const AdapterPlace& dpIn, const AdapterPlace& dpOut, const sim::DpBook& sink) const {
    std::int64_t left = INT64_MAX;
    for (const LinkBudget& budget : budgets_) {
      if (OnTheWay(budget.route, dpOut.route)) left = std::min(left, LeftByDisplays(budget).down);
    }
    const sim::DpRate least{1620, 1};
    if (left > 0 && left < sim::DpMbps(least)) {
      return fmt::format("{} Mb/s are left on its way, the least mode takes {}", left, RateText(least));
    }
    return fmt::format("{} is free, but its router does not grant it or the tunnel ({}) does not come up", At(dpIn),
                       RateText(sink.local));
  }

  // The link above `link` is passed on the way to `route`.
  bool OnTheWay(std::uint64_t link, std::uint64_t route) const {
    const RouterView* router = domain_.Find(link);
    if (router == nullptr || router->depth == 0) return false;
    const std::uint64_t mask = router->depth >= 8 ? ~std::uint64_t{0} : (std::uint64_t{1} << (8 * router->depth)) - 1;
    return (route & mask) == link;
  }

  // --- links
  void Link(const LinkBudget& budget) {
    const RouterView& router = *domain_.Find(budget.route);
    text_ += fmt::format("  link {} - {}: {}, {} Mb/s each way, {} usable\n", At(budget.upper), At(budget.lower),
                         LinkText(*router.link), budget.capacity, budget.usable);
    for (const TunnelView* tunnel : budget.crossing) {
      text_ += fmt::format("      {:<24} {}\n", TunnelText(*tunnel),
                           tunnel->consumed ? BandwidthText(*tunnel->consumed) : "not charged");
    }
    const bool over = budget.available.up < 0 || budget.available.down < 0;
    text_ += fmt::format("      {:<24} {}{}\n", "available", BandwidthText(budget.available),
                         over ? ": more is given than there is; a display does not count a USB3 tunnel that runs" : "");
  }

  // --- peers: the host of the lower UUID asks for two lanes
  void Peer(const PeerView& peer) {
    const std::string what =
        fmt::format("peer {:x} at {}: {}, {}", peer.route, At(peer.facing), PeerNameText(peer), peer.state);
    const sim::Adapter* port = Hardware(peer.facing);
    if (port == nullptr || port->link == nullptr || !port->link->LaneUp(*port)) return Say(what, "its link is down");
    if (!port->link->bonded()) return Say(what, "has one lane: " + WhyOneLane(peer, *port));
    Say(what, fmt::format("has two lanes: {}", Asks(peer) ? "this host has the lower UUID and asked for them"
                                                          : "the peer has the lower UUID and asked for them"));
  }

  static bool Asks(const PeerView& peer) { return peer.uuid && peer.ownUuid <= *peer.uuid; }

  static std::string WhyOneLane(const PeerView& peer, const sim::Adapter& port) {
    if (port.pair() == nullptr) return "its adapter has no second lane";
    if (port.link->Opposite(*port.pair()) == nullptr) return "the cable has no second lane";
    if (!peer.uuid) return "the peer has not said who it is";
    if (*peer.uuid == peer.ownUuid) return "the cable leads back to a host with this host's UUID";
    const sim::Adapter& far = *port.link->Opposite(port);
    if ((far.space().Get(far.laneCapability) >> 20 & 0x3F) < 2) return "the peer supports one lane only";
    if (peer.state != "PROPERTIES" && peer.state != "ENUMERATED" && peer.state != "ERROR") {
      return "the discovery has not come to its lanes yet";
    }
    if (Asks(peer)) return "this host has the lower UUID, and the peer refused two lanes or did not switch them on";
    if (peer.requestedWidth == 0) return "the peer has the lower UUID, and never asked for two lanes";
    return peer.requestedWidth == 1 ? "the peer asked for one lane" : "the lanes did not bond in time";
  }

  const DomainView& domain_;
  const sim::Fabric& fabric_;
  const sim::Router* host_;
  const std::vector<LinkBudget> budgets_;
  std::string text_;
};

}  // namespace

std::string Explain(const DomainView& domain, Machine& machine, Place place) {
  return DomainExplanation(domain, machine, place).Go();
}

}  // namespace lab
