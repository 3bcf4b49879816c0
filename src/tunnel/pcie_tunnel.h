// PCIe tunnels and their adapters. PASSIVE_LEVEL, under the domain's path lock.
#pragma once
#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

// `ends`: the PCIe downstream adapter, and the upstream adapter of a router further down. Null when a path cannot be
// had; nothing is written until activation.
[[nodiscard]] USB4_TUNNEL* KivUsb4TunnelAllocPcie(USB4_DOMAIN* owner, const USB4_ENDS& ends);
// The tunnel that firmware has set up from a downstream adapter, or null.
[[nodiscard]] USB4_TUNNEL* KivUsb4TunnelDiscoverPci(USB4_DOMAIN* owner, USB4_PORT* downstream);
// Traces paths of a downstream adapter that break off. Always true.
[[nodiscard]] bool TraceBrokenPcie(USB4_DOMAIN* domain, USB4_PORT* downstream);
// Marks the routers on the way of an adopted tunnel, its source's router not among them.
void MarkFirmwarePcieRouters(const USB4_TUNNEL* tunnel);

// The activate callback: the downstream adapter first, on and off.
[[nodiscard]] KIV_RESULT KivUsb4PciActivate(USB4_TUNNEL* tunnel, bool enable);
// -1 without the capability, or the result of the write.
[[nodiscard]] KIV_RESULT KivUsb4PciPortEnable(const USB4_PORT* adapter, bool enable);
// False also when it cannot be read.
[[nodiscard]] bool KivUsb4PciPortIsEnabled(const USB4_PORT* adapter);
