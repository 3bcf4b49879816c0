// The default I/O target is the bus below the device, which evaluates ACPI methods. Time-outs are in virtual time.
#include "platform/wdf_io_target.h"
#include "platform/device_node.h"
#include "platform/wdf_device.h"

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

NTSTATUS EvaluateMethod(KernelCall& call, const DeviceNode& node, PWDF_MEMORY_DESCRIPTOR input, Time deadline) {
  if (!IsMethodInput(input)) return STATUS_INVALID_PARAMETER;
  const Time answered = call.scheduler().Now() + node.config().acpiDelay;
  if (node.config().acpiDelay > 0) {
    call.scheduler().Park("an ACPI method's end", &node, std::min(answered, deadline));
  }
  return answered > deadline ? STATUS_IO_TIMEOUT : node.config().acpiStatus;
}

}  // namespace
}  // namespace platform

using namespace platform;

WDFIOTARGET WdfDeviceGetIoTarget(WDFDEVICE Device) {
  KernelCall call("WdfDeviceGetIoTarget", DISPATCH_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  return device.defaultTarget->Handle<WDFIOTARGET>();
}

NTSTATUS WdfIoTargetSendIoctlSynchronously(WDFIOTARGET IoTarget, WDFREQUEST Request, ULONG IoctlCode,
                                           PWDF_MEMORY_DESCRIPTOR InputBuffer, PWDF_MEMORY_DESCRIPTOR OutputBuffer,
                                           PWDF_REQUEST_SEND_OPTIONS RequestOptions, PULONG_PTR BytesReturned) {
  KernelCall call("WdfIoTargetSendIoctlSynchronously", PASSIVE_LEVEL);
  platform::IoTarget& target = Resolve<platform::IoTarget>(call, IoTarget);
  RequireModelled(call, Request == nullptr, "a request of the driver's own");
  RequireModelled(call, IoctlCode == IOCTL_ACPI_EVAL_METHOD && OutputBuffer == nullptr,
                  "a control code other than an ACPI method without output");
  const Time deadline = Deadline(call, RequestOptions);
  if (BytesReturned) *BytesReturned = 0;
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  return EvaluateMethod(call, target.node, InputBuffer, deadline);
}
