// Peer hosts as the connection manager sees them: found by a scan, unplugged, ended before a suspend. PASSIVE_LEVEL,
// under the domain's run lock.
#pragma once
#include "include/domain_record.h"
#include "include/peer_record.h"
#include "include/router_record.h"

// Another host answers behind the adapter: makes its record and starts the discovery, unless there is one for the route
// already.
void KivUsb4ScanXdomain(USB4_PORT* adapter);
// The peer of this adapter is gone. The caller holds a reference.
void UnplugPeer(USB4_PORT* adapter, USB4_XDOMAIN* peer);
// The marks of a link to another host come off, so that the link is nobody's.
void UnmarkPeerLink(const USB4_PORT* adapter);
// Ends the device's peer, with a logout if it is logged in.
void KivUsb4NetStop(USB4_DOMAIN* domain);
