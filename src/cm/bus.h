// Start, stop and suspend of a domain. PASSIVE_LEVEL; each takes the domain's run lock. KivUsb4BusStart is declared
// with the operations that hostif needs from this room.
#pragma once
#include "include/domain.h"

// Removes every router. With `keepHardware` what is programmed in them stays.
void KivUsb4BusStop(USB4_DOMAIN* domain, bool keepHardware);
// Puts the routers to sleep; a runtime idle arms every wake source.
void KivUsb4BusSuspend(USB4_DOMAIN* domain);
