// What a DROM image tells the manager of a D1 hub, taken from the image a second time and another way, so that the
// driver's parser has something to be compared with. Shares no code with it; the CRCs are the hardware model's.
#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace fuzz {

// Adapters of a D1 by number; 1 to 8 are its lane adapters.
inline constexpr unsigned kHubAdapters = 20;

struct AdapterReading {
  bool disabled = false;
  bool secondLane = false;
  std::optional<unsigned> partner;
  bool operator==(const AdapterReading&) const = default;
};

struct DromReading {
  bool accepted = false;
  std::optional<std::string> vendorName, deviceName;
  unsigned vendorId = 0, modelId = 0;
  std::uint64_t uid = 0;  // Thunderbolt format only
  std::array<AdapterReading, kHubAdapters> adapters;
  bool operator==(const DromReading&) const = default;
};

std::string Text(const DromReading& reading);

// `image` has at least 23 bytes. Entries in front of the one that breaks it keep their effect.
DromReading ReadImage(std::span<const std::uint8_t> image);
// What arrives when a router that holds `content` is asked for its image, first showing its length field with the bits
// of `lie` turned round; nothing when it is refused unread.
std::optional<std::vector<std::uint8_t>> ArrivingImage(std::span<const std::uint8_t> content, std::uint16_t lie);

}  // namespace fuzz
