// Finding paths that somebody else has programmed. PASSIVE_LEVEL, under the domain's path lock.
#pragma once
#include <cstdint>

#include "include/path_record.h"
#include "include/router_record.h"
#include "include/status.h"
#include "tunnel/path.h"

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
