// The ways into and out of D0: framework callbacks, interrupts and the function's own power, in the documented order.
// On a task that holds the device's transition lock.
#pragma once
#include "platform/device/device_node.h"
#include "platform/framework/wdf_device.h"

namespace platform {

// D0 entry, interrupts connected, post-interrupts-enabled, held requests presented. On failure what has been done is
// undone and the device is out of D0, its hardware still prepared.
Status EnterD0(Device& device, WDF_POWER_DEVICE_STATE previous);
// Waits for the driver's requests, pre-interrupts-disabled, interrupts disconnected, D0 exit.
// D3Final leaves the registers reachable, for release hardware.
void LeaveD0(Device& device, WDF_POWER_DEVICE_STATE target);

// One PnP or power callback of the driver; STATUS_SUCCESS when it has none.
template <class Callback, class... Arguments>
Status CallPower(Device& device, const char* name, Callback callback, Arguments... arguments) {
  if (callback == nullptr) return STATUS_SUCCESS;
  CallbackContextScope context(CallbackContext::Kind::Power, &device.node);
  return CallDriver(device.kernel(), name, [&] { return callback(device.handle(), arguments...); });
}

// Tells the sinks: `step` of the device, in PnP or power.
void EmitPower(DeviceNode& node, const char* step);

}  // namespace platform
