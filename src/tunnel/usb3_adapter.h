// USB3 adapters: switching them, their link rates, and the bandwidth that the host router's one grants to its tunnel.
// PASSIVE_LEVEL: the handshake sleeps.
//
// The adapter counts bandwidth in units of 512 x 2^scale bits per 125 us. It changes its mind about a grant only
// between a request of the connection manager, which it acknowledges, and the end of that request.
#pragma once
#include <cstdint>

#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

// -1 without the capability, or the result of the write.
[[nodiscard]] KIV_RESULT KivUsb4Usb3PortEnable(const USB4_PORT* adapter, bool enable);
// False also when it cannot be read.
[[nodiscard]] bool KivUsb4Usb3PortIsEnabled(const USB4_PORT* adapter);

// Mb/s; -1 for anything but a USB3 adapter, or the error of the read.
[[nodiscard]] KIV_RESULT KivUsb4Usb3PortMaxLinkRate(const USB4_PORT* adapter);
// Of the link as it runs: 0 while there is none.
[[nodiscard]] KIV_RESULT KivUsb4Usb3PortActualLinkRate(const USB4_PORT* adapter);
// The smaller maximum of the two, or the first negative result.
[[nodiscard]] KIV_RESULT KivUsb4Usb3MaxLinkRate(const USB4_ENDS& ends);

// Rounded to nearest and up, in 32 bits that wrap.
[[nodiscard]] std::int32_t Usb3BwToMbps(std::uint32_t units, std::uint32_t scale);
[[nodiscard]] std::uint32_t KivUsb4Usb3MbpsToBw(std::int32_t mbps, std::uint32_t scale);

// Starts or ends a request and waits for the adapter to follow: -1 when it does not within 11 polls of 100 ms, and for
// anything but a USB3 downstream adapter of the host router; the error of a failed access.
[[nodiscard]] KIV_RESULT Usb4Usb3PortCmRequest(const USB4_PORT* adapter, bool request);
// Without a request. The outcome is stored only on success.
[[nodiscard]] KIV_RESULT Usb4Usb3PortReadAllocatedBandwidth(const USB4_PORT* adapter, USB4_BANDWIDTH& allocated);
[[nodiscard]] KIV_RESULT Usb4Usb3PortReadConsumedBandwidth(const USB4_PORT* adapter, USB4_BANDWIDTH& consumed);
[[nodiscard]] KIV_RESULT Usb4Usb3PortWriteAllocatedBandwidth(const USB4_PORT* adapter, const USB4_BANDWIDTH& allocated);

// Each within a request, which is ended whatever came of it.
[[nodiscard]] KIV_RESULT Usb4Usb3PortAllocatedBandwidth(const USB4_PORT* adapter, USB4_BANDWIDTH& allocated);
// Grants what is asked, or what the adapter consumes where that is more; on success `bandwidth` becomes what was
// granted.
[[nodiscard]] KIV_RESULT Usb4Usb3PortAllocateBandwidth(const USB4_PORT* adapter, USB4_BANDWIDTH& bandwidth);
// Takes back what the adapter does not consume, but leaves it 1000 Mb/s each way; on success `left` is what it keeps.
[[nodiscard]] KIV_RESULT Usb4Usb3PortReleaseBandwidth(const USB4_PORT* adapter, USB4_BANDWIDTH& left);
