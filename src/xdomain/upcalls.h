// What this room needs from rooms above it, and which room has it.
#pragma once
#include <ntddk.h>

#include "include/domain_record.h"
#include "include/peer_record.h"
#include "include/status.h"

// net: registers the "network" directory with this host's properties: -1 without a host interface, -17 when it is
// registered, -12 without memory
[[nodiscard]] KIV_RESULT KivUsb4NetDriverInit(USB4_DOMAIN* domain);
[[nodiscard]] KIV_RESULT KIvUsb4NetDriverExit(USB4_DOMAIN* domain);  // net: removes it; -1 without a host interface
// net: brings up both network rings and the login
[[nodiscard]] KIV_RESULT KivUsb4NetOpen(USB4_NET* network);
// net: a network packet of a peer, host order; 1 when it is handled, 0 otherwise
[[nodiscard]] KIV_RESULT KivUsb4NetHandlePacket(const std::uint32_t* packet, std::uint32_t bytes, USB4_NET* network);
// net: ends the frames and the login of a peer that is being removed; the device's XDomainMutex is held
void EndPeerDataPath(USB4_XDOMAIN* xdomain);
// net: reports the network device of a peer as present, or the one with this number, 0 for all, as missing
[[nodiscard]] NTSTATUS KivUsb4PlugInEthernetController(USB4_DOMAIN* domain, USB4_XDOMAIN* xdomain);
[[nodiscard]] NTSTATUS KivUsb4UnplugEthernetController(USB4_DOMAIN* domain, std::uint32_t number);
