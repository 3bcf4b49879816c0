// Paths as firmware programs them: the way between two routers, and the entries along it.
#pragma once
#include <cstdint>
#include <vector>

#include "sim/dataplane/path_probe.h"

namespace sim {

// One cable on the way: out of one lane adapter, into the one behind the cable.
struct FirmwareCrossing {
  Adapter* out = nullptr;
  Adapter* in = nullptr;
};
using FirmwareWay = std::vector<FirmwareCrossing>;  // empty within one router

enum class FirmwarePathStyle : std::uint8_t { Data, Video, Aux };

struct FirmwarePath {
  Adapter& from;
  unsigned fromHop;
  Adapter& to;
  unsigned toHop;
  FirmwarePathStyle style = FirmwarePathStyle::Data;
  unsigned roundTrips = 0;  // over the first cable, before it goes on
};

// The shortest way through the tree. `lane` is taken where the lanes of a cable are not bonded and that lane is up.
// Throws TopologyError when no cable leads there.
FirmwareWay FindWay(const Adapter& from, const Adapter& to, unsigned lane);
FirmwareWay Reversed(const FirmwareWay& way);

// Programs the entries with the lowest free hop IDs, and set-aside buffers for video; gives the last entry. Throws
// TopologyError when a cable has no free hop ID left.
PathHop ProgramPath(const FirmwarePath& path, const FirmwareWay& way);
// Programs a path that comes back to its first cable for ever. Needs a way with a cable.
void ProgramLoop(const FirmwarePath& path, const FirmwareWay& way);

}  // namespace sim
