// Tunnels that somebody else has programmed: firmware before this driver came, or this driver before a low-power state.
// PASSIVE_LEVEL, under the domain's run lock and path lock.
#pragma once
#include "include/domain_record.h"
#include "include/router_record.h"

// Makes the tunnels that start at this router's adapters, and at every router behind it, the domain's own. What is not
// whole is dropped, which is no failure.
void KivUsb4DiscoverTunnels(USB4_SWITCH* router);

// Cleans up behind firmware that leaves DP IN adapters of the host router switched off with their paths programmed.
// Ends at the first DP IN that is on or whose paths break off: only a leading run of such leftovers is known to be one.
void KivUsb4TunnelDiscoverandCleanUpUnCompleteDp(USB4_DOMAIN* domain);
