// Named bit fields of 32-bit words: packets, descriptors and registers alike. A mask or shift stands nowhere else.
#pragma once
#include <cstdint>

template <unsigned Low, unsigned Width>
struct Bits {
  static_assert(Width >= 1 && Low + Width <= 32);
  static constexpr std::uint32_t kMask = static_cast<std::uint32_t>((std::uint64_t{1} << Width) - 1) << Low;

  static constexpr std::uint32_t Get(std::uint32_t word) { return (word & kMask) >> Low; }
  // The field alone, in place; what does not fit is cut off.
  static constexpr std::uint32_t Of(std::uint32_t value) { return value << Low & kMask; }
  // In place with nothing cut off: what does not fit spills into the bits above.
  static constexpr std::uint32_t Spill(std::uint32_t value) { return value << Low; }
  static constexpr std::uint32_t Put(std::uint32_t word, std::uint32_t value) { return (word & ~kMask) | Of(value); }
};

template <unsigned Position>
using Bit = Bits<Position, 1>;
