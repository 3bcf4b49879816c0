// The tunnel object: the paths that together carry one protocol, switched on and off as one. PASSIVE_LEVEL, under the
// domain's path lock.
//
// A tunnel is made with inactive paths, or with active ones when it is found in the hardware. Activation runs its init
// callback, its paths in index order, then its activate callback; deactivation goes back the same way, protocol
// adapters first.
#pragma once
#include <cstdint>

#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"
#include "tunnel/path.h"

// Without callbacks, source, destination and paths; null when there is no memory.
[[nodiscard]] USB4_TUNNEL* KivUsb4TunnelAlloc(USB4_DOMAIN* owner, std::uint32_t pathCount, USB4_TUNNEL_TYPE type);
// Allocates path `index` of a tunnel that is being built; false when it cannot be had.
[[nodiscard]] bool BuildPath(USB4_TUNNEL* tunnel, std::uint32_t index, const USB4_PATH_REQUEST& request);
// Frees the record and its paths, with their hop IDs, without touching the hardware. Null is ignored.
void KivUsb4TunnelFree(USB4_TUNNEL* tunnel);

// -1 without an access when one of the paths is active already, else a restart.
[[nodiscard]] KIV_RESULT KivUsb4TunnelActivate(USB4_TUNNEL* tunnel);
// Takes active paths down first. A failure leaves every path inactive, and the adapters switched off if it came after
// the init callback.
_Requires_lock_held_(tunnel->Owner->PathLock) [[nodiscard]] KIV_RESULT KivUsb4TunnelRestart(USB4_TUNNEL* tunnel);
// Never fails: what goes wrong on the way is traced. The adapters are switched off even when no path is active.
_Requires_lock_held_(tunnel->Owner->PathLock) void KivUsb4TunnelDeactivate(USB4_TUNNEL* tunnel);

// Every path exists and is active.
[[nodiscard]] bool KivUsb4TunnelIsActive(const USB4_TUNNEL* tunnel);
[[nodiscard]] bool KivUsb4TunnelIsDp(const USB4_TUNNEL* tunnel);
[[nodiscard]] bool KivUsb4TunnelIsDma(const USB4_TUNNEL* tunnel);
// Some hop of some path enters or leaves the adapter.
[[nodiscard]] bool KivUsb4TunnelUsesPort(const USB4_TUNNEL* tunnel, const USB4_PORT* adapter);

// Each does nothing, with success, unless the tunnel is active and has the callback; else the callback's result.
// `consumed` (may be null) becomes 0 and 0 when nothing was done, and is left alone on a failure.
[[nodiscard]] KIV_RESULT KivUsb4TunnelConsumedBandwidth(USB4_TUNNEL* tunnel, USB4_BANDWIDTH* consumed);
[[nodiscard]] KIV_RESULT KivUsb4TunnelReleaseUnusedBandwidth(USB4_TUNNEL* tunnel);
// Takes what it takes off `available`.
void KivUsb4TunnelReclaimAvailableBandwidth(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& available);
