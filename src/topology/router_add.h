// Adding a configured router. PASSIVE_LEVEL, under the domain's run lock.
#pragma once
#include "include/router_record.h"
#include "include/status.h"

// DROM, UUID, adapters, lane pairs, link attributes and TMU state; then hot-plug events on, and the router is listed.
// The first error ends it.
[[nodiscard]] KIV_RESULT KivUsb4SwitchAdd(USB4_SWITCH* router);
// Hot-plug events of every adapter with a USB4 port capability; stops at the first error.
[[nodiscard]] KIV_RESULT KivUsb4SwitchEnableHotPlug(USB4_SWITCH* router);
// 0, or -1 without memory, or the error of a failed access. Does nothing for a router that has a UUID.
[[nodiscard]] KIV_RESULT KivUsb4SwitchSetUuid(USB4_SWITCH* router);
