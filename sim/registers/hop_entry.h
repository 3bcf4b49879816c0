// The two dwords of a path entry, as the hardware reads them.
#pragma once
#include <cstdint>

namespace sim {

// Hop IDs below this one belong to the hardware on every adapter but a host interface.
inline constexpr unsigned kFirstPathHop = 8;
inline constexpr std::uint32_t kPathValid = 1u << 31;    // of the first dword
inline constexpr std::uint32_t kPathPending = 1u << 28;  // of the second dword

struct PathEntry {
  std::uint32_t word0 = 0;
  std::uint32_t word1 = 0;

  bool valid() const { return (word0 & kPathValid) != 0; }
  unsigned outHop() const { return word0 & 0x7FF; }
  unsigned outAdapter() const { return (word0 >> 11) & 0x3F; }
  unsigned credits() const { return (word0 >> 17) & 0xFF; }
  bool drops() const { return (word1 & 1u << 11) != 0; }
  unsigned counter() const { return (word1 >> 12) & 0x7FF; }
  bool counts() const { return (word1 & 1u << 23) != 0; }
  bool ingressFlowControl() const { return (word1 & 1u << 24) != 0; }
  bool egressFlowControl() const { return (word1 & 1u << 25) != 0; }
  bool ingressSharedBuffering() const { return (word1 & 1u << 26) != 0; }
};

}  // namespace sim
