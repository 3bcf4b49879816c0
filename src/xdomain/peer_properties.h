// What the two hosts of a link tell each other about themselves. PASSIVE_LEVEL.
#pragma once
#include <ntddk.h>

#include "include/peer_record.h"
#include "include/property.h"
#include "include/status.h"

// Formats the host's properties for this peer, when there is no block yet or the host's generation has moved past it.
// When that fails the peer keeps its block. Takes the peer's lock.
_IRQL_requires_max_(PASSIVE_LEVEL) void UpdatePropertyBlock(USB4_XDOMAIN* xdomain);
// Takes IDs, names and hop limit of the peer from its root directory: 0, -22 without the two IDs, -12 without memory
// for a name.
_IRQL_requires_max_(PASSIVE_LEVEL) _Requires_lock_held_(xdomain->Lock) [[nodiscard]] KIV_RESULT
    KivUsb4XdomainParseProperties(USB4_XDOMAIN* xdomain, USB4_PROPERTY_DIR* root);
