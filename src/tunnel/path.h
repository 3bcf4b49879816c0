// Path records, and the way between two adapters. PASSIVE_LEVEL, under the domain's path lock.
//
// A path record is made inactive by KivUsb4PathAlloc (hop IDs reserved, nothing written) or active by
// KivUsb4PathDiscover (the hardware carries it already); KivUsb4PathActivate and KivUsb4PathDeactivate switch it;
// KivUsb4PathFree ends it.
#pragma once
#include <cstdint>

#include "include/path_record.h"
#include "include/router_record.h"
#include "include/status.h"

struct USB4_PATH_END {
  USB4_PORT* Adapter;
  std::int32_t HopId;  // negative: not known
};

struct USB4_PATH_REQUEST {
  USB4_PATH_END Source;
  USB4_PATH_END Destination;
  std::uint32_t LinkNumber;  // the lane, 0 or 1, that the path takes on links whose lanes are not bonded
  const char* Name;          // a constant text
};

// The adapter after `previous` (null: before the first) on the way from source to destination; null at the end. The way
// alternates between the adapter through which it enters a router and the one through which it leaves it.
[[nodiscard]] USB4_PORT* KivUsb4NextPortOnPath(const USB4_ENDS& ends, const USB4_PORT* previous);

// Null when no way leads from source to destination, a hop ID is taken, or there is no memory.
[[nodiscard]] USB4_PATH* KivUsb4PathAlloc(USB4_DOMAIN* owner, const USB4_PATH_REQUEST& request);
// Gives the hop IDs back and frees the record; the hardware is not touched. Null is ignored.
void KivUsb4PathFree(USB4_PATH* path);
