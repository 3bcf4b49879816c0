// DisplayPort adapters: the handshake, displays and what they can do, and how a source learns it through a tunnel.
#pragma once
#include <optional>

#include "sim/router/protocol_facts.h"

namespace sim {

class Adapter;
class Surroundings;

struct DpBook {
  bool video = false;  // enables
  bool aux = false;
  bool hotPlugDetect = false;
  bool capabilitiesRead = false;
  DpRate local;
  DpRate remote;                     // as the manager wrote it
  std::optional<DpRate> negotiated;  // DP IN: once the capabilities have been read
};

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
void DisplaysChanged(Surroundings& fabric);

}  // namespace sim
