// WdfDeviceCreate and what a device says about itself.
#include "platform/framework/wdf_device.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/device/device_node.h"
#include "platform/framework/wdf_driver.h"
#include "platform/framework/wdf_io_target.h"
#include "platform/framework/wdf_resources.h"
#include "platform/kernel/text.h"

namespace platform {

Device::Device(DeviceNode& owner, const WDFDEVICE_INIT& init)
    : Object(owner.kernel(), kType),
      node(owner),
      callbacks(init.callbacks),
      ioType(init.ioType),
      childListConfig(init.childList) {}

void Device::Release() {
  node.device = nullptr;
}

std::size_t Device::IndexOfDescriptors(const CM_PARTIAL_RESOURCE_DESCRIPTOR* raw,
                                       const CM_PARTIAL_RESOURCE_DESCRIPTOR* translated) const {
  const std::size_t index = rawResources->IndexOf(raw);
  return index == translatedResources->IndexOf(translated) ? index : rawResources->size();
}

namespace {

// The hardware IDs as the property holds them: each ends with a null, the list with one more.
std::u16string HardwareIds(const std::string& first) {
  std::u16string ids(first.begin(), first.end());
  ids += u'\0';
  if (const std::size_t subsystem = first.find("&SUBSYS"); subsystem != std::string::npos) {
    ids.append(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(subsystem));
    ids += u'\0';
  }
  ids += u'\0';
  return ids;
}

bool AllDefault(const WDF_DEVICE_STATE& state) {
  const WDF_TRI_STATE values[] = {state.Disabled, state.DontDisplayInUI,  state.Failed,         state.NotDisableable,
                                  state.Removed,  state.ResourcesChanged, state.AssignedToGuest};
  return std::all_of(std::begin(values), std::end(values), [](WDF_TRI_STATE value) { return value == WdfUseDefault; });
}

}  // namespace
}  // namespace platform

using namespace platform;

NTSTATUS WdfDeviceCreate(PWDFDEVICE_INIT* DeviceInit, PWDF_OBJECT_ATTRIBUTES DeviceAttributes, WDFDEVICE* Device) {
  KernelCall call("WdfDeviceCreate", PASSIVE_LEVEL);
  if (!call.kernel().deviceInits().Known(*DeviceInit)) {
    ReportAndStop(call, Rule::HandleStale, "the device init structure is not one that the driver owns now");
  }
  WDFDEVICE_INIT& init = **DeviceInit;
  RequireArgument(call, !DeviceAttributes || !DeviceAttributes->ParentObject, "a device's parent is the driver");
  const ObjectOptions options = ReadAttributes(call, DeviceAttributes, call.kernel().driver().object);
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  DeviceNode& node = *init.node;
  node.device = &call.kernel().objects().Add(std::make_unique<platform::Device>(node, init), options);
  node.device->defaultTarget = &call.kernel().objects().Add(std::make_unique<IoTarget>(call.kernel(), node),
                                                            ObjectOptions{.parent = node.device});
  call.kernel().deviceInits().Free(*DeviceInit);
  *DeviceInit = nullptr;
  *Device = node.device->handle();
  return STATUS_SUCCESS;
}

NTSTATUS WdfDeviceQueryProperty(WDFDEVICE Device, DEVICE_REGISTRY_PROPERTY DeviceProperty, ULONG BufferLength,
                                PVOID PropertyBuffer, PULONG ResultLength) {
  KernelCall call("WdfDeviceQueryProperty", PASSIVE_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  RequireModelled(call, DeviceProperty == DevicePropertyHardwareID, "a property other than the hardware ID");
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  const std::u16string ids = HardwareIds(device.node.config().hardwareId);
  const std::size_t bytes = ids.size() * sizeof(char16_t);
  *ResultLength = static_cast<ULONG>(bytes);
  if (bytes > BufferLength) return STATUS_BUFFER_TOO_SMALL;
  std::memcpy(PropertyBuffer, ids.data(), bytes);
  return STATUS_SUCCESS;
}

NTSTATUS WdfDeviceCreateDeviceInterface(WDFDEVICE Device, CONST GUID* InterfaceClassGUID,
                                        PCUNICODE_STRING ReferenceString) {
  KernelCall call("WdfDeviceCreateDeviceInterface", PASSIVE_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  RequireModelled(call, ReferenceString == nullptr, "a reference string of a device interface");
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  device.interfaces.push_back(GuidText(*InterfaceClassGUID));
  return STATUS_SUCCESS;
}

VOID WdfDeviceSetAlignmentRequirement(WDFDEVICE Device, ULONG AlignmentRequirement) {
  KernelCall call("WdfDeviceSetAlignmentRequirement", DISPATCH_LEVEL);
  RequireArgument(call, (AlignmentRequirement & (AlignmentRequirement + 1)) == 0, "an alignment is a mask of low bits");
  // Common buffers are aligned to 16 bytes at least, whatever a device asks for.
  RequireModelled(call, AlignmentRequirement < 16, "an alignment of more than 16 bytes");
  Resolve<platform::Device>(call, Device).alignment = AlignmentRequirement;
}

VOID WdfDeviceSetDeviceState(WDFDEVICE Device, PWDF_DEVICE_STATE DeviceState) {
  KernelCall call("WdfDeviceSetDeviceState", PASSIVE_LEVEL);
  Resolve<platform::Device>(call, Device);
  RequireArgument(call, DeviceState->Size == sizeof(WDF_DEVICE_STATE), "WDF_DEVICE_STATE.Size");
  RequireModelled(call, AllDefault(*DeviceState), "a device state other than the default");
}
