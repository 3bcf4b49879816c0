// USB3 tunnels. Bandwidth is managed for those that start at the host router; deeper ones live inside its grant.
// PASSIVE_LEVEL, under the domain's path lock.
#pragma once
#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

// The largest grant that a USB3 link of this rate can use, in per cent of the rate and in Mb/s.
inline constexpr std::int32_t kUsb3UsablePercent = 90;
[[nodiscard]] std::int32_t Usb3UsableMbps(std::int32_t rateMbps);
// What a grant costs the links that it crosses: a third more, for what the link carries besides the payload.
[[nodiscard]] USB4_BANDWIDTH Usb3ChargeOf(const USB4_BANDWIDTH& grant);

// `ends`: the USB3 downstream adapter, and the upstream adapter of a router further down. With a maximum above 0 the
// tunnel wants 90 % of the smaller link rate in each direction and is refused when a maximum is below that; with 0 and
// 0 it starts with nothing. Null also when a rate cannot be read or a path cannot be had.
[[nodiscard]] USB4_TUNNEL* KivUsb4TunnelAllocUsb3(USB4_DOMAIN* owner, const USB4_ENDS& ends,
                                                  const USB4_BANDWIDTH& maximum);
// The tunnel that firmware, or an earlier start of this driver, has set up from a downstream adapter, with its grant;
// or null. Its maximum stays 0.
[[nodiscard]] USB4_TUNNEL* KivUsb4TunnelDiscoverUsb3(USB4_DOMAIN* domain, USB4_PORT* downstream);
// Traces paths of a downstream adapter that break off. Always true.
[[nodiscard]] bool TraceBrokenUsb3(USB4_DOMAIN* domain, USB4_PORT* downstream);
// What the tunnel leaves behind goes to the branch's first USB3 tunnel.
void GiveBackUsb3(const USB4_TUNNEL* tunnel);

// The callbacks: init writes the grant, activate switches the downstream adapter first, on and off.
[[nodiscard]] KIV_RESULT KivUsb4Usb3Init(USB4_TUNNEL* tunnel);
[[nodiscard]] KIV_RESULT KivUsb4Usb3Activate(USB4_TUNNEL* tunnel, bool enable);
// Usb3ChargeOf the grant.
[[nodiscard]] KIV_RESULT KivUsb4Usb3ConsumedBandwidth(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& consumed);
[[nodiscard]] KIV_RESULT KivUsb4Usb3ReleaseUnusedBandwidth(USB4_TUNNEL* tunnel);
// Raises the grant to what is available, at most 90 % of the link rate, and takes it off `available`.
void KivUsb4Usb3ReclaimAvailableBandwidth(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& available);
