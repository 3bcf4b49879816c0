#include "platform/host/faults.h"

#include <algorithm>

namespace platform {

FaultPlan::Site& FaultPlan::Look(HashedName name) {
  auto [it, inserted] = sites_.try_emplace(name.hash);
  if (inserted) {
    it->second.name = name.text;
    it->second.random = RandomStream(seed_, name.text);
  }
  return it->second;
}

const FaultPlan::Site* FaultPlan::Known(std::string_view name) const {
  auto it = sites_.find(HashText(name));
  return it == sites_.end() ? nullptr : &it->second;
}

void FaultPlan::FailNth(std::string_view name, std::uint64_t n) {
  Site& site = Find(HashedName(name));
  site.failAt = site.passed + n;
  site.armed = true;
}

void FaultPlan::FailFrom(std::string_view name, std::uint64_t n) {
  Site& site = Find(HashedName(name));
  site.failFrom = site.passed + n;
  site.armed = true;
}

void FaultPlan::FailWithChance(std::string_view name, std::uint32_t numerator, std::uint32_t denominator) {
  Site& site = Find(HashedName(name));
  site.numerator = numerator;
  site.armed = true;
  site.denominator = denominator;
}

void FaultPlan::Heal(std::string_view name) {
  Site& site = Find(HashedName(name));
  site.failAt = site.failFrom = 0;
  site.numerator = 0;
  site.armed = false;
}

void FaultPlan::HealAll() {
  for (auto& [hash, site] : sites_) {
    site.failAt = site.failFrom = 0;
    site.numerator = 0;
    site.armed = false;
  }
}

bool FaultPlan::FiresArmed(Site& site) {
  bool fires = site.passed == site.failAt || (site.failFrom != 0 && site.passed >= site.failFrom);
  if (site.numerator != 0 && site.random.Chance(site.numerator, site.denominator)) fires = true;
  if (fires) ++site.fired, ++fired_;
  return fires;
}

std::uint64_t FaultPlan::FiredCount(std::string_view name) const {
  const Site* site = Known(name);
  return site ? site->fired : 0;
}

std::uint64_t FaultPlan::Passed(std::string_view name) const {
  const Site* site = Known(name);
  return site ? site->passed : 0;
}

std::vector<std::string> FaultPlan::Sites() const {
  std::vector<std::string> names;
  for (const auto& [hash, site] : sites_) names.push_back(site.name);
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace platform
