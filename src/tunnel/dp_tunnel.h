// DisplayPort tunnels: video and the two ways of the AUX channel, from a DP IN to a DP OUT adapter. PASSIVE_LEVEL,
// under the domain's path lock.
#pragma once
#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

inline constexpr std::uint32_t kDpPaths = 3;

// `ends`: a DP IN and a DP OUT adapter. `maximum` limits the display's mode; 0 does not. Null when an adapter has no
// capability or a path cannot be had.
[[nodiscard]] USB4_TUNNEL* KivUsb4TunnelAllocDp(USB4_DOMAIN* owner, const USB4_ENDS& ends,
                                                const USB4_BANDWIDTH& maximum);
// The tunnel that firmware has set up from a DP IN adapter, whose DP OUT is then a listed resource; or null.
[[nodiscard]] USB4_TUNNEL* KivUsb4TunnelDiscoverDp(USB4_DOMAIN* domain, USB4_PORT* dpIn);
// Cleans up behind firmware that has left a DP IN off with its paths programmed: the tunnel is rebuilt, started and
// taken down properly. Always 0.
[[nodiscard]] KIV_RESULT KivUsb4TunnelWorkAroundDiscoverDp(USB4_DOMAIN* domain, USB4_PORT* dpIn);
// Does that for a DP IN that is off and none of whose paths breaks off at an entry that is not valid; false for any
// other one.
[[nodiscard]] bool CleanUpDpIn(USB4_DOMAIN* domain, USB4_PORT* dpIn);
// Gives the DP IN back to its router; what the tunnel leaves behind goes to the branch's first USB3 tunnel.
void GiveBackDp(const USB4_TUNNEL* tunnel);

// The init callback: handshake, then each adapter is told what the other can do, reduced to what the tunnel may take. 0
// without an access when one of the routers is older than generation 2. -1 when the handshake is not answered, and when
// no mode is small enough; the error of a failed access.
[[nodiscard]] KIV_RESULT KivUsb4DpXchgCaps(USB4_TUNNEL* tunnel);
// Announces the connection manager to the DP OUT: 0, also without an access when one of the routers takes no part; -1
// when it does not answer within 11 polls of 100 ms.
[[nodiscard]] KIV_RESULT KivUsb4DpCmHandshake(const USB4_ENDS& ends);
[[nodiscard]] bool KivUsb4SwitchSupportsDpHandshake(const USB4_SWITCH* router);

// The activate callback.
[[nodiscard]] KIV_RESULT KivUsb4DpActivate(USB4_TUNNEL* tunnel, bool enable);
// By the mode that source and display have agreed on; nothing while they have not, after up to 1.6 s of waiting for it.
[[nodiscard]] KIV_RESULT KivUsb4DpConsumedBandwidth(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& consumed);
// Waits until the DP IN of a USB4 router has read the display's capabilities: -1 after 10 polls of 100 ms.
[[nodiscard]] KIV_RESULT KivUsb4PollDPRxCapDone(const USB4_TUNNEL* tunnel);
