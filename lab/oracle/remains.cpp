// One entry for each: rule, how many findings of it a machine may have, reason.
#include "lab/oracle/remains.h"

#include <algorithm>
#include <utility>

namespace lab {

std::vector<FindingWaiver> LostGrants() {
  return {
      {FindingRule::ReservedWithoutVideo, 100,
       "a router that was asked for a DP IN and whose answer got lost keeps it for a tunnel that never came"},
  };
}

std::vector<FindingWaiver> KnownRemains() {
  std::vector<FindingWaiver> remains = {
      {FindingRule::DanglingEntry, 100,
       "an entry whose switching off a fault has prevented stays in the host router, where nobody looks at it again"},
      {FindingRule::PathLost, 100,
       "a path that begins with an entry whose switching off a fault has prevented leads nowhere once its tunnel is "
       "gone"},
      {FindingRule::LostPathUnclaimed, 100,
       "a path that begins with an entry whose switching off a fault has prevented belongs to no tunnel"},
      {FindingRule::HopShared, 100,
       "the hop behind an entry whose switching off a fault has prevented is free for the next path through that link"},
  };
  for (FindingWaiver& grant : LostGrants()) remains.push_back(std::move(grant));
  return remains;
}

Findings Without(const std::vector<FindingWaiver>& waivers, Findings findings) {
  for (const FindingWaiver& waiver : waivers) {
    const auto covered = [&](const Finding& finding) { return finding.rule == waiver.rule; };
    if (static_cast<std::size_t>(std::count_if(findings.begin(), findings.end(), covered)) <= waiver.most) {
      std::erase_if(findings, covered);
    }
  }
  return findings;
}

}  // namespace lab
