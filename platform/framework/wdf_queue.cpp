#include "platform/framework/wdf_queue.h"

#include "platform/device/device_node.h"
#include "platform/framework/wdf_device.h"
#include "platform/framework/wdf_request.h"

namespace platform {

Queue::Queue(Device& owner, const WDF_IO_QUEUE_CONFIG& asked)
    : Object(owner.kernel(), kType), device(owner), config(asked), powerManaged(asked.PowerManaged != WdfFalse) {}

void Queue::Release() {
  std::erase(device.queues, this);
}

bool Queue::Presents() const {
  return !powerManaged || device.node.policy.phase() == PowerPhase::D0;
}

void Queue::Insert(Request& request) {
  request.GiveTo(*this);
  if (config.DispatchType == WdfIoQueueDispatchParallel && Presents()) {
    Present(request);
  } else {
    waiting_.push_back(&request);
  }
}

void Queue::InsertFirst(Request& request) {
  request.GiveTo(*this);
  waiting_.push_front(&request);
}

Request* Queue::TakeFirst() {
  if (waiting_.empty()) return nullptr;
  Request* request = waiting_.front();
  waiting_.pop_front();
  request->GiveToDriver();
  return request;
}

void Queue::PresentHeld() {
  if (config.DispatchType != WdfIoQueueDispatchParallel) return;
  while (Request* request = TakeFirst()) {
    kernel().simulation().Spawn(&kernel(), "held request", [this, request] { Present(*request); });
  }
}

void Queue::Present(Request& request) {
  request.GiveToDriver();
  const WDFQUEUE queue = Handle<WDFQUEUE>();
  const WDFREQUEST handle = request.Handle<WDFREQUEST>();
  const std::size_t in = request.inputBytes(), out = request.outputBytes();
  const ULONG code = request.code();
  switch (request.requestType()) {
    case WdfRequestTypeRead:
      return CallDriver(kernel(), "EvtIoRead", [&] { config.EvtIoRead(queue, handle, out); });
    case WdfRequestTypeWrite:
      return CallDriver(kernel(), "EvtIoWrite", [&] { config.EvtIoWrite(queue, handle, in); });
    case WdfRequestTypeDeviceControl:
      return CallDriver(kernel(), "EvtIoDeviceControl",
                        [&] { config.EvtIoDeviceControl(queue, handle, out, in, code); });
    default:
      return CallDriver(kernel(), "EvtIoInternalDeviceControl",
                        [&] { config.EvtIoInternalDeviceControl(queue, handle, out, in, code); });
  }
}

void Queue::CancelAll(KernelCall& call) {
  while (Request* request = TakeFirst()) request->Complete(call, STATUS_CANCELLED, 0);
}

void WaitForRequests(Device& device, Requests which) {
  constexpr Time kPatience = 600 * kSecond;
  Scheduler& scheduler = device.kernel().simulation().scheduler();
  const Time deadline = scheduler.Now() + kPatience;
  const std::int64_t& owned = which == Requests::All ? device.requestsOwned : device.managedOwned;
  while (owned > 0) {
    device.requestWaiter = Scheduler::Current();
    if (scheduler.Park("requests that the driver owns", &device, deadline)) continue;
    device.kernel().simulation().Report(Rule::RequestNeverCompleted,
                                        "leaving D0 or removal waits for a request that the driver keeps");
    break;
  }
  device.requestWaiter = nullptr;
}

namespace {

bool HandlesAnything(const WDF_IO_QUEUE_CONFIG& config) {
  return config.EvtIoRead || config.EvtIoWrite || config.EvtIoDeviceControl || config.EvtIoInternalDeviceControl;
}

bool Handles(const WDF_IO_QUEUE_CONFIG& config, WDF_REQUEST_TYPE type) {
  switch (type) {
    case WdfRequestTypeRead:
      return config.EvtIoRead != nullptr;
    case WdfRequestTypeWrite:
      return config.EvtIoWrite != nullptr;
    case WdfRequestTypeDeviceControl:
      return config.EvtIoDeviceControl != nullptr;
    case WdfRequestTypeDeviceControlInternal:
      return config.EvtIoInternalDeviceControl != nullptr;
    default:
      return false;
  }
}

void CheckConfig(KernelCall& call, const WDF_IO_QUEUE_CONFIG& config) {
  RequireArgument(call, config.Size == sizeof(config), "WDF_IO_QUEUE_CONFIG.Size");
  const bool manual = config.DispatchType == WdfIoQueueDispatchManual;
  RequireModelled(call, manual || config.DispatchType == WdfIoQueueDispatchParallel, "a sequential queue");
  RequireArgument(call, manual != HandlesAnything(config), "a manual queue has no handlers, every other has one");
  RequireModelled(call, manual || config.Settings.Parallel.NumberOfPresentedRequests == ~ULONG{0},
                  "a limit of presented requests");
  RequireModelled(call,
                  !config.EvtIoDefault && !config.EvtIoStop && !config.EvtIoResume && !config.EvtIoCanceledOnQueue,
                  "one of these queue callbacks");
}

}  // namespace
}  // namespace platform

using namespace platform;

NTSTATUS WdfIoQueueCreate(WDFDEVICE Device, PWDF_IO_QUEUE_CONFIG Config, PWDF_OBJECT_ATTRIBUTES QueueAttributes,
                          WDFQUEUE* Queue) {
  KernelCall call("WdfIoQueueCreate", DISPATCH_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  CheckConfig(call, *Config);
  RequireArgument(call, !Config->DefaultQueue || !device.defaultQueue, "a second default queue");
  const ObjectOptions options = ReadAttributes(call, QueueAttributes, &device);
  RequireArgument(call, options.parent == &device, "a queue's parent is its device");
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  platform::Queue& queue = call.kernel().objects().Add(std::make_unique<platform::Queue>(device, *Config), options);
  device.queues.push_back(&queue);
  if (Config->DefaultQueue) device.defaultQueue = &queue;
  if (Queue) *Queue = queue.Handle<WDFQUEUE>();
  return STATUS_SUCCESS;
}

NTSTATUS WdfDeviceConfigureRequestDispatching(WDFDEVICE Device, WDFQUEUE Queue, WDF_REQUEST_TYPE RequestType) {
  KernelCall call("WdfDeviceConfigureRequestDispatching", DISPATCH_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  platform::Queue& queue = Resolve<platform::Queue>(call, Queue);
  RequireArgument(call, &queue.device == &device, "a queue of another device");
  RequireModelled(call, Handles(queue.config, RequestType) || queue.config.DispatchType == WdfIoQueueDispatchManual,
                  "a request type for which the queue has no handler");
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  platform::Queue*& route = device.routes[static_cast<std::size_t>(RequestType)];
  RequireArgument(call, route == nullptr, "a second queue for the same request type");
  route = &queue;
  return STATUS_SUCCESS;
}

WDFDEVICE WdfIoQueueGetDevice(WDFQUEUE Queue) {
  KernelCall call("WdfIoQueueGetDevice", DISPATCH_LEVEL);
  return Resolve<platform::Queue>(call, Queue).device.handle();
}

NTSTATUS WdfIoQueueRetrieveNextRequest(WDFQUEUE Queue, WDFREQUEST* OutRequest) {
  KernelCall call("WdfIoQueueRetrieveNextRequest", DISPATCH_LEVEL);
  platform::Queue& queue = Resolve<platform::Queue>(call, Queue);
  RequireArgument(call, queue.config.DispatchType == WdfIoQueueDispatchManual, "a queue that presents its requests");
  RequireModelled(call, queue.Presents(), "a power-managed queue that is stopped");
  *OutRequest = nullptr;
  if (call.Fails()) return STATUS_INVALID_DEVICE_STATE;
  Request* request = queue.TakeFirst();
  *OutRequest = request ? request->Handle<WDFREQUEST>() : nullptr;
  return request ? STATUS_SUCCESS : STATUS_NO_MORE_ENTRIES;
}
