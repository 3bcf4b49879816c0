// What an administrator decides, read from subkeys of the device-parameters key.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include "include/domain_record.h"

// One value: the subkey of the device-parameters key, and the value's name.
struct REGISTRY_NAME {
  UNICODE_STRING Subkey;
  UNICODE_STRING Value;
};

struct TUNNEL_POLICY_NAMES {
  REGISTRY_NAME Usb3;
  REGISTRY_NAME Pcie;
  REGISTRY_NAME Dp;  // never queried: DisplayPort tunnelling is not configurable
};

_IRQL_requires_max_(PASSIVE_LEVEL) void BuildTunnelPolicyNames(TUNNEL_POLICY_NAMES* names);
// The value as a number; 0 when the subkey or the value is missing.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] ULONG
    KivUsb4ReadTunnelSupportFromRegistry(WDFDEVICE device, const REGISTRY_NAME& name);
// Into the device context.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4ReadPreOsCmWorkAroundValFromRegistry(WDFDEVICE device);
