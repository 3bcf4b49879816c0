// A peer host's record: making it, finding it, holding it, and taking it away. PASSIVE_LEVEL unless it says otherwise.
//
// The first reference is the attachment's: it is given up when the peer is removed, once, whoever does it. A device has
// one peer in use; one that was found before it stays with its adapter until that lets go.
#pragma once
#include <ntddk.h>

#include "include/config_space.h"
#include "include/device_context.h"
#include "include/domain_record.h"
#include "include/peer_record.h"

// Makes a peer behind an adapter of `parent`, lists it and makes it the device's. Null without an own UUID or a device
// context, and without memory. `peerUuid` is null while it is not known. The caller attaches it. Under the run lock.
_IRQL_requires_max_(PASSIVE_LEVEL)
    [[nodiscard]] USB4_XDOMAIN* KivUsb4XdomainAlloc(USB4_DOMAIN* domain, USB4_SWITCH* parent, USB4_ROUTE route,
                                                    const std::uint8_t* ownUuid, const std::uint8_t* peerUuid);
// The peer of this route, referenced, or null. Searches all adapters from the host router down.
_IRQL_requires_max_(DISPATCH_LEVEL)
    [[nodiscard]] USB4_XDOMAIN* KivUsb4XdomainFind(USB4_DOMAIN* domain, USB4_ROUTE route);
// The device's peer, referenced, or null.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] USB4_XDOMAIN* ReferenceDevicePeer(DEVICE_EXTENSION* context);
// The peer and the adapter come to know each other. Under the run lock.
_IRQL_requires_max_(PASSIVE_LEVEL) void AttachPeer(USB4_XDOMAIN* xdomain, USB4_PORT* adapter);
// The adapter forgets its peer.
_IRQL_requires_max_(DISPATCH_LEVEL) void DetachPeer(USB4_PORT* adapter);

// The device forgets the peer, if it is the one in use, and the peer's entry leaves the device list.
_IRQL_requires_max_(PASSIVE_LEVEL)
    _Requires_lock_held_(context->XDomainMutex) void LeaveDevice(DEVICE_EXTENSION* context, USB4_XDOMAIN* xdomain);
