// Switching a Thunderbolt 3 router's hot-plug reporting on and off. PASSIVE_LEVEL.
#pragma once
#include "include/router_record.h"
#include "include/status.h"

// USB4 routers need no switching: 0 without an access. Else 0, or the error of the first access that failed.
[[nodiscard]] KIV_RESULT KivUsb4PlugEventsActive(USB4_SWITCH* router, bool active);
