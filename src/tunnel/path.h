// Paths: building them, programming them into the routers, and finding those that somebody else has programmed.
// PASSIVE_LEVEL, under the domain's path lock.
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

// Programs counters, credits and entries, each from the last hop to the first, so that a hop is valid only when all
// beyond it are. -1 for an active path; else the error of the first write that fails, after what was written is undone
// (cleared counters stay cleared).
_Requires_lock_held_(path->Owner->PathLock) [[nodiscard]] KIV_RESULT KivUsb4PathActivate(USB4_PATH* path);
// Nothing happens to an inactive path; a hop that fails is traced and passed over.
_Requires_lock_held_(path->Owner->PathLock) void KivUsb4PathDeactivate(USB4_PATH* path);

// Switches one entry off and waits until the router has no packet of it left: 0 also for one that is not valid; -1
// when the router stays busy for 100,001 polls of 100 ms; the error of a failed access.
[[nodiscard]] KIV_RESULT __KivUsb4PathDeactivateHop(const USB4_PORT* adapter, std::uint32_t inputHopId,
                                                    bool clearFlowControl);
// The hops from index `firstHop` to the last; failures are traced.
void KivUsb4PathDeactivateHopsFrom(const USB4_PATH* path, std::uint32_t firstHop);
// Takes the path's credits off the hops from index `firstHop` to the last; failures are traced.
void __KivUsb4PathDeallocateNfc(const USB4_PATH* path, std::uint32_t firstHop);
[[nodiscard]] KIV_RESULT KivUsb4PathClearCounter(const USB4_PORT* adapter, std::uint32_t counterIndex);

// A chain of programmed entries to look for. A source hop ID that is not known is looked up by the destination.
struct USB4_PATH_SEARCH {
  USB4_PATH_END Source;
  USB4_PATH_END Destination;
  const char* Name;
};

// An active record of the chain that starts at the source, at most 14 hops of it; null when it has no hop, when it
// cannot be read, when one of its hop IDs is reserved already, or without memory. `lastAdapter`, if given, becomes the
// adapter through which the last hop read leaves its router, also when the result is null; it is left alone when there
// is no such hop. The record knows adapters and hop IDs; credits, masks, priority and weight stay 0.
[[nodiscard]] USB4_PATH* KivUsb4PathDiscover(const USB4_PATH_SEARCH& search, USB4_PORT** lastAdapter);
// The adapter where the chain from `source` ends, if it ends with the hop ID `destinationHopId`; null otherwise and
// when an entry on the way is not valid or cannot be read.
[[nodiscard]] USB4_PORT* KivUsb4PathFindDstPort(const USB4_PATH_END& source, std::int32_t destinationHopId);
// The lowest hop ID from 8 up at which a chain from `source` to `destination` starts; 0 when there is none.
[[nodiscard]] std::int32_t KivUsb4PathFindSrcHopid(USB4_PORT* source, const USB4_PATH_END& destination);
// Whether the chain breaks off at an entry that is not valid. False when it ends without one, when it cannot be read,
// and when its start is not found. `lastAdapter` as above.
[[nodiscard]] bool KivUsb4DiscoverInCompletePath(const USB4_PATH_SEARCH& search, USB4_PORT** lastAdapter);
