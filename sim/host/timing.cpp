// Times that the hardware draws.
#include "sim/host/timing.h"

namespace sim {

platform::Time Timing::Draw(const DelayRange& range) const {
  if (!seeded()) return range.typical;
  return simulation_.Random(range.stream).Between(range.low, range.high);
}

unsigned Timing::DrawCount(platform::HashedName stream, unsigned typical, unsigned low, unsigned high) const {
  if (!seeded()) return typical;
  return static_cast<unsigned>(simulation_.Random(stream).Between(low, high));
}

}  // namespace sim
