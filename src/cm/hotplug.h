// Handling of one hot-plug notification. PASSIVE_LEVEL, under the domain's run lock.
#pragma once
#include "include/work.h"

// Plugged routers are scanned, unplugged ones removed with everything behind them. Nothing happens while the domain is
// not started, nor for adapters that the topology does not have or through which it is reached.
void KivUsb4HandleHotplug(const USB4_HOTPLUG_EVENT& event);
