// When the device may rest. PASSIVE_LEVEL.
#pragma once
#include "include/domain_record.h"

// A domain without tunnels and without a peer host needs nothing from the device until the next event: its power
// reference goes back.
void RestIfIdle(USB4_DOMAIN* domain);
// A domain with tunnels keeps the device awake; when the framework refuses, it is asked again at the next plug.
void StayAwakeForTunnels(USB4_DOMAIN* domain);
