// The standard bus interface: configuration space of the device's own function.
#include "platform/device/device_node.h"
#include "platform/framework/wdf_device.h"

#include <cstring>

namespace platform {
namespace {

constexpr GUID kBusInterfaceStandard = {0x496b8280, 0x6f25, 0x11d0, {0xbe, 0xaf, 0x08, 0x00, 0x2b, 0xe2, 0x09, 0x2f}};

void InterfaceReference(PVOID context) {
  KernelCall call("BUS_INTERFACE_STANDARD.InterfaceReference", DISPATCH_LEVEL);
  ++static_cast<DeviceNode*>(context)->busInterfaceReferences;
}

void InterfaceDereference(PVOID context) {
  KernelCall call("BUS_INTERFACE_STANDARD.InterfaceDereference", DISPATCH_LEVEL);
  RequireArgument(call, --static_cast<DeviceNode*>(context)->busInterfaceReferences >= 0,
                  "a bus interface that is given back once too often");
}

void CheckAccess(KernelCall& call, ULONG space, ULONG offset, ULONG length) {
  RequireModelled(call, space == PCI_WHICHSPACE_CONFIG, "a space other than the configuration space");
  RequireModelled(call, offset % 4 == 0 && length % 4 == 0, "configuration accesses that are no aligned dwords");
  RequireArgument(call, offset < kConfigBytes && length <= kConfigBytes - offset, "an offset past 0xFC");
}

ULONG GetBusData(PVOID context, ULONG space, PVOID buffer, ULONG offset, ULONG length) {
  KernelCall call("BUS_INTERFACE_STANDARD.GetBusData", DISPATCH_LEVEL);
  CheckAccess(call, space, offset, length);
  for (ULONG done = 0; done < length; done += 4) {
    const ULONG value = static_cast<DeviceNode*>(context)->ReadConfig(offset + done);
    std::memcpy(static_cast<std::byte*>(buffer) + done, &value, sizeof(value));
  }
  return length;
}

ULONG SetBusData(PVOID context, ULONG space, PVOID buffer, ULONG offset, ULONG length) {
  KernelCall call("BUS_INTERFACE_STANDARD.SetBusData", DISPATCH_LEVEL);
  CheckAccess(call, space, offset, length);
  for (ULONG done = 0; done < length; done += 4) {
    ULONG value;
    std::memcpy(&value, static_cast<std::byte*>(buffer) + done, sizeof(value));
    static_cast<DeviceNode*>(context)->WriteConfig(offset + done, value);
  }
  return length;
}

}  // namespace
}  // namespace platform

using namespace platform;

// Hands the interface out with one reference, which the driver gives back through InterfaceDereference.
NTSTATUS WdfFdoQueryForInterface(WDFDEVICE Fdo, LPCGUID InterfaceType, PINTERFACE Interface, USHORT Size,
                                 USHORT Version, PVOID InterfaceSpecificData) {
  KernelCall call("WdfFdoQueryForInterface", PASSIVE_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Fdo);
  RequireModelled(call, *InterfaceType == kBusInterfaceStandard && InterfaceSpecificData == nullptr,
                  "an interface other than the standard bus interface");
  RequireArgument(call, Size == sizeof(BUS_INTERFACE_STANDARD) && Version == 1, "size or version of the interface");
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  BUS_INTERFACE_STANDARD bus{};
  bus.Size = Size;
  bus.Version = Version;
  bus.Context = &device.node;
  bus.InterfaceReference = InterfaceReference;
  bus.InterfaceDereference = InterfaceDereference;
  bus.SetBusData = SetBusData;
  bus.GetBusData = GetBusData;
  std::memcpy(Interface, &bus, sizeof(bus));
  ++device.node.busInterfaceReferences;
  return STATUS_SUCCESS;
}

// Up to DISPATCH_LEVEL. The device object below the driver's own: here the bus driver's.
PDEVICE_OBJECT WdfDeviceWdmGetAttachedDevice(WDFDEVICE Device) {
  KernelCall call("WdfDeviceWdmGetAttachedDevice", DISPATCH_LEVEL);
  return Resolve<platform::Device>(call, Device).node.bus.object();
}
