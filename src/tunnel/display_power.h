// What the graphics driver is told about the power of DisplayPort tunnels.
#pragma once
#include "include/device_context.h"
#include "include/domain_record.h"

inline constexpr std::uint32_t kDisplayEnteredD0 = 1;
inline constexpr std::uint32_t kDisplayEntersD3 = 4;

// Sends the event for the DP IN adapter of every listed DisplayPort tunnel; other events, or no domain, send nothing.
// Each message takes up to 2 s. The caller does not hold the path lock, and needs no run lock: a power-down calls this
// before the work loop is stopped. A flow that is aborted begins no further message.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4NotifyGfxDpTunnels(DEVICE_EXTENSION* context, USB4_DOMAIN* domain,
                                                                  std::uint32_t event);
