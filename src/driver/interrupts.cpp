// The handlers run as passive-level work items, so that they may take mutexes and block.
#include "driver/interrupts.h"

#include "hostif/interrupt_handlers.h"
#include "include/device_context.h"
#include "include/status.h"
#include "include/trace.h"
#include "net/frame_handlers.h"

namespace {

constexpr PFN_WDF_INTERRUPT_WORKITEM kHandlers[kInterruptCount] = {
    USB4EvtInterruptTxDpc, USB4EvtInterruptRxDpc, USB4EvtInterruptTxFrameDpc, USB4EvtInterruptRxFrameDpc};

}  // namespace

NTSTATUS KivUsb4InitializeInterrupt(WDFDEVICE device, PCM_PARTIAL_RESOURCE_DESCRIPTOR raw,
                                    PCM_PARTIAL_RESOURCE_DESCRIPTOR translated) {
  DEVICE_EXTENSION* context = DeviceContextOf(device);
  if (context == nullptr) return kStatusNoContextInPrepare;
  const std::uint32_t index = context->InterruptCount;
  WDF_INTERRUPT_CONFIG config;
  WDF_INTERRUPT_CONFIG_INIT(&config, USB4EvtInterruptIsr, nullptr);
  config.EvtInterruptWorkItem = index < kInterruptCount ? kHandlers[index] : USB4EvtInterruptTxDpc;
  config.InterruptRaw = raw;
  config.InterruptTranslated = translated;
  WDFINTERRUPT interrupt = nullptr;
  const NTSTATUS status = WdfInterruptCreate(device, &config, WDF_NO_OBJECT_ATTRIBUTES, &interrupt);
  if (!NT_SUCCESS(status)) return status;
  if (index < kInterruptCount) context->Interrupts[index] = interrupt;
  ++context->InterruptCount;
  return status;
}
