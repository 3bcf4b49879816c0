// A router's DROM image, built from its model.
#pragma once
#include <cstdint>
#include <vector>

#include "sim/router/router_model.h"

namespace sim {

// Empty when the model has none.
std::vector<std::uint8_t> BuildDrom(const RouterModel& model);
// CRC-8 over the UID bytes as the image stores them: polynomial 0x07, initial value 0xFF, most significant bit first.
std::uint8_t DromCrc8(const std::uint8_t* bytes, unsigned count);

}  // namespace sim
