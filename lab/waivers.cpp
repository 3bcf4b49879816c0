// One entry for each: rule, where, exact bound, reason. An entry that no test hits, or that is hit beyond its bound,
// fails.
#include "lab/waivers.h"

namespace lab {

std::vector<platform::Waiver> KnownWaivers() {
  return {
      {platform::Rule::StallTooLong, "KeStallExecutionProcessor", 3100,
       "the power-on sequence of function 8086:9A1B polls its ready bit with busy waits of 3100 us, as that hardware "
       "wants",
       0},
      {platform::Rule::CommonBufferLeak, "outlive their DMA enabler", 2,
       "the descriptor tables of the two control rings belong to the DMA enabler and go with it", 0},
  };
}

}  // namespace lab
