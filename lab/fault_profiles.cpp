// One table: fault, sites, and the range of its strength.
#include "lab/fault_profiles.h"

#include "platform/host/random.h"

namespace lab {
namespace {

struct Fault {
  const char* name;
  std::vector<const char*> sites;
  std::uint32_t strongest;  // fires once in this many passages at most
  std::uint32_t weakest;    // ... and at least
};

const std::vector<Fault>& Faults() {
  static const std::vector<Fault> kFaults = {
      {"lose", {"wire.lose"}, 4, 60},
      {"delay", {"wire.delay"}, 3, 40},
      {"duplicate", {"wire.duplicate"}, 3, 40},
      {"reorder", {"wire.reorder"}, 3, 40},
      {"corrupt", {"wire.corrupt"}, 4, 60},
      {"truncate", {"wire.truncate"}, 4, 60},
      {"wrong-sequence", {"wire.wrong-sequence"}, 4, 60},
      {"wrong-route", {"wire.wrong-route"}, 4, 60},
      {"error-packet", {"wire.error-packet"}, 6, 80},
      {"late", {"wire.late"}, 4, 60},
      {"unsolicited", {"wire.unsolicited"}, 3, 40},
      {"storm", {"wire.storm"}, 8, 80},
      {"memory", {"pool.allocate"}, 10, 200},
      // Routers that drag their feet: a hop that has not drained by this poll may have by the next.
      {"hardware",
       {"path.never-drains", "usb3.no-acknowledge", "dp.no-handshake", "dp.no-capabilities", "router.operation-refused",
        "router.operation-slow", "router.operation-stuck"},
       2,
       30},
  };
  return kFaults;
}

void Arm(const Fault& fault, platform::RandomStream& random, platform::FaultPlan& plan) {
  for (const char* site : fault.sites)
    plan.FailWithChance(site, 1, static_cast<std::uint32_t>(random.Between(fault.strongest, fault.weakest)));
}

}  // namespace

const std::vector<std::string>& FaultProfileNames() {
  static const std::vector<std::string> kNames = [] {
    std::vector<std::string> names = {"none", "all"};
    for (const Fault& fault : Faults()) names.emplace_back(fault.name);
    return names;
  }();
  return kNames;
}

bool ArmFaults(std::string_view profile, std::uint64_t seed, platform::FaultPlan& plan) {
  if (profile == "none") return true;
  platform::RandomStream random(seed, "fault-profile");
  bool known = profile == "all";
  for (const Fault& fault : Faults()) {
    // Always on in every run finds less than some of them on in some runs.
    const bool on = profile == "all" ? random.Chance(1, 3) : profile == fault.name;
    known = known || profile == fault.name;
    if (on) Arm(fault, random, plan);
  }
  return known;
}

}  // namespace lab
