// One table: fault, sites, and the range of its strength.
#include "lab/machine/fault_profiles.h"

#include "platform/host/random.h"

namespace lab {
namespace {

struct Fault {
  const char* name;
  std::vector<const char*> sites;
  std::uint32_t strongest;  // fires once in this many passages at most
  std::uint32_t weakest;    // ... and at least
  bool light = false;       // no more than a lost packet, which is asked for again
};

const std::vector<Fault>& Faults() {
  static const std::vector<Fault> kFaults = {
      {"lose", {"wire.lose"}, 4, 60, true},
      {"delay", {"wire.delay"}, 3, 40, true},
      {"duplicate", {"wire.duplicate"}, 3, 40},
      {"reorder", {"wire.reorder"}, 3, 40},
      {"corrupt", {"wire.corrupt"}, 4, 60, true},
      {"truncate", {"wire.truncate"}, 4, 60, true},
      {"wrong-sequence", {"wire.wrong-sequence"}, 4, 60, true},
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

// Each lost packet costs 200 ms, and meanwhile routers repeat every event that the driver has not got to: with many of
// both the queue only grows, and a start of forty routers takes minutes.
constexpr std::uint32_t kLightDivisor = 10;
// A tree twice as large takes twice the packets to start, and twice the routers wait for it.
constexpr std::size_t kRoutersPerDivisor = 6;

void Arm(const Fault& fault, std::uint32_t divisor, platform::RandomStream& random, platform::FaultPlan& plan) {
  for (const char* site : fault.sites) {
    plan.FailWithChance(site, 1, divisor * static_cast<std::uint32_t>(random.Between(fault.strongest, fault.weakest)));
  }
}

}  // namespace

const std::vector<std::string>& FaultProfileNames() {
  static const std::vector<std::string> kNames = [] {
    std::vector<std::string> names = {"none", "light", "heavy"};
    for (const Fault& fault : Faults()) names.emplace_back(fault.name);
    return names;
  }();
  return kNames;
}

bool ArmFaults(std::string_view profile, std::uint64_t seed, platform::FaultPlan& plan, std::size_t routers) {
  if (profile == "none") return true;
  platform::RandomStream random(seed, "fault-profile");
  const bool light = profile == kLightFaults, drawn = light || profile == "heavy";
  const std::uint32_t divisor =
      (light ? kLightDivisor : 1) * static_cast<std::uint32_t>(1 + routers / kRoutersPerDivisor);
  bool armed = false;
  do {
    for (const Fault& fault : Faults()) {
      // Always on in every run finds less than some of them on in some runs.
      const bool on = drawn ? random.Chance(1, 3) && (fault.light || !light) : profile == fault.name;
      if (on) Arm(fault, divisor, random, plan);
      armed = armed || on;
    }
  } while (drawn && !armed);
  return armed;
}

}  // namespace lab
