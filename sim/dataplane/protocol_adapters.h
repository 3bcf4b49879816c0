// What the protocol adapters do by themselves, by adapter type.
#pragma once
#include <cstdint>
#include <functional>

#include "platform/host/time.h"
#include "sim/registers/register_space.h"

namespace sim {

class Adapter;

// Starts listening to the adapter's protocol capability; other adapter types do nothing.
void WatchProtocolAdapter(Adapter& adapter);
// Shows what is physically there in registers that have been reset.
void RestoreProtocolAdapter(Adapter& adapter);
// The adapter passes packets of its protocol; of a DP adapter either its video or its AUX channel.
bool SwitchedOn(const Adapter& adapter);

// At a write of the dword that switches it. An adapter that is on before a path begins at it drops what its device
// sends, so that switching it on is a manager's mistake; not after a fault, which may have kept the path from it.
void CheckSwitchedOn(Adapter& adapter, const ConfigSpace::Access& access);

// Runs `action` later unless the adapter's router has been reset meanwhile.
void Later(Adapter& adapter, platform::Time delay, const char* name, std::function<void()> action);

}  // namespace sim
