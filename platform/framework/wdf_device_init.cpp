// WdfDeviceInit*, WdfFdoInit*: what a driver says about a device before it exists. All at PASSIVE_LEVEL.
#include <algorithm>

#include "platform/framework/wdf_device.h"

namespace platform {

PWDFDEVICE_INIT DeviceInits::Create(DeviceNode& node) {
  live_.push_back(std::make_unique<WDFDEVICE_INIT>());
  live_.back()->node = &node;
  return live_.back().get();
}

bool DeviceInits::Known(PWDFDEVICE_INIT init) const {
  return std::any_of(live_.begin(), live_.end(), [&](const auto& live) { return live.get() == init; });
}

void DeviceInits::Free(PWDFDEVICE_INIT init) {
  std::erase_if(live_, [&](const auto& live) { return live.get() == init; });
}

namespace {

WDFDEVICE_INIT& Checked(KernelCall& call, PWDFDEVICE_INIT init) {
  if (!call.kernel().deviceInits().Known(init)) {
    ReportAndStop(call, Rule::HandleStale, "the device init structure is not one that the driver owns now");
  }
  return *init;
}

bool OnlyModelled(const WDF_PNPPOWER_EVENT_CALLBACKS& callbacks) {
  return !callbacks.EvtDeviceSelfManagedIoCleanup && !callbacks.EvtDeviceSelfManagedIoFlush &&
         !callbacks.EvtDeviceSelfManagedIoInit && !callbacks.EvtDeviceSelfManagedIoSuspend &&
         !callbacks.EvtDeviceSelfManagedIoRestart && !callbacks.EvtDeviceQueryRemove && !callbacks.EvtDeviceQueryStop &&
         !callbacks.EvtDeviceUsageNotification && !callbacks.EvtDeviceRelationsQuery &&
         !callbacks.EvtDeviceUsageNotificationEx;
}

}  // namespace
}  // namespace platform

using namespace platform;

VOID WdfDeviceInitSetIoType(PWDFDEVICE_INIT DeviceInit, WDF_DEVICE_IO_TYPE IoType) {
  KernelCall call("WdfDeviceInitSetIoType", PASSIVE_LEVEL);
  RequireModelled(call, IoType == WdfDeviceIoBuffered || IoType == WdfDeviceIoDirect, "this I/O type");
  Checked(call, DeviceInit).ioType = IoType;
}

VOID WdfDeviceInitSetDeviceType(PWDFDEVICE_INIT DeviceInit, DEVICE_TYPE DeviceType) {
  KernelCall call("WdfDeviceInitSetDeviceType", PASSIVE_LEVEL);
  Checked(call, DeviceInit);
  RequireModelled(call, DeviceType == FILE_DEVICE_BUS_EXTENDER || DeviceType == FILE_DEVICE_UNKNOWN,
                  "a device type that changes how requests are handled");
}

VOID WdfDeviceInitSetExclusive(PWDFDEVICE_INIT DeviceInit, BOOLEAN IsExclusive) {
  KernelCall call("WdfDeviceInitSetExclusive", PASSIVE_LEVEL);
  // Clients of this layer send requests without opening the device first, so there is no second open to refuse.
  Checked(call, DeviceInit);
  RequireArgument(call, IsExclusive == TRUE || IsExclusive == FALSE, "IsExclusive");
}

VOID WdfDeviceInitSetPnpPowerEventCallbacks(PWDFDEVICE_INIT DeviceInit,
                                            PWDF_PNPPOWER_EVENT_CALLBACKS PnpPowerEventCallbacks) {
  KernelCall call("WdfDeviceInitSetPnpPowerEventCallbacks", PASSIVE_LEVEL);
  RequireArgument(call, PnpPowerEventCallbacks->Size == sizeof(WDF_PNPPOWER_EVENT_CALLBACKS),
                  "WDF_PNPPOWER_EVENT_CALLBACKS.Size");
  RequireModelled(call, OnlyModelled(*PnpPowerEventCallbacks), "one of these PnP and power callbacks");
  Checked(call, DeviceInit).callbacks = *PnpPowerEventCallbacks;
}

VOID WdfFdoInitSetDefaultChildListConfig(PWDFDEVICE_INIT DeviceInit, PWDF_CHILD_LIST_CONFIG Config,
                                         PWDF_OBJECT_ATTRIBUTES DefaultChildListAttributes) {
  KernelCall call("WdfFdoInitSetDefaultChildListConfig", PASSIVE_LEVEL);
  RequireArgument(call, Config->Size == sizeof(WDF_CHILD_LIST_CONFIG), "WDF_CHILD_LIST_CONFIG.Size");
  RequireArgument(call, Config->IdentificationDescriptionSize >= sizeof(WDF_CHILD_IDENTIFICATION_DESCRIPTION_HEADER),
                  "an identification description without its header");
  RequireArgument(call, Config->EvtChildListCreateDevice != nullptr, "a child list that can't create a device");
  RequireModelled(call, Config->AddressDescriptionSize == 0 && DefaultChildListAttributes == nullptr,
                  "address descriptions or attributes of the default child list");
  Checked(call, DeviceInit).childList = *Config;
}
