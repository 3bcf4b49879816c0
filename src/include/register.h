// What a configuration register is: a type that names its block, its offset and its fields. The layouts stand in
// registers.h; masks and shifts appear nowhere else.
//
// A field belongs to its register: reading or setting it on the word of another one does not compile. Each layout tiles
// its 32 bits: a field that overlaps another, or a bit that no line accounts for, does not compile either.
#pragma once
#include <cstdint>
#include <type_traits>

#include "include/bits.h"
#include "include/config_space.h"

// Where a register's offset counts from.
template <USB4_CFG_SPACE Space>
struct RegisterBlock {
  static constexpr USB4_CFG_SPACE kSpace = Space;
};

// `Offset` counts dwords from the start of the block.
template <class RegisterBlockType, std::uint32_t Offset>
struct Register {
  using Block = RegisterBlockType;
  static constexpr std::uint32_t kOffset = Offset;

  // Bits High to Low, both included, as the tables write them.
  template <unsigned High, unsigned Low>
  struct Field : Bits<Low, High - Low + 1> {
    using Owner = Register;
  };
  template <unsigned Position>
  using Bit = Field<Position, Position>;
  // Bits that this driver neither reads nor changes; a read-modify-write carries them over.
  template <unsigned High, unsigned Low = High>
  using Kept = Field<High, Low>;

  // One register's word.
  class Value {
   public:
    constexpr Value() = default;
    constexpr explicit Value(std::uint32_t word) : word_(word) {}
    constexpr std::uint32_t Word() const { return word_; }

    template <class F>
    constexpr std::uint32_t Get() const {
      static_assert(kIsOwnField<F>);
      return F::Get(word_);
    }
    template <class F>
    constexpr bool IsSet() const {
      return Get<F>() != 0;
    }
    // What does not fit the field is cut off.
    template <class F>
    constexpr void Set(std::uint32_t value) {
      static_assert(kIsOwnField<F>);
      word_ = F::Put(word_, value);
    }

   private:
    template <class F>
    static constexpr bool kIsOwnField = std::is_same_v<typename F::Owner, Register>;

    std::uint32_t word_ = 0;
  };
  static_assert(sizeof(Value) == sizeof(std::uint32_t));

  // Together the fields name every bit exactly once.
  template <class... Fields>
  static constexpr bool kTiles = ((std::uint64_t{Fields::kMask} + ...) == 0xFFFFFFFFu) &&
                                 ((Fields::kMask | ...) == 0xFFFFFFFFu);
};

// `Count` registers in a row whose words are data without fields.
template <class RegisterBlockType, std::uint32_t Offset, std::uint32_t Count>
struct RegisterArray {
  using Block = RegisterBlockType;
  static constexpr std::uint32_t kOffset = Offset;
  static constexpr std::uint32_t kCount = Count;

  // The array's place when its block starts at `base`.
  static constexpr USB4_REGISTER_RANGE At(std::uint64_t base) { return {Block::kSpace, base + Offset, Count}; }
};
