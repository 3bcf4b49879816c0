// A scenario for each seed: a tree of routers, what hangs on it, what happens to it, and what must be true in the end.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>

namespace lab {

// Where a scenario file is asked for, this name stands for one that is generated from the seed of the run.
inline constexpr std::string_view kGenerated = "generated";

// The scenario file of a seed, as text; the same seed gives the same text.
std::string GenerateScenario(std::uint64_t seed);

}  // namespace lab
