// The budget of links, and how USB3 and DisplayPort share it. PASSIVE_LEVEL, under the domain's path lock. `ends`: the
// adapters between which a tunnel runs or is to run.
#pragma once
#include "include/domain_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

// Mb/s each way of a link, and the part of them that tunnels may take: a tenth carries what no tunnel owns.
[[nodiscard]] std::int32_t LinkCapacityMbps(std::int32_t gbpsPerLane, bool bonded);
[[nodiscard]] std::int32_t LinkUsableMbps(std::int32_t capacityMbps);

// The listed USB3 tunnel that starts at the host router towards the deeper of the two ends, or null.
[[nodiscard]] USB4_TUNNEL* KivUsb4FindFirstUsb3Tunnel(USB4_DOMAIN* domain, const USB4_ENDS& ends);

// What the narrowest link on the way leaves for a new tunnel, at least 0: 90 % of each link, less its DisplayPort
// tunnels, less the first USB3 tunnel. The error of a speed or of a tunnel that cannot be read.
[[nodiscard]] KIV_RESULT KivUsb4AvailableBandwidth(USB4_DOMAIN* domain, const USB4_ENDS& ends,
                                                   USB4_BANDWIDTH& available);
// Lets the first USB3 tunnel take what has become free.
[[nodiscard]] KIV_RESULT KivUsb4ReclaimUsb3Bandwidth(USB4_DOMAIN* domain, const USB4_ENDS& ends);
// Makes the first USB3 tunnel give up what it does not consume.
[[nodiscard]] KIV_RESULT KivUsb4ReleaseUsb3Bandwidth(USB4_DOMAIN* domain, const USB4_ENDS& ends);
