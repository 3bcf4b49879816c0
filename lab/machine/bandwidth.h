// Who holds how much of which link: what tunnels are charged for, and what is left.
#pragma once
#include <string>
#include <vector>

#include "lab/machine/domain_view.h"
#include "sim/router/router.h"

namespace lab {

// Fills in what each tunnel of `domain`, which hangs on `host`, is charged for, as its adapters in the fabric say: a
// grant of USB3 with a third more for what the link carries besides; of a display what its source and it have agreed
// on, in the direction in which the picture goes. Other tunnels are charged for nothing.
void AddConsumption(DomainView& domain, const sim::Router& host);
// Fills in what each link has left.
void AddAvailable(DomainView& domain);

// The link above one router.
struct LinkBudget {
  std::uint64_t route = 0;                  // of the router
  AdapterPlace upper, lower;                // first lane adapters at its ends
  std::int64_t capacity = 0;                // Mb/s in each direction
  std::int64_t usable = 0;                  // a tenth is no tunnel's
  std::vector<const TunnelView*> crossing;  // in list order
  BandwidthView available;                  // below 0 where more was given than there is
};

// Routers in list order; the views of `domain` are borrowed.
std::vector<LinkBudget> LinkBudgets(const DomainView& domain);

}  // namespace lab
