// The size of a page of the simulated machine.
#pragma once
#include <cstddef>

namespace platform {

inline constexpr std::size_t kPageBytes = 4096;

}  // namespace platform
