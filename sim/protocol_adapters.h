// What the protocol adapters do by themselves: handshakes of USB3 and DisplayPort adapters, displays that appear and
// go.
#pragma once

namespace sim {

class Adapter;

// Starts listening to the adapter's protocol capability; other adapter types do nothing.
void WatchProtocolAdapter(Adapter& adapter);
// A display is attached to a DP OUT adapter, or not.
void ShowDisplay(Adapter& adapter, bool attached);
// Shows it again in registers that have been reset.
void RestoreDisplay(Adapter& adapter);

}  // namespace sim
