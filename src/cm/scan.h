// Finding routers: one adapter, or all adapters of a router, each down to the leaves. PASSIVE_LEVEL, under the domain's
// run lock.
#pragma once
#include "include/router_record.h"

// A router behind the adapter that is not known yet is allocated, configured, added, linked, and scanned in turn. A
// failure ends the scan of this adapter and is traced; the router is tried again at its next plug event.
void KivUsb4ScanPort(USB4_PORT* adapter);
// Adapters 1 to the maximum, in order.
void KivUsb4ScanSwitch(USB4_SWITCH* router);
