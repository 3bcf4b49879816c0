// Interrupts only record: the service routine clears the status and asks for the handler, which runs at PASSIVE_LEVEL.
#include "hostif/interrupt_handlers.h"

#include "hostif/host_interface.h"
#include "hostif/ring.h"
#include "hostif/ring_registers.h"
#include "include/control_channel_record.h"
#include "include/device_context.h"
#include "include/domain_record.h"
#include "include/status.h"

namespace {

constexpr ULONG kControlTransmitMessage = 0;
constexpr ULONG kControlReceiveMessage = 1;
constexpr ULONG kNetworkReceiveMessage = 3;

DEVICE_EXTENSION* ContextOfInterrupt(WDFINTERRUPT interrupt) {
  return DeviceContextOf(WdfInterruptGetDevice(interrupt));
}

void ReadStatusDword(const USB4_HOST_INTERFACE& hostInterface, std::uint32_t ringInterrupt) {
  IgnoreResult(ReadHostRegister(hostInterface, InterruptStatusRegister(ringInterrupt)));  // read to clear
}

// The network handlers clear their status themselves, beside their processing.
void ClearControlStatus(WDFINTERRUPT interrupt, ULONG message) {
  const DEVICE_EXTENSION* context = ContextOfInterrupt(interrupt);
  if (context == nullptr || context->HostInterface == nullptr) return;
  const USB4_HOST_INTERFACE& hostInterface = *context->HostInterface;
  if (hostInterface.RegisterBase == nullptr) return;
  if (message == kControlTransmitMessage) ReadStatusDword(hostInterface, 0);
  if (message == kControlReceiveMessage) ReadStatusDword(hostInterface, hostInterface.HopCount);
}

USB4_CTL* ControlChannelOf(WDFINTERRUPT interrupt) {
  const DEVICE_EXTENSION* context = ContextOfInterrupt(interrupt);
  return context == nullptr || context->Domain == nullptr ? nullptr : context->Domain->ControlChannel;
}

}  // namespace

BOOLEAN USB4EvtInterruptIsr(WDFINTERRUPT interrupt, ULONG messageId) {
  ClearControlStatus(interrupt, messageId);
  // Both calls end in the interrupt's one work item; one that is queued already serves this message too.
  if (messageId == kNetworkReceiveMessage) {
    IgnoreResult(WdfInterruptQueueWorkItemForIsr(interrupt));
  } else {
    IgnoreResult(WdfInterruptQueueDpcForIsr(interrupt));
  }
  return TRUE;
}

void USB4EvtInterruptTxDpc(WDFINTERRUPT interrupt, WDFOBJECT) {
  const USB4_CTL* channel = ControlChannelOf(interrupt);
  if (channel != nullptr && channel->TransmitRing != nullptr) ProcessRingData(channel->TransmitRing);
}

void USB4EvtInterruptRxDpc(WDFINTERRUPT interrupt, WDFOBJECT) {
  const USB4_CTL* channel = ControlChannelOf(interrupt);
  if (channel != nullptr && channel->ReceiveRing != nullptr) ProcessRingData(channel->ReceiveRing);
}
