// How an input ends, for every fuzzer.
#pragma once
#include <string>

#include "platform/host/simulation.h"

namespace fuzz {

// A domain that is not quiet by then never will be.
inline constexpr platform::Time kLongest = 3600 * platform::kSecond;

// One line about a run that the verifier has stopped.
std::string WhyStopped(platform::Simulation& simulation);
// Prints what is broken and aborts, which is how libFuzzer learns of it; 0 when nothing is.
int EndInput(const std::string& broken);

}  // namespace fuzz
