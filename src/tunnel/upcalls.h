// What this room needs from rooms above it, and which room has it.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/device_context.h"
#include "include/host_interface_record.h"
#include "include/router_record.h"

// ioctl: tells the graphics driver the power state (1 D0, 4 D3) of the display at a DP IN of the host router
[[nodiscard]] NTSTATUS KivUsb4SendIoctlToGFXDriver(DEVICE_EXTENSION* context, std::uint8_t adapter,
                                                   std::uint32_t state);
// ioctl: leaves a marker file for the DisplayPort tools, "createdp" or "teardowndp"; the adapter is not looked at
void KivUsb4DpCreateTearDown(USB4_HOST_INTERFACE* hostInterface, const USB4_PORT* adapter, bool create);
