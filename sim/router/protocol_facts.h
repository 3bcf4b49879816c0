// What is physically at a protocol adapter, and DisplayPort rates as the registers write them.
#pragma once
#include <cstdint>
#include <optional>

#include "platform/host/time.h"

namespace sim {

// The hop IDs that a DP adapter uses by itself.
inline constexpr unsigned kAuxHop = 8;
inline constexpr unsigned kVideoHop = 9;
// Of a PCIe or USB3 adapter.
inline constexpr unsigned kTunnelHop = 8;

struct DpRate {
  unsigned mbpsPerLane = 8100;  // 1620, 2700, 5400 or 8100
  unsigned lanes = 4;           // 1, 2 or 4
  friend bool operator==(const DpRate&, const DpRate&) = default;
};

struct Display {
  DpRate most;                               // the best that the display can do
  std::optional<platform::Time> readyAfter;  // from a complete tunnel to its capabilities; none: 5 to 10 ms
  bool answers = true;                       // false: its capabilities never arrive
};

// What is physically at a DP adapter, whatever the registers say; survives resets.
struct DpFacts {
  std::optional<Display> display;           // DP OUT only
  std::optional<DpRate> local;              // the adapter's own limit; none: the model's
  bool refusesHandshake = false;            // the handshake bit never clears
  std::optional<platform::Time> handshake;  // none: drawn
};

struct Usb3Bandwidth {
  unsigned upMbps = 0;
  unsigned downMbps = 0;
};

// What is physically so, whatever the registers say; survives resets.
struct Usb3Facts {
  std::optional<unsigned> scale;           // none: the model's
  std::optional<unsigned> maxRateMbps;     // 10000 or 20000; none: the model's
  std::optional<unsigned> actualRateMbps;  // 10000 or 20000; 0: no link; none: follows the tunnel
  Usb3Bandwidth consumed;
  bool refusesRequests = false;            // the acknowledgement never follows the request
  std::optional<platform::Time> ackDelay;  // none: drawn
};

// Both numbers are among those that the registers can tell.
bool DpRateHasCode(const DpRate& rate);
// Bits 14:8 of a capabilities dword; and back. A rate or lane count that has no code is a mistake of the caller.
std::uint32_t EncodeDpRate(const DpRate& rate);
DpRate DecodeDpRate(std::uint32_t dword);
// Mb/s that a link of this rate carries: a fifth goes to the line coding.
unsigned DpMbps(const DpRate& rate);

}  // namespace sim
