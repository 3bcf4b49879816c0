// The framework's registry keys. All at PASSIVE_LEVEL.
#include <cstring>

#include "platform/device/device_node.h"
#include "platform/framework/wdf_device.h"
#include "platform/framework/wdf_driver.h"
#include "platform/kernel/registry.h"
#include "platform/kernel/text.h"

namespace platform {
namespace {

class Key final : public Object {
 public:
  static constexpr ObjectType kType = ObjectType::Key;
  Key(HostKernel& kernel, RegistryKey& opened) : Object(kernel, kType), key(opened) {}

  RegistryKey& key;
};

NTSTATUS Open(KernelCall& call, RegistryKey* found, ACCESS_MASK access, const ObjectOptions& options, WDFKEY* key) {
  RequireModelled(call, access == KEY_READ || access == KEY_QUERY_VALUE, "opening a key for anything but reading");
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  if (found == nullptr) return STATUS_OBJECT_NAME_NOT_FOUND;
  auto object = std::make_unique<Key>(call.kernel(), *found);
  *key = call.kernel().objects().Add(std::move(object), options).Handle<WDFKEY>();
  return STATUS_SUCCESS;
}

}  // namespace
}  // namespace platform

using namespace platform;

NTSTATUS WdfDeviceOpenRegistryKey(WDFDEVICE Device, ULONG DeviceInstanceKeyType, ACCESS_MASK DesiredAccess,
                                  PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY* Key) {
  KernelCall call("WdfDeviceOpenRegistryKey", PASSIVE_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  RequireModelled(call, DeviceInstanceKeyType == PLUGPLAY_REGKEY_DEVICE, "a key other than the device's own");
  RegistryKey* found = call.kernel().registry().Find(device.node.registryPath());
  return Open(call, found, DesiredAccess, ReadAttributes(call, KeyAttributes, &device), Key);
}

NTSTATUS WdfRegistryOpenKey(WDFKEY ParentKey, PCUNICODE_STRING KeyName, ACCESS_MASK DesiredAccess,
                            PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY* Key) {
  KernelCall call("WdfRegistryOpenKey", PASSIVE_LEVEL);
  RequireModelled(call, ParentKey != nullptr, "a key by its full path");
  platform::Key& parent = Resolve<platform::Key>(call, ParentKey);
  RegistryKey* found = parent.key.Find(Narrow(*KeyName));
  return Open(call, found, DesiredAccess, ReadAttributes(call, KeyAttributes, call.kernel().driver().object), Key);
}

NTSTATUS WdfRegistryQueryULong(WDFKEY Key, PCUNICODE_STRING ValueName, PULONG Value) {
  KernelCall call("WdfRegistryQueryULong", PASSIVE_LEVEL);
  const platform::Key& key = Resolve<platform::Key>(call, Key);
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  const RegistryValue* value = key.key.Value(Narrow(*ValueName));
  if (value == nullptr) return STATUS_OBJECT_NAME_NOT_FOUND;
  if (value->type != REG_DWORD || value->data.size() != sizeof(ULONG)) return STATUS_OBJECT_TYPE_MISMATCH;
  std::memcpy(Value, value->data.data(), sizeof(ULONG));
  return STATUS_SUCCESS;
}

VOID WdfRegistryClose(WDFKEY Key) {
  KernelCall call("WdfRegistryClose", PASSIVE_LEVEL);
  call.kernel().objects().Delete(call, Resolve<platform::Key>(call, Key));
}
