// The domain as text, in the manner of `lsusb -t`.
#pragma once
#include <string>

#include "lab/machine/domain_view.h"

namespace lab {

// "USB3 0:4 -> 1:16, active, allocated 9000/9000, consumed 12000/12000 Mb/s up/down".
std::string TunnelLine(const TunnelView& tunnel);
// "1 Kiverra Systems Inc. LAPTOP, 40G = 2 x 20G, peer host, ENUMERATED, hops 22/11": highest hop IDs from and to it.
std::string PeerLine(const PeerView& peer);
// "40G = 2 x 20G".
std::string LinkText(const LinkView& link);

// `verbosity` 0: one line a router; 1: with its adapters; 2: with the registers that the view holds.
std::string FormatTree(const DomainView& domain, unsigned verbosity);

}  // namespace lab
