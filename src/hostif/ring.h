// Descriptor rings: allocation, start and stop, posting, completion.
//
// Everything that touches head, tail, the lists or the registers of a ring runs under the ring's spin lock; completion
// routines run after it has been dropped, so they may enqueue on the same ring.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/host_interface_record.h"
#include "include/ring_record.h"
#include "include/status.h"

struct USB4_RING_PARAMETERS {
  std::int32_t Hop;    // -1: the lowest free one from 1
  std::uint32_t Size;  // descriptors; one of them always stays empty
  bool IsTransmit;
  std::uint32_t Flags;  // kRingRawMode, kRingFrameMode, kRingEndToEnd
  std::uint32_t EndToEndHop;
  std::uint16_t StartPdfMask;
  std::uint16_t EndPdfMask;
};

// Null when there is no memory. A ring whose hop could not be claimed is returned all the same; it never runs.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] USB4_RING* Usb4_ring_alloc(USB4_HOST_INTERFACE* hostInterface,
                                                                            const USB4_RING_PARAMETERS& parameters);
_IRQL_requires_max_(PASSIVE_LEVEL)
    [[nodiscard]] USB4_RING* Usb4TxRingAlloc(USB4_HOST_INTERFACE* hostInterface, std::int32_t hop, std::uint32_t size,
                                             std::uint32_t flags);
// `parameters.IsTransmit` is not looked at.
_IRQL_requires_max_(PASSIVE_LEVEL)
    [[nodiscard]] USB4_RING* Usb4RxRingAlloc(USB4_HOST_INTERFACE* hostInterface, USB4_RING_PARAMETERS parameters);

// Claims the ring's hop, choosing one first when it is negative. 0, -16 (in use) or -22 (none left, or out of range).
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4AllocHop(USB4_HOST_INTERFACE* hostInterface, USB4_RING* ring);

_IRQL_requires_max_(DISPATCH_LEVEL) void Usb4RingStart(USB4_RING* ring);
// Clears the ring's registers. A control ring's frames are completed as cancelled; those of any other ring stay with it
// until their owner processes or frees it.
_IRQL_requires_max_(PASSIVE_LEVEL) void USb4RingStop(USB4_RING* ring);
// Gives the hop back and lets go of the ring. The descriptor table stays with the DMA enabler.
_IRQL_requires_max_(DISPATCH_LEVEL) void Usb4RingFree(USB4_RING* ring);

// The ring of a hop with a reference taken, or null. For handlers, beside which the ring may be freed.
_IRQL_requires_max_(DISPATCH_LEVEL)
    [[nodiscard]] USB4_RING* RingReference(USB4_HOST_INTERFACE* hostInterface, std::uint32_t hop, bool isTransmit);
_IRQL_requires_max_(DISPATCH_LEVEL) void RingRelease(USB4_RING* ring);

// 0, or -1 when the ring does not run; the caller then keeps the frame.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4RingFrameEnqueue(USB4_RING* ring, USB4_RING_FRAME* frame);
// The same; network transmission calls it by this name.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4RingFrameTxNetEnqueue(USB4_RING* ring, USB4_RING_FRAME* frame);
// Posts a receive buffer again. -1 on a transmit ring too.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] KIV_RESULT KivUsb4RingRx(USB4_RING* ring, USB4_RING_FRAME* frame);

// Completes what the hardware has finished, posts what waits, and calls the completion routines. On a ring that does
// not run every frame is completed as cancelled.
_IRQL_requires_max_(PASSIVE_LEVEL) void ProcessRingData(USB4_RING* ring);
// Takes one completed frame off the ring, or null. Posts nothing; the caller does.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] USB4_RING_FRAME* KivUsb4RingPoll(USB4_RING* ring);

// Sets or clears the ring's interrupt: its vector, then its mask bit.
_IRQL_requires_max_(DISPATCH_LEVEL) void KivUsb4RingInterruptActive(const USB4_RING& ring, bool active);
// Reads, and so clears, the status dword that holds the ring's bit.
_IRQL_requires_max_(DISPATCH_LEVEL) void ClearRingInterruptStatus(const USB4_RING& ring);
