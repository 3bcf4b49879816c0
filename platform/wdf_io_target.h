// I/O targets: the driver below the device.
#pragma once
#include "platform/wdf_object.h"

namespace platform {

class DeviceNode;

class IoTarget final : public Object {
 public:
  static constexpr ObjectType kType = ObjectType::IoTarget;
  IoTarget(HostKernel& kernel, DeviceNode& owner) : Object(kernel, kType), node(owner) {}

  DeviceNode& node;
};

}  // namespace platform
