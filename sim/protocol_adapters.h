// What the protocol adapters do by themselves, by adapter type.
#pragma once
#include <cstdint>
#include <functional>

#include "platform/host/time.h"

namespace sim {

class Adapter;

// Starts listening to the adapter's protocol capability; other adapter types do nothing.
void WatchProtocolAdapter(Adapter& adapter);
// Shows what is physically there in registers that have been reset.
void RestoreProtocolAdapter(Adapter& adapter);
// The adapter passes packets of its protocol; of a DP adapter either its video or its AUX channel.
bool SwitchedOn(const Adapter& adapter);

// Runs `action` later unless the adapter's router has been reset meanwhile.
void Later(Adapter& adapter, platform::Time delay, const char* name, std::function<void()> action);

}  // namespace sim
