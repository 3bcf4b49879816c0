// DisplayPort link rates, lanes and bandwidths. Pure arithmetic; any IRQL.
//
// `caps` is a word in the layout that local, remote and negotiated capabilities of a DP adapter share.
#pragma once
#include <cstdint>

#include "include/status.h"

struct DP_LINK_MODE {
  std::uint32_t RateMbps;  // per lane: 1620, 2700, 5400 or 8100; 0: not known
  std::uint32_t Lanes;     // 1, 2 or 4; 0: not known
};

// Mb/s of payload: the line coding costs a fifth.
[[nodiscard]] std::uint32_t KivUsb4DpBandwidth(const DP_LINK_MODE& mode);

// 0 for a code that means nothing.
[[nodiscard]] std::uint32_t KivUsb4DpCapRate(std::uint32_t caps);
[[nodiscard]] std::uint32_t KivUsb4DpCapLanes(std::uint32_t caps);
// `caps` with the field replaced; a value that has no code gets the smallest one's.
[[nodiscard]] std::uint32_t KivUsb4DpCapSetRate(std::uint32_t caps, std::uint32_t rateMbps);
[[nodiscard]] std::uint32_t KivUsb4DpCapSetLanes(std::uint32_t caps, std::uint32_t lanes);

[[nodiscard]] DP_LINK_MODE DpCapMode(std::uint32_t caps);

struct DP_LIMITS {
  std::uint32_t MaximumMbps;
  DP_LINK_MODE DpIn;
  DP_LINK_MODE DpOut;
};

// The widest mode within all three limits; -1 when none is small enough.
[[nodiscard]] KIV_RESULT KivUsb4DpReduceBandwidth(const DP_LIMITS& limits, DP_LINK_MODE& chosen);
