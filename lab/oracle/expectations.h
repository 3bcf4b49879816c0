// A scenario's expectation against the machine as it is now.
#pragma once
#include <string>
#include <vector>

#include "lab/machine/machine.h"
#include "lab/scenario/scenario.h"

namespace lab {

// What does not hold, one line each; empty when all does. `afterFaults`: how the first start went is not asked.
std::vector<std::string> Mismatches(const Expectation& expectation, Machine& machine, bool afterFaults);

}  // namespace lab
