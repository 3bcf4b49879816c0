// What stands at protocol adapters, and what firmware has programmed: read from a scenario file, checked where it is
// written.
#pragma once
#include <string>

#include "lab/scenario/topology_input.h"
#include "sim/dataplane/usb3_function.h"

namespace lab {

// Every mistake is told at the key that holds it.
// Keys `adapter`, `mbpsPerLane`, `lanes`, `readyAfter`, `answers`.
DisplayConfig ReadDisplay(TableReader& table, TopologyInput& topology);
// Key `adapter`: a DP OUT.
std::string ReadDisplayPlace(TableReader& table, TopologyInput& topology);
// Keys `adapter`, `up`, `down` (Mb/s), `gbps`, `answers`.
Usb3Config ReadUsb3(TableReader& table, TopologyInput& topology);
// Keys `kind`, `from`, `to`, `state`, `up`, `down`, `reserved`, `lane`.
sim::FirmwareTunnel ReadFirmwareTunnel(TableReader& table, TopologyInput& topology);

}  // namespace lab
