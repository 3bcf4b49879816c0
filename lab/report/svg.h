// The picture of domains: routers as boxes in tree layout, links with speed and width, each tunnel drawn over every
// link that it crosses. Our own SVG, byte for byte the same for the same domains.
#pragma once
#include <string>
#include <vector>

#include "lab/machine/domain_view.h"

namespace lab {

// Each drawn piece of a tunnel is a line with data-tunnel, and data-link when it lies on a link.
std::string FormatSvg(const std::vector<DomainView>& domains);

}  // namespace lab
