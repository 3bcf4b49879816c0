// DisplayPort tunnels that firmware has left in the routers. PASSIVE_LEVEL, under the domain's path lock.
#pragma once
#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

// The tunnel that firmware has set up from a DP IN adapter, whose DP OUT is then a listed resource; or null.
[[nodiscard]] USB4_TUNNEL* KivUsb4TunnelDiscoverDp(USB4_DOMAIN* domain, USB4_PORT* dpIn);
// Cleans up behind firmware that has left a DP IN off with its paths programmed: the tunnel is rebuilt, started and
// taken down properly. Always 0.
[[nodiscard]] KIV_RESULT KivUsb4TunnelWorkAroundDiscoverDp(USB4_DOMAIN* domain, USB4_PORT* dpIn);
// Does that for a DP IN that is off and none of whose paths breaks off at an entry that is not valid; false for any
// other one.
[[nodiscard]] bool CleanUpDpIn(USB4_DOMAIN* domain, USB4_PORT* dpIn);
