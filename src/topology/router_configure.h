// Configuring a router, and switching the hot-plug reporting of Thunderbolt 3 ones. PASSIVE_LEVEL.
#pragma once
#include "include/router_record.h"
#include "include/status.h"

// Writes the header with route, depth and the configuration-valid bit, sets a USB4 router up, switches a Thunderbolt 3
// router's plug events on. -1 for a Thunderbolt 3 router without a plug-events capability, and when a USB4 router does
// not become ready; else the error of a failed access.
[[nodiscard]] KIV_RESULT KivUsb4SwitchConfigure(USB4_SWITCH* router);
// The USB4 part of it: tunnelling enables, then the wait for configuration ready.
[[nodiscard]] KIV_RESULT KivUsb4SwitchSetup(USB4_SWITCH* router);

// Switches a Thunderbolt 3 router's plug events on and off: 0, or the error of the first access that failed. USB4
// routers need no switching: 0 without an access.
[[nodiscard]] KIV_RESULT KivUsb4PlugEventsActive(USB4_SWITCH* router, bool active);
