// The registers of each capability kind: what a list entry of a model becomes in adapter or router space.
#pragma once
#include <vector>

#include "sim/registers/register_space.h"
#include "sim/router/router_model.h"

namespace sim {

class Adapter;

// Capability identifiers.
inline constexpr unsigned kCapLane = 1;
inline constexpr unsigned kCapTmu = 3;
inline constexpr unsigned kCapProtocol = 4;  // adapter space
inline constexpr unsigned kCapVendor = 5;
inline constexpr unsigned kCapUsb4Port = 6;
inline constexpr unsigned kVsecPlugEvents = 1;
inline constexpr unsigned kVsecLinkController = 6;

// Defines the adapter's capability list and stores the offsets of the kinds it knows in the adapter.
void DefineAdapterCapabilities(Adapter& adapter, const RouterModel& model);

struct RouterCapabilities {
  unsigned tmu = 0;
  unsigned plugEvents = 0;
  unsigned linkController = 0;
};
// Defines the router's capability list; offsets are 0 for the kinds it has not.
RouterCapabilities DefineRouterCapabilities(ConfigSpace& space, const RouterModel& model);

}  // namespace sim
