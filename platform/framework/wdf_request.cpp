#include "platform/framework/wdf_request.h"

#include <algorithm>
#include <cstring>

#include "platform/device/device_node.h"
#include "platform/framework/wdf_device.h"
#include "platform/framework/wdf_queue.h"

namespace platform {

Request::Request(Device& device, std::shared_ptr<PendingIo> io)
    : Object(device.kernel(), kType), device_(device), io_(std::move(io)) {
  io_->output.resize(io_->request.outputBytes);
  if (!Buffered()) return;
  systemBuffer_ = io_->request.input;
  systemBuffer_.resize(std::max(inputBytes(), outputBytes()));
}

WDF_REQUEST_TYPE Request::requestType() const {
  switch (io_->request.kind) {
    case IoRequest::Kind::Read:
      return WdfRequestTypeRead;
    case IoRequest::Kind::Write:
      return WdfRequestTypeWrite;
    case IoRequest::Kind::DeviceControl:
      return WdfRequestTypeDeviceControl;
    case IoRequest::Kind::InternalDeviceControl:
      break;
  }
  return WdfRequestTypeDeviceControlInternal;
}

bool Request::Buffered() const {
  const bool transfer = io_->request.kind == IoRequest::Kind::Read || io_->request.kind == IoRequest::Kind::Write;
  return transfer ? device_.ioType == WdfDeviceIoBuffered : METHOD_FROM_CTL_CODE(code()) == METHOD_BUFFERED;
}

bool Request::PointersUnreachable() const {
  return io_->request.kind == IoRequest::Kind::DeviceControl && METHOD_FROM_CTL_CODE(code()) == METHOD_NEITHER &&
         !io_->request.kernelMode;
}

namespace {

Request::Buffer Checked(std::vector<std::byte>& memory, std::size_t bytes, std::size_t minimum) {
  if (bytes == 0 || bytes < minimum) return {STATUS_BUFFER_TOO_SMALL};
  return {STATUS_SUCCESS, memory.data(), bytes};
}

}  // namespace

Request::Buffer Request::Input(std::size_t minimum) {
  if (requestType() == WdfRequestTypeRead || PointersUnreachable()) return {STATUS_INVALID_DEVICE_REQUEST};
  return Checked(Buffered() ? systemBuffer_ : io_->request.input, inputBytes(), minimum);
}

Request::Buffer Request::Output(std::size_t minimum) {
  if (requestType() == WdfRequestTypeWrite || PointersUnreachable()) return {STATUS_INVALID_DEVICE_REQUEST};
  return Checked(Buffered() ? systemBuffer_ : io_->output, outputBytes(), minimum);
}

void Request::GiveTo(Queue& queue) {
  SetOwnedByDriver(false);
  queue_ = &queue;
  CountForPower(queue.powerManaged);
}

void Request::SetOwnedByDriver(bool owned) {
  if (owned == ownedByDriver_) return;
  ownedByDriver_ = owned;
  const int change = owned ? 1 : -1;
  device_.requestsOwned += change;
  if (queue_->powerManaged) device_.managedOwned += change;
  if (!owned && device_.requestWaiter) kernel().simulation().scheduler().Wake(*device_.requestWaiter);
}

void Request::CountForPower(bool counts) {
  if (counts == countsForPower_) return;
  countsForPower_ = counts;
  counts ? device_.node.policy.RequestArrived() : device_.node.policy.RequestGone();
}

void Request::Complete(KernelCall& call, Status status, std::uint64_t information) {
  if (Buffered() && !NT_ERROR(status)) {
    std::copy_n(systemBuffer_.begin(), std::min<std::uint64_t>(information, outputBytes()), io_->output.begin());
  }
  io_->status = status;
  io_->information = information;
  io_->completed = true;
  SetOwnedByDriver(false);
  CountForPower(false);
  if (io_->waiter) kernel().simulation().scheduler().Wake(*io_->waiter);
  kernel().objects().Delete(call, *this);
}

void Dispatch(KernelCall& call, Device& device, std::shared_ptr<PendingIo> io) {
  if (!device.acceptsRequests) {
    io->status = STATUS_NO_SUCH_DEVICE;
    io->completed = true;
    return;
  }
  auto object = std::make_unique<Request>(device, std::move(io));
  Request& request = call.kernel().objects().Add(std::move(object), ObjectOptions{.parent = &device});
  Queue* queue = device.routes[static_cast<std::size_t>(request.requestType())];
  if (queue == nullptr) queue = device.defaultQueue;
  if (queue == nullptr) return request.Complete(call, STATUS_INVALID_DEVICE_REQUEST, 0);
  const bool transfer = request.requestType() == WdfRequestTypeRead || request.requestType() == WdfRequestTypeWrite;
  if (transfer && request.inputBytes() + request.outputBytes() == 0 && !queue->config.AllowZeroLengthRequests) {
    return request.Complete(call, STATUS_SUCCESS, 0);
  }
  queue->Insert(request);
}

namespace {

Request& Owned(KernelCall& call, WDFREQUEST handle) {
  Request& request = Resolve<Request>(call, handle);
  if (!request.OwnedByDriver()) {
    ReportAndStop(call, Rule::RequestNotOwned, "the request is in a queue, not the driver's");
  }
  return request;
}

void Complete(KernelCall& call, WDFREQUEST handle, NTSTATUS status, ULONG_PTR information) {
  if (call.kernel().objects().WasRequest(handle)) {
    ReportAndStop(call, Rule::RequestCompletedTwice, "the request is completed already");
  }
  RequireArgument(call, status != STATUS_PENDING, "a request is not completed with STATUS_PENDING");
  Owned(call, handle).Complete(call, status, information);
}

NTSTATUS Hand(const Request::Buffer& buffer, PVOID* memory, size_t* length) {
  *memory = buffer.memory;
  if (length) *length = buffer.bytes;
  return buffer.status;
}

}  // namespace
}  // namespace platform

using namespace platform;

VOID WdfRequestComplete(WDFREQUEST Request, NTSTATUS Status) {
  KernelCall call("WdfRequestComplete", DISPATCH_LEVEL);
  Complete(call, Request, Status, 0);
  call.EffectVisible();
}

VOID WdfRequestCompleteWithInformation(WDFREQUEST Request, NTSTATUS Status, ULONG_PTR Information) {
  KernelCall call("WdfRequestCompleteWithInformation", DISPATCH_LEVEL);
  Complete(call, Request, Status, Information);
  call.EffectVisible();
}

NTSTATUS WdfRequestRetrieveInputBuffer(WDFREQUEST Request, size_t MinimumRequiredLength, PVOID* Buffer,
                                       size_t* Length) {
  KernelCall call("WdfRequestRetrieveInputBuffer", DISPATCH_LEVEL);
  platform::Request& request = Owned(call, Request);
  if (call.Fails()) return Hand({STATUS_INSUFFICIENT_RESOURCES}, Buffer, Length);
  return Hand(request.Input(MinimumRequiredLength), Buffer, Length);
}

NTSTATUS WdfRequestRetrieveOutputBuffer(WDFREQUEST Request, size_t MinimumRequiredSize, PVOID* Buffer, size_t* Length) {
  KernelCall call("WdfRequestRetrieveOutputBuffer", DISPATCH_LEVEL);
  platform::Request& request = Owned(call, Request);
  if (call.Fails()) return Hand({STATUS_INSUFFICIENT_RESOURCES}, Buffer, Length);
  return Hand(request.Output(MinimumRequiredSize), Buffer, Length);
}

NTSTATUS WdfRequestForwardToIoQueue(WDFREQUEST Request, WDFQUEUE DestinationQueue) {
  KernelCall call("WdfRequestForwardToIoQueue", DISPATCH_LEVEL);
  platform::Request& request = Owned(call, Request);
  Queue& queue = Resolve<Queue>(call, DestinationQueue);
  RequireArgument(call, request.queue() != &queue, "a request is forwarded to another queue than its own");
  RequireModelled(call, queue.config.DispatchType == WdfIoQueueDispatchManual, "forwarding to a queue that presents");
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  queue.Insert(request);
  call.EffectVisible();
  return STATUS_SUCCESS;
}

NTSTATUS WdfRequestRequeue(WDFREQUEST Request) {
  KernelCall call("WdfRequestRequeue", DISPATCH_LEVEL);
  platform::Request& request = Owned(call, Request);
  RequireArgument(call, request.queue()->config.DispatchType == WdfIoQueueDispatchManual,
                  "only a request from a manual queue goes back to it");
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  request.queue()->InsertFirst(request);
  return STATUS_SUCCESS;
}
