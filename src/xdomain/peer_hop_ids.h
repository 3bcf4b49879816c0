// Hop IDs of the paths to a peer, by the tables in its record. Any IRQL up to DISPATCH_LEVEL.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/peer_record.h"

// Reserves the first free ID from `wanted` up, or from 8 for a negative one: the ID; -22 for one below 8 or above the
// limit; -1 when none is free. IDs above 43 are never given.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] std::int32_t
    KivUsb4XdomainAllocInHopid(USB4_XDOMAIN* xdomain, std::int32_t wanted);
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] std::int32_t
    KivUsb4XdomainAllocOutHopid(USB4_XDOMAIN* xdomain, std::int32_t wanted);
// Releases the ID and all above it: what a peer got after it goes with it.
_IRQL_requires_max_(DISPATCH_LEVEL) void KivUsb4XdomainReleaseInHopid(USB4_XDOMAIN* xdomain, std::int32_t hopId);
_IRQL_requires_max_(DISPATCH_LEVEL) void KivUsb4XdomainReleaseOutHopid(USB4_XDOMAIN* xdomain, std::int32_t hopId);
