// DisplayPort modes.
#include "tunnel/dp_capabilities.h"

#include "include/registers.h"
#include "include/trace.h"

namespace {

using RateCode = DpAdpCs4::RateCode;
using LaneCode = DpAdpCs4::LaneCode;

// By code.
constexpr std::uint32_t kRates[] = {1620, 2700, 5400, 8100};
constexpr std::uint32_t kLanes[] = {1, 2, 4};

template <std::uint32_t Count>
std::uint32_t ValueOf(const std::uint32_t (&values)[Count], std::uint32_t code) {
  return code < Count ? values[code] : 0;
}

template <std::uint32_t Count>
std::uint32_t CodeOf(const std::uint32_t (&values)[Count], std::uint32_t value) {
  for (std::uint32_t code = 0; code < Count; ++code) {
    if (values[code] == value) return code;
  }
  return 0;
}

// From the most bandwidth to the least. Of two modes with the same bandwidth the one that stands first is preferred:
// more lanes at a lower rate above, fewer lanes at a higher rate further down. Displays have been brought up in this
// order, so it stays.
constexpr DP_LINK_MODE kReductions[] = {{8100, 4}, {5400, 4}, {8100, 2}, {2700, 4}, {5400, 2}, {8100, 1},
                                        {1620, 4}, {5400, 1}, {2700, 2}, {1620, 2}, {2700, 1}, {1620, 1}};

bool Within(const DP_LINK_MODE& mode, const DP_LINK_MODE& limit) {
  return mode.RateMbps <= limit.RateMbps && mode.Lanes <= limit.Lanes;
}

}  // namespace

std::uint32_t KivUsb4DpBandwidth(const DP_LINK_MODE& mode) {
  return mode.RateMbps * mode.Lanes * 8 / 10;
}

std::uint32_t KivUsb4DpCapRate(std::uint32_t caps) {
  return ValueOf(kRates, RateCode::Get(caps));
}

std::uint32_t KivUsb4DpCapLanes(std::uint32_t caps) {
  return ValueOf(kLanes, LaneCode::Get(caps));
}

std::uint32_t KivUsb4DpCapSetRate(std::uint32_t caps, std::uint32_t rateMbps) {
  return RateCode::Put(caps, CodeOf(kRates, rateMbps));
}

std::uint32_t KivUsb4DpCapSetLanes(std::uint32_t caps, std::uint32_t lanes) {
  return LaneCode::Put(caps, CodeOf(kLanes, lanes));
}

DP_LINK_MODE DpCapMode(std::uint32_t caps) {
  return {KivUsb4DpCapRate(caps), KivUsb4DpCapLanes(caps)};
}

KIV_RESULT KivUsb4DpReduceBandwidth(const DP_LIMITS& limits, DP_LINK_MODE& chosen) {
  for (const DP_LINK_MODE& mode : kReductions) {
    if (!Within(mode, limits.DpIn) || !Within(mode, limits.DpOut)) continue;
    if (KivUsb4DpBandwidth(mode) > limits.MaximumMbps) continue;
    chosen = mode;
    return kKivOk;
  }
  TraceError("no mode is small enough", "maximum", limits.MaximumMbps);
  return kKivFailed;
}
