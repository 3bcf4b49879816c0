// Process-wide: a test program runs one body at a time.
#include "tests/support/seeds.h"

#include <cstdio>

namespace tests {
namespace {

std::uint64_t firstSeed = 1, lastSeed = 3;
std::optional<std::uint64_t> currentSeed;

}  // namespace

void SetSeedRange(std::uint64_t first, std::uint64_t last) {
  firstSeed = first;
  lastSeed = last;
}

bool ParseSeedRange(const std::string& text) {
  unsigned long long first = 0, last = 0;
  int used = 0;
  if (std::sscanf(text.c_str(), "%llu..%llu%n", &first, &last, &used) != 2) return false;
  if (static_cast<std::size_t>(used) != text.size() || first > last) return false;
  SetSeedRange(first, last);
  return true;
}

std::vector<std::optional<std::uint64_t>> SeedsToRun() {
  std::vector<std::optional<std::uint64_t>> seeds = {std::nullopt};
  for (std::uint64_t seed = firstSeed; seed <= lastSeed; ++seed) seeds.emplace_back(seed);
  return seeds;
}

std::optional<std::uint64_t> CurrentSeed() {
  return currentSeed;
}

void SetCurrentSeed(std::optional<std::uint64_t> seed) {
  currentSeed = seed;
}

}  // namespace tests
