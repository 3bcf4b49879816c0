// Mapping and unmapping of BAR0, with the mapping call that the running kernel has; and the interrupts, whose handlers
// run as passive-level work items, so that they may take mutexes and block.
#include "driver/hardware_resources.h"

#include <utility>

#include "hostif/interrupt_handlers.h"
#include "include/device_context.h"
#include "include/status.h"
#include "include/trace.h"
#include "net/frame_handlers.h"

namespace {

using MAP_WITH_PROTECTION = PVOID(NTAPI*)(PHYSICAL_ADDRESS, SIZE_T, ULONG);

constexpr ULONG kReadWriteNoCache = PAGE_READWRITE | PAGE_NOCACHE;
static_assert(kReadWriteNoCache == 0x204);

// Looked up at run time: older kernels do not export the call that maps memory without making it executable.
PVOID MapNonCached(const MEMORY_RANGE& range) {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, L"MmMapIoSpaceEx");
  auto map = reinterpret_cast<MAP_WITH_PROTECTION>(MmGetSystemRoutineAddress(&name));
  if (map != nullptr) return map(range.Start, range.Length, kReadWriteNoCache);
  return MmMapIoSpace(range.Start, range.Length, MmNonCached);
}

void RememberDriverWide(const USB4_HOST_INTERFACE& hostInterface) {
  DRIVER_CONTEXT* driver = DriverContextOf(WdfDeviceGetDriver(hostInterface.Device));
  if (driver == nullptr) return;
  driver->RegisterBase = hostInterface.RegisterBase;
  driver->RegisterLength = hostInterface.RegisterLength;
}

constexpr PFN_WDF_INTERRUPT_WORKITEM kHandlers[kInterruptCount] = {
    USB4EvtInterruptTxDpc, USB4EvtInterruptRxDpc, USB4EvtInterruptTxFrameDpc, USB4EvtInterruptRxFrameDpc};

}  // namespace

NTSTATUS MapBar0(USB4_HOST_INTERFACE* hostInterface, const MEMORY_RANGE& bar0) {
  hostInterface->RegisterBase = MapNonCached(bar0);
  if (hostInterface->RegisterBase == nullptr) {
    TraceError("BAR0 not mapped", "length", bar0.Length);
    return kStatusNoResources;
  }
  hostInterface->RegisterLength = bar0.Length;
  hostInterface->State = 0;
  RememberDriverWide(*hostInterface);
  return kStatusOk;
}

void UnmapBar0(USB4_HOST_INTERFACE* hostInterface) {
  void* base = std::exchange(hostInterface->RegisterBase, nullptr);
  if (base != nullptr) MmUnmapIoSpace(base, hostInterface->RegisterLength);
}

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
