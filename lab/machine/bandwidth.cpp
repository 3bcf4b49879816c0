// Charges come from the fabric's registers, ways from the tunnels' hops.
#include "lab/machine/bandwidth.h"

#include <algorithm>

#include "sim/dataplane/display_adapter.h"
#include "tunnel/link_bandwidth.h"
#include "tunnel/usb3_tunnel.h"

namespace lab {
namespace {

// A USB4 router's DP IN knows what was agreed on only once it has read the display's capabilities; an older one takes
// what its manager wrote.
std::int64_t VideoMbps(const sim::Adapter& dpIn) {
  const sim::DpBook book = sim::ReadDp(dpIn);
  if (!dpIn.router().model().usb4()) return sim::DpMbps(book.remote);
  return book.negotiated ? sim::DpMbps(*book.negotiated) : 0;
}

BandwidthView ChargeOf(const BandwidthView& grant) {
  const USB4_BANDWIDTH charge =
      Usb3ChargeOf({static_cast<std::int32_t>(grant.up), static_cast<std::int32_t>(grant.down)});
  return {charge.Upstream, charge.Downstream};
}

bool Crosses(const TunnelView& tunnel, const RouterView& router) {
  for (const PathView& path : tunnel.paths) {
    for (const HopView& hop : path.hops) {
      if (hop.route != router.route) continue;
      for (unsigned adapter : {hop.in, hop.out}) {
        const AdapterView& upstream = router.adapters[router.upstreamAdapter - 1];
        if (adapter == upstream.number || adapter == upstream.partner) return true;
      }
    }
  }
  return false;
}

}  // namespace

void AddConsumption(DomainView& domain, const sim::Router& host) {
  for (TunnelView& tunnel : domain.tunnels) {
    if (tunnel.allocated) tunnel.consumed = ChargeOf(*tunnel.allocated);
    if (tunnel.kind != TunnelKind::Dp || !tunnel.destination) continue;
    const sim::Router* router = host.fabric().AtRoute(host, tunnel.source.place.route);
    const RouterView* from = domain.Find(tunnel.source.place.route);
    const RouterView* to = domain.Find(tunnel.destination->place.route);
    if (router == nullptr || from == nullptr || to == nullptr) continue;
    const std::int64_t mbps = VideoMbps(*router->adapter(tunnel.source.place.adapter));
    tunnel.consumed = from->depth < to->depth ? BandwidthView{0, mbps} : BandwidthView{mbps, 0};
  }
}

std::vector<LinkBudget> LinkBudgets(const DomainView& domain) {
  std::vector<LinkBudget> budgets;
  for (const RouterView& router : domain.routers) {
    if (!router.link || router.upstreamAdapter == 0 || router.upstreamAdapter > router.adapters.size()) continue;
    LinkBudget budget;
    budget.route = router.route;
    budget.lower = {router.route, router.upstreamAdapter};
    budget.upper = router.adapters[router.upstreamAdapter - 1].remote.value_or(AdapterPlace{});
    const std::int32_t capacity =
        LinkCapacityMbps(static_cast<std::int32_t>(router.link->speedGbps), router.link->bonded);
    budget.capacity = capacity;
    budget.usable = LinkUsableMbps(capacity);
    budget.available = {budget.usable, budget.usable};
    for (const TunnelView& tunnel : domain.tunnels) {
      if (!tunnel.active || !Crosses(tunnel, router)) continue;
      budget.crossing.push_back(&tunnel);
      if (!tunnel.consumed) continue;
      budget.available.up -= tunnel.consumed->up;
      budget.available.down -= tunnel.consumed->down;
    }
    budgets.push_back(std::move(budget));
  }
  return budgets;
}

void AddAvailable(DomainView& domain) {
  for (const LinkBudget& budget : LinkBudgets(domain)) {
    for (RouterView& router : domain.routers) {
      if (router.route == budget.route) router.link->available = budget.available;
    }
  }
}

}  // namespace lab
