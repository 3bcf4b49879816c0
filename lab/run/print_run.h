// A run for people: events as they happen, then the tree, the leftovers and the verdict.
#pragma once
#include "lab/input/console.h"
#include "lab/run/run.h"

namespace lab {

void PrintEvent(const Console& console, const LiveEvent& event);
// The end of a run. `replay` is the command that repeats it.
void PrintReport(const Console& console, const RunReport& report, unsigned verbosity, const std::string& replay);
// `./usb4lab run FILE --seed N --faults PROFILE --stop-at STEP`, as a shell takes it; without a step it runs to its
// end.
std::string ReplayCommand(const std::string& scenario, const RunOptions& options, std::uint64_t step = 0);

}  // namespace lab
