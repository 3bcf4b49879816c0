// What each bit of a register does: the one place that decides what a write stores and what it is blamed for.
#pragma once
#include <cstdint>
#include <initializer_list>

namespace sim {

enum class BitKind : std::uint8_t {
  ReadOnly,  // fixed; a write that changes it is the driver's mistake
  ReadWrite,
  WriteOneToClear,
  ReadClear,     // a read clears it; writes are ignored
  SelfClearing,  // a written 1 starts something and reads back 0 at once
  ReservedZero,  // must be written 0, whatever it reads
  Preserve,      // must be written back as read
  Status,        // changes by itself; what is written there is ignored, because a reader can never be up to date
};

struct BitField {
  unsigned high;
  unsigned low;
  BitKind kind;
};

// Kinds of the 32 bits of one register. Bits that no field names are read-only.
class RegisterRules {
 public:
  constexpr RegisterRules() = default;
  constexpr RegisterRules(std::initializer_list<BitField> fields) {
    for (const BitField& field : fields) Add(field);
  }

  constexpr std::uint32_t Mask(BitKind kind) const {
    if (kind != BitKind::ReadOnly) return masks_[static_cast<unsigned>(kind)];
    std::uint32_t named = 0;
    for (std::uint32_t mask : masks_) named |= mask;
    return ~named;
  }

 private:
  constexpr void Add(const BitField& field) {
    const std::uint32_t width = field.high - field.low + 1;
    const std::uint32_t bits = (width == 32 ? ~0u : ((1u << width) - 1)) << field.low;
    for (std::uint32_t& mask : masks_) mask &= ~bits;
    if (field.kind != BitKind::ReadOnly) masks_[static_cast<unsigned>(field.kind)] |= bits;
  }

  std::uint32_t masks_[8] = {};
};

inline constexpr RegisterRules kAllReadOnly{};
inline constexpr RegisterRules kAllReadWrite{{31, 0, BitKind::ReadWrite}};
inline constexpr RegisterRules kAllStatus{{31, 0, BitKind::Status}};

struct StoreResult {
  std::uint32_t value = 0;    // what the register holds afterwards
  std::uint32_t started = 0;  // self-clearing bits that were written 1
  // Bits that the write was wrong about: read-only and preserved ones that it changes, reserved ones that it sets.
  std::uint32_t readOnly = 0, preserved = 0, reserved = 0;
};
StoreResult Store(const RegisterRules& rules, std::uint32_t old, std::uint32_t written);

}  // namespace sim
