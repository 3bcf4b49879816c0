// Fault sites: named places in the platform and in the hardware model at which a run may be made to fail.
//
// A site asks Fires(name) each time it is passed. A run arms some sites and leaves the rest off; an unarmed site is
// counted and never fires. Names are stable ("pool.allocate", "WdfIoQueueCreate", "wire.lose"), never line numbers.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/host/random.h"

namespace platform {

class FaultPlan {
 public:
  explicit FaultPlan(std::uint64_t rootSeed) : seed_(rootSeed) {}

  // Fails the n-th passage of the site (1 is the first after this call), once.
  void FailNth(std::string_view site, std::uint64_t n);
  // Fails every passage from the n-th on, until Heal().
  void FailFrom(std::string_view site, std::uint64_t n);
  // Fails `numerator` of `denominator` passages, drawn from the site's own random stream.
  void FailWithChance(std::string_view site, std::uint32_t numerator, std::uint32_t denominator);
  // Disarms one site, or all.
  void Heal(std::string_view site);
  void HealAll();

  // Called at the site: true when it must fail now. A name that is no literal is spelled
  // HashedName(std::string_view(name)).
  [[nodiscard]] bool Fires(HashedName name) {
    Site& site = Find(name);
    ++site.passed;
    if (!site.armed) [[likely]] {
      return false;
    }
    return FiresArmed(site);
  }

  bool Fired() const { return fired_ != 0; }  // has any site fired since construction?
  std::uint64_t FiredCount() const { return fired_; }
  std::uint64_t FiredCount(std::string_view site) const;
  std::uint64_t Passed(std::string_view site) const;  // passages so far
  std::vector<std::string> Sites() const;             // every site passed or armed so far, in name order

 private:
  struct Site {
    std::string name;
    std::uint64_t passed = 0;
    std::uint64_t fired = 0;
    std::uint64_t failAt = 0;    // absolute passage number; 0: not armed
    std::uint64_t failFrom = 0;  // absolute passage number; 0: not armed
    std::uint32_t numerator = 0, denominator = 0;
    bool armed = false;
    RandomStream random;
  };
  Site& Find(HashedName name) {
    Known_& known = known_[name.hash % kKnown];
    if (known.site == nullptr || known.hash != name.hash) [[unlikely]] {
      known = {name.hash, &Look(name)};
    }
    return *known.site;
  }
  Site& Look(HashedName name);
  bool FiresArmed(Site& site);
  const Site* Known(std::string_view name) const;

  std::uint64_t seed_;
  std::uint64_t fired_ = 0;
  std::unordered_map<std::uint64_t, Site> sites_;
  // Sites passed of late, by the low bits of their hash.
  struct Known_ {
    std::uint64_t hash = 0;
    Site* site = nullptr;
  };
  static constexpr std::size_t kKnown = 128;
  Known_ known_[kKnown];
};

}  // namespace platform
