// Describing the adapters of a router that is added. PASSIVE_LEVEL, under the domain's run lock.
#pragma once
#include "include/router_record.h"
#include "include/status.h"

// Reads one adapter's header and capabilities. An adapter whose header cannot be read is marked disabled, which is no
// error.
[[nodiscard]] KIV_RESULT KivUsb4InitPort(USB4_PORT* adapter);
// Settles the pairs that a DROM has named, then makes partners of neighbouring lane adapters that have none: the lower
// number becomes lane 0. Afterwards each pair is two lane adapters that are each other's partner, one of them lane 1.
void KivUsb4SwitchDefaultLinkPorts(USB4_SWITCH* router);
