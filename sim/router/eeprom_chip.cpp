// The serial EEPROM of a Thunderbolt 3 router: takes bits on the rising edge, gives bits on the falling one.
#include "sim/router/eeprom_chip.h"

namespace sim {
namespace {

constexpr std::uint32_t kReadCommand = 0x03;
constexpr unsigned kCommandBits = 24;  // command and a 16-bit address

}  // namespace

void Eeprom::Deselect() {
  shifted_ = 0;
  bitsIn_ = 0;
  bitsOut_ = 0;
  out_ = false;
}

bool Eeprom::NextBit() {
  const std::uint32_t at = (shifted_ & 0xFFFF) + bitsOut_ / 8;
  const unsigned bit = 7 - bitsOut_ % 8;
  ++bitsOut_;
  return at < content_.size() && (content_[at] >> bit & 1) != 0;
}

bool Eeprom::Lines(std::uint32_t old, std::uint32_t now) {
  if ((now & kLinesInUse) == 0 || (now & kDeselect) != 0) {
    Deselect();
    return false;
  }
  const bool rises = (now & kClock) != 0 && (old & kClock) == 0;
  const bool falls = (now & kClock) == 0 && (old & kClock) != 0;
  if (rises && bitsIn_ < kCommandBits) {
    shifted_ = shifted_ << 1 | ((now & kDataIn) != 0 ? 1u : 0u);
    ++bitsIn_;
  }
  if (falls && bitsIn_ == kCommandBits) out_ = shifted_ >> 16 == kReadCommand && NextBit();
  return out_;
}

}  // namespace sim
