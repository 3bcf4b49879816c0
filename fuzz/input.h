// The bytes of an input that is a row of records, and what they become on the wire.
#pragma once
#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "sim/host/wire_packet.h"

namespace fuzz {

inline constexpr std::size_t kMostRecords = 64;

// What the input lacks reads as zero.
class Input {
 public:
  explicit Input(std::span<const std::uint8_t> bytes) : rest_(bytes) {}
  bool Empty() const { return rest_.empty(); }
  std::uint32_t Byte() {
    if (rest_.empty()) return 0;
    const std::uint8_t byte = rest_.front();
    rest_ = rest_.subspan(1);
    return byte;
  }
  std::uint32_t Half() {
    const std::uint32_t low = Byte();
    return low | Byte() << 8;
  }
  std::uint32_t Word() {
    const std::uint32_t low = Half();
    return low | Half() << 16;
  }
  std::vector<std::uint8_t> Bytes(std::size_t count) {
    const auto taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return {taken.begin(), taken.end()};
  }

 private:
  std::span<const std::uint8_t> rest_;
};

inline void AppendCrc(std::vector<std::uint8_t>& bytes) {
  const std::uint32_t crc = sim::Crc32c(bytes);
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<std::uint8_t>(crc >> shift));
}

}  // namespace fuzz
