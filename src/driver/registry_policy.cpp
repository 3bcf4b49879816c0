// Registry configuration: every value is optional.
#include "driver/registry_policy.h"

#include "include/device_context.h"
#include "include/status.h"
#include "include/trace.h"

namespace {

// KEY_READ.
constexpr ACCESS_MASK kReadAccess = 0x20019;

NTSTATUS QueryBelow(WDFKEY parameters, const REGISTRY_NAME& name, ULONG* value) {
  WDFKEY subkey = nullptr;
  NTSTATUS status = WdfRegistryOpenKey(parameters, &name.Subkey, kReadAccess, WDF_NO_OBJECT_ATTRIBUTES, &subkey);
  if (!NT_SUCCESS(status)) return status;
  status = WdfRegistryQueryULong(subkey, &name.Value, value);
  WdfRegistryClose(subkey);
  return status;
}

NTSTATUS Query(WDFDEVICE device, const REGISTRY_NAME& name, ULONG* value) {
  WDFKEY parameters = nullptr;
  NTSTATUS status =
      WdfDeviceOpenRegistryKey(device, PLUGPLAY_REGKEY_DEVICE, kReadAccess, WDF_NO_OBJECT_ATTRIBUTES, &parameters);
  if (!NT_SUCCESS(status)) return status;
  status = QueryBelow(parameters, name, value);
  WdfRegistryClose(parameters);
  return status;
}

}  // namespace

void BuildTunnelPolicyNames(TUNNEL_POLICY_NAMES* names) {
  RtlInitUnicodeString(&names->Usb3.Subkey, L"USB3Tunnel");
  RtlInitUnicodeString(&names->Usb3.Value, L"USB3TunnelSupported");
  RtlInitUnicodeString(&names->Pcie.Subkey, L"PCIETunnel");
  RtlInitUnicodeString(&names->Pcie.Value, L"PCIETunnelSupported");
  RtlInitUnicodeString(&names->Dp.Subkey, L"DPTunnel");
  RtlInitUnicodeString(&names->Dp.Value, L"DPTunnelSupported");
}

ULONG KivUsb4ReadTunnelSupportFromRegistry(WDFDEVICE device, const REGISTRY_NAME& name) {
  ULONG value = 0;
  const NTSTATUS status = Query(device, name, &value);
  if (!NT_SUCCESS(status)) {
    TraceInfo("registry value missing, its default holds", "status", AsStatus(status));
    return 0;
  }
  return value;
}

void KivUsb4ReadPreOsCmWorkAroundValFromRegistry(WDFDEVICE device) {
  DEVICE_EXTENSION* context = DeviceContextOf(device);
  if (context == nullptr) return;
  REGISTRY_NAME name;
  RtlInitUnicodeString(&name.Subkey, L"PreOSWorkAround");
  RtlInitUnicodeString(&name.Value, L"PreOsCmWorkAroundEnable");
  context->PreOsCmWorkAroundEnable = static_cast<std::uint8_t>(KivUsb4ReadTunnelSupportFromRegistry(device, name));
}
