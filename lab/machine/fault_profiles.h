// Faults by name: what `--faults PROFILE` switches on. Which sites are armed, and how strongly, is drawn from the seed.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/faults.h"

namespace lab {

// Draws for each seed some of the faults that asking again makes up for; the last attempt of a request is spared
// (sim/host/control_wire.h), so that the driver has to bring up the whole domain without being healed.
inline constexpr std::string_view kLightFaults = "light";

// "none", one name per fault, kLightFaults, and "heavy", which draws for each seed which of all faults are on at all.
const std::vector<std::string>& FaultProfileNames();

// Arms the profile's sites, the weaker the more `routers` there are; an unknown name arms nothing and gives false.
[[nodiscard]] bool ArmFaults(std::string_view profile, std::uint64_t seed, platform::FaultPlan& plan,
                             std::size_t routers = 0);

}  // namespace lab
