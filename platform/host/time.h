// Virtual time: one signed 64-bit count of 100 ns units for all hosts of a simulation.
#pragma once
#include <cstdint>
#include <limits>

namespace platform {

using Time = std::int64_t;

inline constexpr Time kMicrosecond = 10;
inline constexpr Time kMillisecond = 1000 * kMicrosecond;
inline constexpr Time kSecond = 1000 * kMillisecond;
inline constexpr Time kNever = std::numeric_limits<Time>::max();

}  // namespace platform
