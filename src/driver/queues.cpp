// No queue is power-managed: controls are served in every power state, and a request that waits for an event, for hours
// perhaps, must not keep the device from idling or leaving D0.
#include "driver/queues.h"

#include "include/status.h"
#include "include/trace.h"
#include "ioctl/device_control.h"
#include "net/network_requests.h"

namespace {

WDF_IO_QUEUE_DISPATCH_TYPE DispatchOf(KIV_QUEUE_KIND kind) {
  switch (kind) {
    case KIV_QUEUE_PENDING_CONNECTION:
    case KIV_QUEUE_PENDING_READ:
    case KIV_QUEUE_PENDING_SPARE:
      return WdfIoQueueDispatchManual;
    default:
      return WdfIoQueueDispatchParallel;
  }
}

void SetHandler(WDF_IO_QUEUE_CONFIG& config, KIV_QUEUE_KIND kind) {
  switch (kind) {
    case KIV_QUEUE_DEVICE_CONTROL:
      config.EvtIoDeviceControl = KivUsb4EvtIoDeviceControl;
      break;
    case KIV_QUEUE_INTERNAL_DEVICE_CONTROL:
      config.EvtIoInternalDeviceControl = KivUsb4EvtIoDeviceControl;
      break;
    case KIV_QUEUE_READ:
      config.EvtIoRead = KivUsb4EvtIoRead;
      break;
    case KIV_QUEUE_WRITE:
      config.EvtIoWrite = KivUsb4EvtIoWrite;
      break;
    default:
      break;
  }
}

WDFQUEUE& FieldOf(DEVICE_EXTENSION* context, KIV_QUEUE_KIND kind) {
  switch (kind) {
    case KIV_QUEUE_DEVICE_CONTROL:
      return context->IoctlQueue;
    case KIV_QUEUE_INTERNAL_DEVICE_CONTROL:
      return context->InternalIoctlQueue;
    case KIV_QUEUE_READ:
      return context->ReadQueue;
    case KIV_QUEUE_WRITE:
      return context->WriteQueue;
    case KIV_QUEUE_PENDING_READ:
      return context->PendingQueue1;
    case KIV_QUEUE_PENDING_SPARE:
      return context->PendingQueue2;
    case KIV_QUEUE_PENDING_CONNECTION:
      break;
  }
  return context->PendingQueue0;
}

// The kind of request that is routed to the queue; the manual ones get theirs by forwarding.
WDF_REQUEST_TYPE RoutedTo(KIV_QUEUE_KIND kind) {
  switch (kind) {
    case KIV_QUEUE_DEVICE_CONTROL:
      return WdfRequestTypeDeviceControl;
    case KIV_QUEUE_INTERNAL_DEVICE_CONTROL:
      return WdfRequestTypeDeviceControlInternal;
    case KIV_QUEUE_READ:
      return WdfRequestTypeRead;
    case KIV_QUEUE_WRITE:
      return WdfRequestTypeWrite;
    default:
      return WdfRequestTypeNoFormat;
  }
}

}  // namespace

NTSTATUS KivUsb4CreateQueue(WDFDEVICE device, DEVICE_EXTENSION* context, KIV_QUEUE_KIND kind) {
  WDF_IO_QUEUE_CONFIG config;
  WDF_IO_QUEUE_CONFIG_INIT(&config, DispatchOf(kind));
  config.PowerManaged = WdfFalse;
  SetHandler(config, kind);
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
  if (kind == KIV_QUEUE_WRITE) attributes.ExecutionLevel = WdfExecutionLevelPassive;
  WDFQUEUE& queue = FieldOf(context, kind);
  NTSTATUS status = WdfIoQueueCreate(device, &config, &attributes, &queue);
  const WDF_REQUEST_TYPE type = RoutedTo(kind);
  if (NT_SUCCESS(status) && type != WdfRequestTypeNoFormat) {
    status = WdfDeviceConfigureRequestDispatching(device, queue, type);
  }
  if (!NT_SUCCESS(status)) TraceError("queue not created", "kind", kind, "status", status);
  return status;
}

NTSTATUS CreateQueues(DEVICE_EXTENSION* context) {
  constexpr KIV_QUEUE_KIND kOrder[] = {KIV_QUEUE_DEVICE_CONTROL,
                                       KIV_QUEUE_INTERNAL_DEVICE_CONTROL,
                                       KIV_QUEUE_READ,
                                       KIV_QUEUE_WRITE,
                                       KIV_QUEUE_PENDING_READ,
                                       KIV_QUEUE_PENDING_SPARE,
                                       KIV_QUEUE_PENDING_CONNECTION};
  for (KIV_QUEUE_KIND kind : kOrder) {
    const NTSTATUS status = KivUsb4CreateQueue(context->Device, context, kind);
    if (!NT_SUCCESS(status)) return status;
  }
  return kStatusOk;
}
