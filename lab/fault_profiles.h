// Faults by name: what `--faults PROFILE` switches on. Which sites are armed, and how strongly, is drawn from the seed.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/faults.h"

namespace lab {

// "none", one name per fault, and "all", which draws for each seed which faults are on at all.
const std::vector<std::string>& FaultProfileNames();

// Arms the profile's sites; an unknown name arms nothing and gives false.
[[nodiscard]] bool ArmFaults(std::string_view profile, std::uint64_t seed, platform::FaultPlan& plan);

}  // namespace lab
