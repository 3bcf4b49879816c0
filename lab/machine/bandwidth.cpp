// Charges come from the fabric's registers, ways from the tunnels' hops.
#include "lab/machine/bandwidth.h"

#include <algorithm>

#include "sim/dataplane/display_adapter.h"

namespace lab {
namespace {

constexpr std::int64_t kMbpsPerGbps = 1000;

// A USB4 router's DP IN knows what was agreed on only once it has read the display's capabilities; an older one takes
// what its manager wrote.
std::int64_t VideoMbps(const sim::Adapter& dpIn) {
  const sim::DpBook book = sim::ReadDp(dpIn);
  if (!dpIn.router().model().usb4()) return sim::DpMbps(book.remote);
  return book.negotiated ? sim::DpMbps(*book.negotiated) : 0;
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

void AddConsumption(DomainView& domain, const sim::Fabric& fabric, const sim::Router& host) {
  for (TunnelView& tunnel : domain.tunnels) {
    if (tunnel.allocated) tunnel.consumed = {tunnel.allocated->up * 4 / 3, tunnel.allocated->down * 4 / 3};
    if (tunnel.kind != TunnelKind::Dp || !tunnel.destination) continue;
    const sim::Router* router = fabric.AtRoute(host, tunnel.source.place.route);
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
    budget.capacity = kMbpsPerGbps * router.link->speedGbps * (router.link->bonded ? 2 : 1);
    budget.usable = budget.capacity - budget.capacity / 10;
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
  for (const LinkBudget& budget : LinkBudgets(domain))
    for (RouterView& router : domain.routers)
      if (router.route == budget.route) router.link->available = budget.available;
}

}  // namespace lab
