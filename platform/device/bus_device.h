// The bus driver's end of a device: the device object at the bottom of its stack, to which packets come that a driver
// above sends down.
#pragma once
#include "platform/include/wdm_io.h"

namespace platform {

class DeviceNode;

inline constexpr ULONG kConfigBytes = 256;  // of the configuration space

class BusDevice {
 public:
  explicit BusDevice(DeviceNode& node);
  BusDevice(const BusDevice&) = delete;
  BusDevice& operator=(const BusDevice&) = delete;

  DEVICE_OBJECT* object() { return &object_; }

 private:
  DRIVER_OBJECT driver_{};
  DEVICE_OBJECT object_{};
};

}  // namespace platform
