#include "platform/device/bus_device.h"

#include <cstring>

#include "platform/device/device_node.h"
#include "platform/kernel/request_packet.h"

namespace platform {
namespace {

// Configuration space may be read at any time while the device is there; a function that is gone reads all ones.
NTSTATUS ReadConfigSpace(KernelCall& call, DeviceNode& node, IRP& request) {
  const auto& read = IoGetCurrentIrpStackLocation(&request)->Parameters.ReadWriteConfig;
  if (read.WhichSpace != PCI_WHICHSPACE_CONFIG || read.Offset % 4 != 0 || read.Length % 4 != 0) {
    call.Report(Rule::NotModelled, "a read that is no aligned dwords of the configuration space");
  }
  if (!read.Buffer || read.Offset >= kConfigBytes || read.Length > kConfigBytes - read.Offset) {
    return CompleteIoRequest(call, request, STATUS_INVALID_PARAMETER, 0);
  }
  const ULONG length = read.Length;
  for (ULONG done = 0; done < length; done += 4) {
    const ULONG value = node.ReadConfig(read.Offset + done);
    std::memcpy(static_cast<std::byte*>(read.Buffer) + done, &value, sizeof value);
  }
  return CompleteIoRequest(call, request, STATUS_SUCCESS, length);
}

NTSTATUS HandlePnp(DEVICE_OBJECT* device, IRP* request) {
  KernelCall call("PnP packet", PASSIVE_LEVEL);
  const UCHAR minor = IoGetCurrentIrpStackLocation(request)->MinorFunction;
  if (minor != IRP_MN_READ_CONFIG) {
    call.Report(Rule::NotModelled, "PnP packet " + std::to_string(minor));
    return CompleteIoRequest(call, *request, STATUS_NOT_SUPPORTED, 0);
  }
  return ReadConfigSpace(call, *static_cast<DeviceNode*>(device->DeviceExtension), *request);
}

}  // namespace

BusDevice::BusDevice(DeviceNode& node) {
  driver_.MajorFunction[IRP_MJ_PNP] = HandlePnp;
  object_.DriverObject = &driver_;
  object_.DeviceExtension = &node;
  object_.StackSize = 1;
}

}  // namespace platform
