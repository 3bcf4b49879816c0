// DisplayPort adapters: the handshake, displays and what they can do, and how a source learns it through a tunnel.
#pragma once
#include <cstdint>
#include <optional>

#include "platform/host/time.h"

namespace sim {

class Adapter;
class Fabric;

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

struct DpBook {
  bool video = false;  // enables
  bool aux = false;
  bool hotPlugDetect = false;
  bool capabilitiesRead = false;
  DpRate local;
  DpRate remote;                     // as the manager wrote it
  std::optional<DpRate> negotiated;  // DP IN: once the capabilities have been read
};

// Both numbers are among those that the registers can tell.
bool DpRateHasCode(const DpRate& rate);
// Bits 14:8 of a capabilities dword; and back. A rate or lane count that has no code is a mistake of the caller.
std::uint32_t EncodeDpRate(const DpRate& rate);
DpRate DecodeDpRate(std::uint32_t dword);
// Mb/s that a link of this rate carries: a fifth goes to the line coding.
unsigned DpMbps(const DpRate& rate);

// Changes the facts of a DP adapter and shows them in its registers; no plug event (Fabric::PlugDisplay gives one).
void SetDpFacts(Adapter& adapter, const DpFacts& facts);
DpBook ReadDp(const Adapter& adapter);

// The DP OUT adapter that a DP IN adapter's video reaches while AUX packets arrive both ways; null when it does not.
Adapter* ReachedDisplayPort(Adapter& dpIn);

// The source knows its display at once, as after a tunnel that firmware has left; nothing when none is reached.
void LearnDisplayAtOnce(Adapter& dpIn);

// --- for the adapter and the fabric
void WatchDisplayPort(Adapter& adapter);
void RestoreDisplayPort(Adapter& adapter);  // shows the facts in registers that have been reset
// Paths, enables or displays have changed: sources whose display is reached now ask for its capabilities, sources whose
// display is gone forget them.
void DisplaysChanged(Fabric& fabric);

}  // namespace sim
