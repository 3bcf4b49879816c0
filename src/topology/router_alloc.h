// Making a router's record. PASSIVE_LEVEL, under the domain's run lock.
//
// A router's life: allocated (header read, nothing written), configured, added (described and listed), linked by the
// scan, and removed, or first marked unplugged and then removed.
#pragma once
#include "include/config_space.h"
#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/status.h"

// A router, or why there is none: -12 no memory or an unreadable header, -49 too deep, else the error of the question
// through which adapter it answers (-5: an error packet, so another host may stand there).
struct ROUTER_OR_ERROR {
  USB4_SWITCH* Switch;
  KIV_RESULT Error;  // 0 with a router
};

// Reads the header of the router at `route` and makes its record; `parent` is null for the host router. The parent's
// adapter is unlocked first.
[[nodiscard]] ROUTER_OR_ERROR KivUsb4SwitchAlloc(USB4_DOMAIN* domain, USB4_SWITCH* parent, USB4_ROUTE route);
