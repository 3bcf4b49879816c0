// Every test runs first-come and with seeds: which ones, and which of them runs now.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tests {

// First-come, then the seeds of --seeds A..B (1..3 unless said otherwise).
std::vector<std::optional<std::uint64_t>> SeedsToRun();
void SetSeedRange(std::uint64_t first, std::uint64_t last);
// "A..B" with A <= B; false for anything else.
[[nodiscard]] bool ParseSeedRange(const std::string& text);

// The seed of the body that runs now; none: first-come.
std::optional<std::uint64_t> CurrentSeed();
void SetCurrentSeed(std::optional<std::uint64_t> seed);

}  // namespace tests
