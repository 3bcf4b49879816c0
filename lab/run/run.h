// One run of a scenario from load to unload, judged.
#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "lab/machine/run_report.h"
#include "lab/report/live_events.h"
#include "lab/scenario/scenario.h"

namespace lab {

struct RunOptions {
  std::optional<std::uint64_t> seed;  // none: first come, first served
  std::string faults = "none";
  std::uint64_t stopAtStep = 0;  // the last scheduling choice that is made; 0: no limit
  std::string captureFile;       // pcapng; empty: none
  std::string traceFile;         // timeline; empty: none
  bool explain = false;          // say at the end why each device has, or has not, its tunnel
  bool registers = false;        // read every register before the removal, for the tree
  bool events = true;            // collect what a person would see; campaigns do without
};

// The scheduling that a seed stands for: most seeds choose uniformly, every fourth by priorities with a few drops.
platform::SimulationOptions SimulationFor(const RunOptions& options);

// `live` hears each event as it happens. Never throws for what happens in the run; sim::TopologyError for a machine
// that cannot be built.
RunReport RunScenario(const Scenario& scenario, const RunOptions& options, const LiveEvents::Listener& live = {});

}  // namespace lab
