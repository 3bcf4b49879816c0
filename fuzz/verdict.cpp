// How an input ends.
#include "fuzz/verdict.h"

#include <cstdio>
#include <cstdlib>

namespace fuzz {

std::string WhyStopped(platform::Simulation& simulation) {
  std::string why = simulation.HangReport();
  for (const platform::Violation& violation : simulation.violations()) {
    why += std::string(platform::RuleName(violation.rule)) + " in " + violation.call + ": " + violation.detail + "; ";
  }
  return "stopped: " + why;
}

int EndInput(const std::string& broken) {
  if (broken.empty()) return 0;
  std::fprintf(stderr, "%s\n", broken.c_str());
  std::abort();
}

}  // namespace fuzz
