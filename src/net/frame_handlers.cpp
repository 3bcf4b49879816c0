// Clears the status of the network rings. No frame travels on them yet: nothing allocates a ring at hop 1.
#include "net/frame_handlers.h"

#include "hostif/ring.h"
#include "include/device_context.h"

namespace {

constexpr std::uint32_t kNetworkHop = 1;

// A reference keeps the ring while the handler uses it: tear-down may free it at any moment.
void ClearStatus(WDFINTERRUPT interrupt, bool isTransmit) {
  const DEVICE_EXTENSION* context = DeviceContextOf(WdfInterruptGetDevice(interrupt));
  if (context == nullptr || context->HostInterface == nullptr) return;
  USB4_RING* ring = RingReference(context->HostInterface, kNetworkHop, isTransmit);
  if (ring == nullptr) return;
  ClearRingInterruptStatus(*ring);
  RingRelease(ring);
}

}  // namespace

void USB4EvtInterruptTxFrameDpc(WDFINTERRUPT interrupt, WDFOBJECT) {
  ClearStatus(interrupt, true);
}

void USB4EvtInterruptRxFrameDpc(WDFINTERRUPT interrupt, WDFOBJECT) {
  ClearStatus(interrupt, false);
}
