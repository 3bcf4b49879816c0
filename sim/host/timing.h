// Times that the hardware draws: a typical value with first-come scheduling, anything in its range with a seed.
#pragma once
#include <string_view>

#include "platform/host/simulation.h"

namespace sim {

inline constexpr platform::Time kMs = platform::kMillisecond;
inline constexpr platform::Time kUs = platform::kMicrosecond;

// One kind of delay, in units of platform::Time. `stream` names the random stream that it is drawn from.
struct DelayRange {
  platform::HashedName stream;
  platform::Time typical;
  platform::Time low;
  platform::Time high;
};

class Timing {
 public:
  explicit Timing(platform::Simulation& simulation) : simulation_(simulation) {}

  platform::Time Draw(const DelayRange& range) const;
  // A count in low .. high (reads until a bit clears, say).
  unsigned DrawCount(platform::HashedName stream, unsigned typical, unsigned low, unsigned high) const;
  bool seeded() const { return simulation_.options().policy != platform::Policy::FirstCome; }

 private:
  platform::Simulation& simulation_;
};

}  // namespace sim
