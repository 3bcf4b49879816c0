// The framework's device object, and the init structure that becomes one.
#pragma once
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "platform/framework/wdf_object.h"

namespace platform {
class DeviceNode;
}

// What the driver asks for before the device exists. The platform's own record behind the published opaque name.
struct WDFDEVICE_INIT__ {
  platform::DeviceNode* node = nullptr;
  WDF_PNPPOWER_EVENT_CALLBACKS callbacks{};
  WDF_DEVICE_IO_TYPE ioType = WdfDeviceIoBuffered;
  std::optional<WDF_CHILD_LIST_CONFIG> childList;
};

namespace platform {

class Interrupt;
class IoTarget;
class Queue;
class ResourceList;

constexpr std::size_t kRequestTypes = 32;

class Device final : public Object {
 public:
  static constexpr ObjectType kType = ObjectType::Device;
  Device(DeviceNode& node, const WDFDEVICE_INIT& init);
  void Release() override;
  WDFDEVICE handle() const { return Handle<WDFDEVICE>(); }

  DeviceNode& node;
  const WDF_PNPPOWER_EVENT_CALLBACKS callbacks;
  const WDF_DEVICE_IO_TYPE ioType;
  const std::optional<WDF_CHILD_LIST_CONFIG> childListConfig;
  ULONG alignment = FILE_BYTE_ALIGNMENT;
  std::array<Queue*, kRequestTypes> routes{};  // by WDF_REQUEST_TYPE; null: to the default queue
  Queue* defaultQueue = nullptr;
  std::vector<Queue*> queues;
  bool acceptsRequests = false;    // from device add to the beginning of removal
  std::int64_t requestsOwned = 0;  // by the driver; removal waits for them
  std::int64_t managedOwned = 0;   // those of power-managed queues; leaving D0 waits for them
  Task* requestWaiter = nullptr;
  std::vector<Interrupt*> interrupts;  // in order of creation
  IoTarget* defaultTarget = nullptr;
  bool preparing = false;                // interrupts made now go with release hardware
  ResourceList* rawResources = nullptr;  // while the hardware is prepared
  ResourceList* translatedResources = nullptr;
  // The index of the resource whose two descriptors these are; past the end when they are not of one resource.
  std::size_t IndexOfDescriptors(const CM_PARTIAL_RESOURCE_DESCRIPTOR* raw,
                                 const CM_PARTIAL_RESOURCE_DESCRIPTOR* translated) const;
  std::vector<std::string> interfaces;  // class GUIDs as "{...}"
};

// The init structures that live, so that one used after WdfDeviceCreate has freed it is caught.
class DeviceInits {
 public:
  PWDFDEVICE_INIT Create(DeviceNode& node);
  bool Known(PWDFDEVICE_INIT init) const;
  void Free(PWDFDEVICE_INIT init);

 private:
  std::vector<std::unique_ptr<WDFDEVICE_INIT>> live_;
};

}  // namespace platform
