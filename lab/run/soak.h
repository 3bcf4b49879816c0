// Many seeds of scenarios: progress, and each failing seed as the command that replays it.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lab/input/console.h"
#include "lab/run/run.h"

namespace lab {

struct SoakOptions {
  std::vector<std::string> scenarios;
  std::uint64_t firstSeed = 1, lastSeed = 100;
  unsigned shard = 1, shards = 1;  // this process takes every shards-th run
  std::vector<std::string> faults{"none"};
  std::string stateFile;  // where the campaign stands, to go on after an interruption; empty: nowhere
};

// "A..B" with A <= B.
bool ParseSeedRange(const std::string& text, std::uint64_t& first, std::uint64_t& last);
// "I/N" with 1 <= I <= N.
bool ParseShard(const std::string& text, unsigned& shard, unsigned& shards);

// Held when every run held; else the code of the first that did not. InputError for a scenario that cannot be read;
// Usage for a state file of another campaign, InputOutput for one that cannot be written.
ExitCode Soak(const SoakOptions& options, const Console& console);

}  // namespace lab
