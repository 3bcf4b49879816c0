// I/O targets: the driver below the device, and companion drivers that are opened by name.
#pragma once
#include <memory>

#include "platform/framework/wdf_object.h"
#include "platform/host/companion.h"

namespace platform {

class DeviceNode;

class IoTarget final : public Object {
 public:
  static constexpr ObjectType kType = ObjectType::IoTarget;
  IoTarget(HostKernel& kernel, DeviceNode& owner) : Object(kernel, kType), node(owner) {}

  DeviceNode& node;
  // Made by the driver; the other one is the driver below.
  bool remote = false;
  std::shared_ptr<const Companion> companion;  // while it is open
};

}  // namespace platform
