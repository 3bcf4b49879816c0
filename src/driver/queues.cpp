// No queue is power-managed: controls are served in every power state, and a request that waits for an event, for hours
// perhaps, must not keep the device from idling or leaving D0.
#include "driver/queues.h"

#include <array>

#include "include/status.h"
#include "include/trace.h"
#include "ioctl/device_control.h"
#include "net/network_requests.h"

namespace {

// One queue. Requests of a kind that is routed arrive by themselves and in parallel; a queue without such a kind is
// manual and gets its requests by forwarding.
struct QueueRow {
  KIV_QUEUE_KIND Kind;
  const char* Name;
  WDFQUEUE DEVICE_EXTENSION::*Field;
  WDF_REQUEST_TYPE Routed = WdfRequestTypeNoFormat;
  PFN_WDF_IO_QUEUE_IO_DEVICE_CONTROL Control = nullptr;
  PFN_WDF_IO_QUEUE_IO_INTERNAL_DEVICE_CONTROL InternalControl = nullptr;
  PFN_WDF_IO_QUEUE_IO_READ Read = nullptr;
  PFN_WDF_IO_QUEUE_IO_WRITE Write = nullptr;
  bool Passive = false;
};

// In the order of creation.
constexpr QueueRow kQueues[] = {
    {.Kind = KIV_QUEUE_DEVICE_CONTROL,
     .Name = "device control",
     .Field = &DEVICE_EXTENSION::IoctlQueue,
     .Routed = WdfRequestTypeDeviceControl,
     .Control = KivUsb4EvtIoDeviceControl},
    {.Kind = KIV_QUEUE_INTERNAL_DEVICE_CONTROL,
     .Name = "internal device control",
     .Field = &DEVICE_EXTENSION::InternalIoctlQueue,
     .Routed = WdfRequestTypeDeviceControlInternal,
     .InternalControl = KivUsb4EvtIoDeviceControl},
    {.Kind = KIV_QUEUE_READ,
     .Name = "read",
     .Field = &DEVICE_EXTENSION::ReadQueue,
     .Routed = WdfRequestTypeRead,
     .Read = KivUsb4EvtIoRead},
    {.Kind = KIV_QUEUE_WRITE,
     .Name = "write",
     .Field = &DEVICE_EXTENSION::WriteQueue,
     .Routed = WdfRequestTypeWrite,
     .Write = KivUsb4EvtIoWrite,
     .Passive = true},
    {.Kind = KIV_QUEUE_PENDING_READ, .Name = "pending read", .Field = &DEVICE_EXTENSION::PendingQueue1},
    {.Kind = KIV_QUEUE_PENDING_SPARE, .Name = "pending spare", .Field = &DEVICE_EXTENSION::PendingQueue2},
    {.Kind = KIV_QUEUE_PENDING_CONNECTION, .Name = "pending connection", .Field = &DEVICE_EXTENSION::PendingQueue0},
};

const QueueRow& RowOf(KIV_QUEUE_KIND kind) {
  std::size_t row = 0;
  while (kQueues[row].Kind != kind) {
    ++row;
    KivAssert(row < std::size(kQueues));
  }
  return kQueues[row];
}

WDF_IO_QUEUE_CONFIG ConfigOf(const QueueRow& row) {
  const bool routed = row.Routed != WdfRequestTypeNoFormat;
  WDF_IO_QUEUE_CONFIG config;
  WDF_IO_QUEUE_CONFIG_INIT(&config, routed ? WdfIoQueueDispatchParallel : WdfIoQueueDispatchManual);
  config.PowerManaged = WdfFalse;
  config.EvtIoDeviceControl = row.Control;
  config.EvtIoInternalDeviceControl = row.InternalControl;
  config.EvtIoRead = row.Read;
  config.EvtIoWrite = row.Write;
  return config;
}

}  // namespace

NTSTATUS KivUsb4CreateQueue(WDFDEVICE device, DEVICE_EXTENSION* context, KIV_QUEUE_KIND kind) {
  const QueueRow& row = RowOf(kind);
  WDF_IO_QUEUE_CONFIG config = ConfigOf(row);
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
  if (row.Passive) attributes.ExecutionLevel = WdfExecutionLevelPassive;
  WDFQUEUE& queue = context->*row.Field;
  NTSTATUS status = WdfIoQueueCreate(device, &config, &attributes, &queue);
  if (NT_SUCCESS(status) && row.Routed != WdfRequestTypeNoFormat) {
    status = WdfDeviceConfigureRequestDispatching(device, queue, row.Routed);
  }
  if (!NT_SUCCESS(status)) TraceError("queue not created", "queue", row.Name, "status", AsStatus(status));
  return status;
}

NTSTATUS CreateQueues(DEVICE_EXTENSION* context) {
  for (const QueueRow& row : kQueues) {
    const NTSTATUS status = KivUsb4CreateQueue(context->Device, context, row.Kind);
    if (!NT_SUCCESS(status)) return status;
  }
  return kStatusOk;
}
