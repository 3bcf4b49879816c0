// Why each display, PCIe and USB3 device of a domain has its tunnel and its bandwidth, or has not; and why each peer
// has the lanes that it has.
#pragma once
#include <string>

#include "lab/machine/machine.h"

namespace lab {

// Several lines: the devices in route order, then each link's budget and who holds what, then the peers. `domain` is
// the controller's domain as it is now.
std::string Explain(const DomainView& domain, Machine& machine, Place place);

}  // namespace lab
