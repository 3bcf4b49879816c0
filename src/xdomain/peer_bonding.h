// What two hosts settle about their link, and what each does at its end. PASSIVE_LEVEL.
//
// A step that fails takes one of the peer's retries: -11 while there was one, else the failure itself.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/atomic.h"
#include "include/peer_record.h"
#include "include/status.h"

// Asks what the peer's lanes can do: 0; -45 when it cannot run two lanes.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT KivUsb4XdomainGetLinkStatus(USB4_XDOMAIN* xdomain);
// Asks the peer to change its end to `width` lanes, 1 or 2; -22 for any other.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdomainLinkStateChange(USB4_XDOMAIN* xdomain, std::uint32_t width);
// The end of the host that asked: -19 without a second lane, -57 when it does not come up, -60 when the lanes do not
// bond within 10 s.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT KivUsb4XdomainLaneBondingEnable(USB4_XDOMAIN* xdomain);
// The end of the host that was asked; -11 while the request has not come, -60 when it never came.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT KivUsb4XdomainBondLanesUuidHigh(USB4_XDOMAIN* xdomain);
// Reads speed and width of the link into the record; -1 without an adapter, else the error of a read.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT KivUsb4XdomainUpdateLinkAttributes(USB4_XDOMAIN* xdomain);

// `failure`, or -11 when an attempt is left; one fewer afterwards.
[[nodiscard]] KIV_RESULT TakeRetry(AtomicLong& retries, KIV_RESULT failure);
