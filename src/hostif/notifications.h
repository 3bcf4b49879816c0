// From a notification packet to an event on the connection manager's list.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/config_space.h"
#include "include/domain_record.h"

struct USB4_HOTPLUG_CHANGE {
  USB4_ROUTE Route;  // of the router that saw it
  std::uint8_t Adapter;
  bool Unplug;
};

// The connection manager's side of unsolicited packets: a hot-plug event (type 5) is queued unless a power-down runs;
// everything else is ignored.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4HandleEvent(USB4_DOMAIN* domain, std::uint32_t pdf,
                                                           const std::uint32_t* packet, std::uint32_t bytes);
// Without memory the event is dropped; the router repeats it.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4QueueHotplug(USB4_DOMAIN* domain, const USB4_HOTPLUG_CHANGE& change);
