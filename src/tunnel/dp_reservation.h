// Reserving a DP IN adapter with its router: by router operations on a USB4 router, by the link controller's sinks on a
// Thunderbolt 3 router. PASSIVE_LEVEL, under the domain's path lock.
#pragma once
#include "include/router_record.h"
#include "include/status.h"

// The router's own way, whichever it is.
_Requires_lock_held_(router->Domain->PathLock)
    [[nodiscard]] bool KivUsb4SwitchQueryDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn);
_Requires_lock_held_(router->Domain->PathLock) [[nodiscard]] KIV_RESULT
    KivUsb4SwitchAllocDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn);
_Requires_lock_held_(router->Domain->PathLock) [[nodiscard]] KIV_RESULT
    KivUsb4SwitchDeallocDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn);

// USB4 routers. Free: the router says so, or fails the operation as one that it does not know. False when the question
// cannot be put.
[[nodiscard]] bool Usb4SwitchQueryDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn);
// 0 also when the question cannot be put, and when the operation is not available; -1 when the router refuses; else the
// operation's error.
[[nodiscard]] KIV_RESULT Usb4SwitchAllocDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn);
[[nodiscard]] KIV_RESULT Usb4SwitchDeallocDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn);

// Thunderbolt 3 routers. Below generation 3 there are no sinks, and everything but the lookup succeeds without an
// access. Sink 0 is the router's first DP IN, sink 1 every other one; -1 when it has none.
[[nodiscard]] KIV_RESULT KivUsb4LcDpSinkFromPort(const USB4_SWITCH* router, const USB4_PORT* dpIn);
// 0 when nobody else has it, -1 when somebody has, or the read's error.
[[nodiscard]] KIV_RESULT KivUsb4LcDpSinkAvailable(const USB4_SWITCH* router, KIV_RESULT sink);
[[nodiscard]] bool KivUsb4LcDpSinkQuery(const USB4_SWITCH* router, const USB4_PORT* dpIn);
// -1 without a sink and when it is not available; the error of a failed access.
[[nodiscard]] KIV_RESULT KivUsb4LcDpSinkAlloc(const USB4_SWITCH* router, const USB4_PORT* dpIn);
[[nodiscard]] KIV_RESULT KivUsb4LcDpSinkDealloc(const USB4_SWITCH* router, const USB4_PORT* dpIn);
