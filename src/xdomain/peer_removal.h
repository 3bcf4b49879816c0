// Taking a peer away. PASSIVE_LEVEL.
//
// KivUsb4XdomainRemove, declared with what topology needs from this room, ends the peer: its work, its data path, its
// network device, its entry in the device list, its place at the adapter and the device. Nothing when another flow is
// at it. It waits for the peer's work, so that work cannot call it.
#pragma once
#include <ntddk.h>

#include "include/peer_record.h"

// The two halves of a removal, for who ends networking in another way. From ClosePeer on no work of the peer is queued;
// false when another flow has begun. LetGoOfPeer does the rest once the work has ended, and gives up the attachment's
// reference.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] bool ClosePeer(USB4_XDOMAIN* xdomain);
_IRQL_requires_max_(PASSIVE_LEVEL) void LetGoOfPeer(USB4_XDOMAIN* xdomain);
// Has the peer removed soon, by work of the device that nothing waits for: for the peer's own work.
_IRQL_requires_max_(DISPATCH_LEVEL) void RemovePeerLater(USB4_XDOMAIN* xdomain);
