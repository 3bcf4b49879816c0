// Configuration reads and writes over the control channel: the operations on which the whole connection manager is
// built. PASSIVE_LEVEL; each waits for its answer, 200 ms at most, four times at most. Only a missing answer is tried
// again.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/config_space.h"
#include "include/control_channel_record.h"
#include "include/status.h"

inline constexpr ULONG kControlReplyMs = 200;

// Read `target.Range.Length` dwords, 0 to 63, into `buffer`, or write them from it. A greater length is sent as its low
// six bits, and no answer echoes it. `buffer` is untouched unless Err is 0. Err: 0, kKivErrorPacket with the router's
// code, -1 (the answer echoes another address, no memory, the flow is aborted), -4 not sent, -5 malformed answer, -258
// no answer. Adapter: through which the answer came. In a device that is powered down, and in a flow that is aborted,
// no attempt is made: -1, but 0 with zeros for length 0 at offset 0 of the path space.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] USB4_CFG_RESULT
    Usb4CfgReadRaw(USB4_CTL* channel, std::uint32_t* buffer, const USB4_CFG_TARGET& target, ULONG timeoutMs);
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] USB4_CFG_RESULT
    KivUsb4CfgWriteRaw(USB4_CTL* channel, const std::uint32_t* buffer, const USB4_CFG_TARGET& target, ULONG timeoutMs);

// 0 or -1. A read without a channel succeeds and leaves the buffer as it was, so every caller zeroes it first; a write
// without one fails.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4CfgRead(USB4_CTL* channel, std::uint32_t* buffer, const USB4_CFG_TARGET& target);
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4CfgWrite(USB4_CTL* channel, const std::uint32_t* buffer, const USB4_CFG_TARGET& target);

// The adapter through which the router at `route` answers, which is its upstream adapter; -1 without a channel, -5 when
// an error packet came back, else the error of the access.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4CfgGetUpstreamPort(USB4_CTL* channel, USB4_ROUTE route);
