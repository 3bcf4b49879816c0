// The domain as a tree of text, one router a line, as `lsusb -t` shows a bus.
#pragma once
#include <string>

#include "lab/domain_view.h"

namespace lab {

// Each line ends with a newline. `adapters`: every adapter below its router.
std::string FormatTree(const DomainView& domain, bool adapters);

}  // namespace lab
