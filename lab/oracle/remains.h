// What the oracle finds rightly and the driver leaves behind once a fault has struck: each entry is a line of
// docs/known-behaviour.md.
#pragma once
#include <cstddef>
#include <string>
#include <vector>

#include "lab/oracle/finding.h"

namespace lab {

struct FindingWaiver {
  FindingRule rule;
  std::size_t most;  // findings of the rule in one machine
  std::string reason;
};

// What a lost answer leaves in a host router until it is reset, although the question is asked again: the first one has
// been granted, so the second is not.
std::vector<FindingWaiver> LostGrants();

// That, and what an access that failed for good leaves until its routers are reset.
std::vector<FindingWaiver> KnownRemains();

// What the oracle finds, without what these waivers cover. Findings of a rule beyond its bound are all kept.
Findings Without(const std::vector<FindingWaiver>& waivers, Findings findings);

}  // namespace lab
