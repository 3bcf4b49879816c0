// What PCIe and USB3 tunnels have in common: a path down and a path up, on hop ID 8 at either end, from a downstream to
// an upstream adapter. PASSIVE_LEVEL, under the domain's path lock.
#pragma once
#include <cstdint>

#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/tunnel_record.h"

inline constexpr std::uint32_t kTwoWayPaths = 2;

// What differs between the paths of the two kinds.
struct TWO_WAY_PATHS {
  USB4_TUNNEL_TYPE Type;
  const char* DownName;
  const char* UpName;
  void (*InitPath)(USB4_PATH* path);
};

// With both paths, inactive; null when one cannot be had.
[[nodiscard]] USB4_TUNNEL* BuildTwoWayTunnel(const TWO_WAY_PATHS& paths, USB4_DOMAIN* owner, const USB4_ENDS& ends);
// The tunnel that is programmed from this downstream adapter, with active paths; null when there is none that is whole,
// and then what there is of it is switched off. The path that leaves the downstream adapter is found first and stands
// at index 1 under the name of the way up, the other one at index 0: the reverse of a tunnel that was built here.
// Nothing but names and diagnostics shows it; whatever acts on a tunnel goes by its end adapters.
[[nodiscard]] USB4_TUNNEL* DiscoverTwoWayTunnel(const TWO_WAY_PATHS& paths, USB4_DOMAIN* owner, USB4_PORT* downstream);
// Tells which of the two paths break off at an entry that is not valid. Discovery deals with them itself.
void TraceBrokenTwoWayPaths(const TWO_WAY_PATHS& paths, USB4_PORT* downstream);
