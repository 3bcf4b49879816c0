// A DROM image as the driver's own parser takes it.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace lab {

inline constexpr unsigned kUsb4Format = 3;  // the version of an image for USB4 routers

struct DriverDrom {
  bool accepted = false;
  std::uint64_t uid = 0;  // Thunderbolt format only: a USB4 router shows its UID in its registers
  unsigned vendorId = 0, modelId = 0;
  std::string vendorName, deviceName;
  std::vector<unsigned> disabledAdapters;
};

// `image` has the length that its own length field says, at least 23 bytes. The router that the parser fills has every
// adapter that a router can have, none of them known to be a lane adapter.
DriverDrom ParseWithDriver(const std::vector<std::uint8_t>& image);

}  // namespace lab
