// The serial EEPROM of a Thunderbolt 3 router, behind four lines of the plug-events capability. It sees clock edges,
// nothing else: clocked wrong, it answers wrong.
#pragma once
#include <cstdint>
#include <vector>

namespace sim {

class Eeprom {
 public:
  // Control dword: bit 0 clock, bit 1 deselect, bit 2 data to the part, bit 3 data from it, bit 4 lines in use.
  static constexpr std::uint32_t kClock = 1u << 0;
  static constexpr std::uint32_t kDeselect = 1u << 1;
  static constexpr std::uint32_t kDataIn = 1u << 2;
  static constexpr std::uint32_t kDataOut = 1u << 3;
  static constexpr std::uint32_t kLinesInUse = 1u << 4;

  void SetContent(std::vector<std::uint8_t> content) { content_ = std::move(content); }
  // The lines change from `old` to `now`; gives the level of the data line from the part.
  bool Lines(std::uint32_t old, std::uint32_t now);

 private:
  void Deselect();
  bool NextBit();

  std::vector<std::uint8_t> content_;
  std::uint32_t shifted_ = 0;  // command and address, as far as they have come in
  unsigned bitsIn_ = 0;
  std::uint32_t bitsOut_ = 0;
  bool out_ = false;
};

}  // namespace sim
