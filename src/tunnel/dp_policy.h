// Which DP IN feeds which DP OUT. PASSIVE_LEVEL, under the domain's run lock, without the path lock.
#pragma once
#include "include/domain_record.h"
#include "include/router_record.h"

// The first listed DP OUT that carries no tunnel and that `dpIn` can reach: one on the host router, or behind the same
// host router adapter as the DP IN's own router; for a DP IN on the host router, any. Null when there is none.
[[nodiscard]] USB4_PORT* KivUsb4FindDpOut(USB4_DOMAIN* domain, const USB4_PORT* dpIn);

// Pairs the first listed DP IN that carries no tunnel with a DP OUT, if both are to be had, and builds their tunnel: at
// most one for each call. A DP IN that its router does not grant stays listed for the next time.
void KivUsb4TunnelDp(USB4_DOMAIN* domain);
