// The control channel on ring 0: sends packets, receives every packet that comes in, pairs answers with requests and
// hands what nobody asked for to the domain.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/config_space.h"
#include "include/control_channel_record.h"
#include "include/status.h"

// Builds the channel's rings, receive packets and the device's three shared work items. Null when a ring or packet
// could not be had; a work item that could not be made is only traced.
_IRQL_requires_max_(PASSIVE_LEVEL)
    [[nodiscard]] USB4_CTL* KivUSB4CtlAlloc(USB4_HOST_INTERFACE* hostInterface, USB4_EVENT_CALLBACK eventCallback,
                                            void* eventContext);
// The channel has been stopped and no interrupt handler runs any more. Null is ignored.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUSB4CtlFree(USB4_CTL* channel);

_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4CtlStart(USB4_CTL* channel);
// Requests still outstanding leave the list; their waiters are not woken and time out. Null is ignored.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4CtlStop(USB4_CTL* channel);

// A packet with a zeroed DMA buffer for `ring`, or null.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] USB4_CTL_PKG* KivUsb4CtlPkgAlloc(USB4_CTL* channel, USB4_RING* ring);
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4CtlPkgFree(USB4_CTL_PKG* packet);

// Sends one packet given in host order. -1 when `bytes` is not a multiple of 4 or above 252, no packet could be had, or
// the ring does not run.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4CtlTx(USB4_CTL* channel, const std::uint32_t* packet, std::uint32_t bytes, std::uint32_t pdf);

// The completion of every receive packet: checks it, hands it on, and posts it again unless it was cancelled. On the
// receive handler; nothing there may wait for an answer, because answers come in through here.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4CtlRxCallback(USB4_RING* ring, USB4_RING_FRAME* frame, bool cancelled);

// Tells a router that its hot-plug event has been handled; the router stops repeating it. 0 or -1.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4CfgAckPlug(USB4_CTL* channel, USB4_ROUTE route, std::uint32_t adapter, bool unplug);
