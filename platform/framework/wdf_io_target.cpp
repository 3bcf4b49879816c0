// The default I/O target is the bus below the device, which evaluates ACPI methods. Others are companion drivers, whose
// answers take the time that they say. Time-outs are in virtual time.
#include "platform/framework/wdf_io_target.h"
#include "platform/device/device_node.h"
#include "platform/framework/wdf_device.h"
#include "platform/kernel/kernel_state.h"
#include "platform/kernel/text.h"

#include <acpiioct.h>

#include <algorithm>
#include <cstring>

namespace platform {
namespace {

// Absolute; kNever without a time-out.
Time Deadline(KernelCall& call, PWDF_REQUEST_SEND_OPTIONS options) {
  if (options == nullptr) return kNever;
  RequireArgument(call, options->Size == sizeof(WDF_REQUEST_SEND_OPTIONS), "WDF_REQUEST_SEND_OPTIONS.Size");
  const ULONG flags = options->Flags & ~ULONG{WDF_REQUEST_SEND_OPTION_SYNCHRONOUS};
  RequireModelled(call, flags == 0 || flags == WDF_REQUEST_SEND_OPTION_TIMEOUT, "these request options");
  if (flags == 0 || options->Timeout == 0) return kNever;
  RequireModelled(call, options->Timeout < 0, "an absolute time-out");
  return call.scheduler().Now() - options->Timeout;
}

bool IsMethodInput(PWDF_MEMORY_DESCRIPTOR input) {
  if (input == nullptr || input->Type != WdfMemoryDescriptorTypeBuffer) return false;
  if (input->u.BufferType.Length < sizeof(ACPI_EVAL_INPUT_BUFFER_COMPLEX)) return false;
  ULONG signature;
  std::memcpy(&signature, input->u.BufferType.Buffer, sizeof(signature));
  return signature == ACPI_EVAL_INPUT_BUFFER_COMPLEX_SIGNATURE;
}

struct AnswerWait {
  const char* what;
  Time deadline;
};

NTSTATUS Answer(KernelCall& call, const DeviceNode& node, const CompanionReply& reply, const AnswerWait& wait) {
  const Time answered = call.scheduler().Now() + reply.after;
  if (reply.after > 0) call.scheduler().Park(wait.what, &node, std::min(answered, wait.deadline));
  return answered > wait.deadline ? STATUS_IO_TIMEOUT : reply.status;
}

NTSTATUS EvaluateMethod(KernelCall& call, const DeviceNode& node, PWDF_MEMORY_DESCRIPTOR input, Time deadline) {
  if (!IsMethodInput(input)) return STATUS_INVALID_PARAMETER;
  return Answer(call, node, {node.config().acpiStatus, node.config().acpiDelay}, {"an ACPI method's end", deadline});
}

// A withdrawn companion's target stays open and reaches nobody.
NTSTATUS SendTo(KernelCall& call, const IoTarget& target, ULONG code, PWDF_MEMORY_DESCRIPTOR input, Time deadline) {
  RequireArgument(call, target.companion != nullptr, "the target is open");
  const std::shared_ptr<const Companion> companion = target.companion;
  if (call.kernel().state().companions.Find(companion->symbolicLink) != companion) return STATUS_DEVICE_NOT_CONNECTED;
  std::span<const std::uint8_t> bytes;
  if (input != nullptr) {
    RequireModelled(call, input->Type == WdfMemoryDescriptorTypeBuffer, "an input that is no plain buffer");
    bytes = {static_cast<const std::uint8_t*>(input->u.BufferType.Buffer), input->u.BufferType.Length};
  }
  return Answer(call, target.node, companion->onControl(code, bytes), {"a companion's answer", deadline});
}

}  // namespace
}  // namespace platform

using namespace platform;

WDFIOTARGET WdfDeviceGetIoTarget(WDFDEVICE Device) {
  KernelCall call("WdfDeviceGetIoTarget", DISPATCH_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  return device.defaultTarget->Handle<WDFIOTARGET>();
}

NTSTATUS WdfIoTargetCreate(WDFDEVICE Device, PWDF_OBJECT_ATTRIBUTES IoTargetAttributes, WDFIOTARGET* IoTarget) {
  KernelCall call("WdfIoTargetCreate", PASSIVE_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  const ObjectOptions options = ReadAttributes(call, IoTargetAttributes, &device);
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  auto target = std::make_unique<platform::IoTarget>(call.kernel(), device.node);
  target->remote = true;
  *IoTarget = call.kernel().objects().Add(std::move(target), options).Handle<WDFIOTARGET>();
  return STATUS_SUCCESS;
}

NTSTATUS WdfIoTargetOpen(WDFIOTARGET IoTarget, PWDF_IO_TARGET_OPEN_PARAMS OpenParams) {
  KernelCall call("WdfIoTargetOpen", PASSIVE_LEVEL);
  platform::IoTarget& target = Resolve<platform::IoTarget>(call, IoTarget);
  RequireArgument(call, OpenParams->Size == sizeof(WDF_IO_TARGET_OPEN_PARAMS), "WDF_IO_TARGET_OPEN_PARAMS.Size");
  RequireArgument(call, target.remote && target.companion == nullptr, "a target of the driver's own that is not open");
  RequireModelled(call, OpenParams->Type == WdfIoTargetOpenByName, "opening a target other than by name");
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  std::shared_ptr<const Companion> companion =
      call.kernel().state().companions.Find(Narrow(OpenParams->TargetDeviceName));
  if (companion == nullptr) return STATUS_OBJECT_NAME_NOT_FOUND;
  if (NT_SUCCESS(companion->openStatus)) target.companion = companion;
  return companion->openStatus;
}

VOID WdfIoTargetClose(WDFIOTARGET IoTarget) {
  KernelCall call("WdfIoTargetClose", PASSIVE_LEVEL);
  platform::IoTarget& target = Resolve<platform::IoTarget>(call, IoTarget);
  RequireArgument(call, target.remote, "a target of the driver's own");
  target.companion = nullptr;
}

NTSTATUS WdfIoTargetSendIoctlSynchronously(WDFIOTARGET IoTarget, WDFREQUEST Request, ULONG IoctlCode,
                                           PWDF_MEMORY_DESCRIPTOR InputBuffer, PWDF_MEMORY_DESCRIPTOR OutputBuffer,
                                           PWDF_REQUEST_SEND_OPTIONS RequestOptions, PULONG_PTR BytesReturned) {
  KernelCall call("WdfIoTargetSendIoctlSynchronously", PASSIVE_LEVEL);
  platform::IoTarget& target = Resolve<platform::IoTarget>(call, IoTarget);
  RequireModelled(call, Request == nullptr, "a request of the driver's own");
  RequireModelled(call, OutputBuffer == nullptr, "an output buffer");
  RequireModelled(call, target.remote || IoctlCode == IOCTL_ACPI_EVAL_METHOD,
                  "a control code to the bus other than an ACPI method");
  const Time deadline = Deadline(call, RequestOptions);
  if (BytesReturned) *BytesReturned = 0;
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  if (target.remote) return SendTo(call, target, IoctlCode, InputBuffer, deadline);
  return EvaluateMethod(call, target.node, InputBuffer, deadline);
}
