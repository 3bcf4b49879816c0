// What happens to a packet that arrives on ring 0. PASSIVE_LEVEL, on the receive handler; nothing here may wait for an
// answer, because answers come in through here.
#pragma once
#include <ntddk.h>

#include "include/control_channel_record.h"

[[nodiscard]] inline USB4_CTL_PKG* PacketOfFrame(USB4_RING_FRAME* frame) {
  return CONTAINING_RECORD(frame, USB4_CTL_PKG, Frame);
}

// The completion of every receive packet: checks it, hands it on, and posts it again unless it was cancelled.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4CtlRxCallback(USB4_RING* ring, USB4_RING_FRAME* frame, bool cancelled);
