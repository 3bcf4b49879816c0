// Networking over the link to a peer.
#pragma once
#include <ntddk.h>

#include "include/device_context.h"
#include "include/peer_record.h"

// Ends the data path of a peer and closes its rings; with `sendLogout` the peer is told. Nothing for a peer without a
// network context.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4NetTearDown(DEVICE_EXTENSION* context, USB4_XDOMAIN* xdomain,
                                                           bool sendLogout);
