// Start, stop and suspend of a domain. PASSIVE_LEVEL; each takes the domain's run lock. KivUsb4BusStart is declared
// with the operations that hostif needs from this room.
#pragma once
#include "include/domain_record.h"

// Frees every tunnel and removes every router. With `keepHardware` the tunnels stay programmed, and the next start
// adopts them.
void KivUsb4BusStop(USB4_DOMAIN* domain, bool keepHardware);
// Takes displays down and puts the routers to sleep; a runtime idle arms every wake source, and notes whether there
// were displays to bring back. PCIe and USB3 tunnels stay as they are.
void KivUsb4BusSuspend(USB4_DOMAIN* domain);
