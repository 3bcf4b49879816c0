// Goal: each kind of bit stores and blames as its table says. Method: one register of one kind per row, written once.
#include "sim/registers/register_rules.h"
#include "tests/sim/rig.h"

#include <gtest/gtest.h>

#include "sim/registers/register_space.h"

namespace sim {
namespace {

TEST(RegisterRules, EachKindStoresAndBlames) {
  struct Case {
    BitKind kind;
    std::uint32_t old, written, value, started;
    std::uint32_t readOnly = 0, preserved = 0, reserved = 0;
  };
  using enum BitKind;
  const Case cases[] = {
      {ReadOnly, 0x10, 0x10, 0x10, 0},
      {ReadOnly, 0x10, 0x12, 0x10, 0, 0x00000002},
      {Preserve, 0x30, 0x10, 0x30, 0, 0, 0x00000020},
      {ReadWrite, 0xFF, 0x0F, 0x0F, 0},
      {WriteOneToClear, 0xFF, 0x0F, 0xF0, 0},
      {ReadClear, 0xF0, 0xFF, 0xF0, 0},
      {SelfClearing, 0, 0x81, 0, 0x81},
      {ReservedZero, 0x20, 0, 0x20, 0},
      {ReservedZero, 0x20, 0x20, 0x20, 0, 0, 0, 0x00000020},
      {Status, 0xAA, 0x55, 0xAA, 0},
  };
  for (const Case& c : cases) {
    const StoreResult result = Store({{31, 0, c.kind}}, c.old, c.written);
    EXPECT_EQ(result.value, c.value) << static_cast<int>(c.kind);
    EXPECT_EQ(result.started, c.started) << static_cast<int>(c.kind);
    EXPECT_EQ(result.readOnly, c.readOnly) << static_cast<int>(c.kind);
    EXPECT_EQ(result.preserved, c.preserved) << static_cast<int>(c.kind);
    EXPECT_EQ(result.reserved, c.reserved) << static_cast<int>(c.kind);
  }
}

TEST(RegisterRules, TheLastFieldNamedWinsAndTheRestIsReadOnly) {
  constexpr RegisterRules rules{{31, 0, BitKind::Preserve}, {7, 0, BitKind::ReadWrite}, {3, 3, BitKind::SelfClearing}};
  EXPECT_EQ(rules.Mask(BitKind::Preserve), 0xFFFFFF00u);
  EXPECT_EQ(rules.Mask(BitKind::ReadWrite), 0xF7u);
  EXPECT_EQ(rules.Mask(BitKind::SelfClearing), 0x08u);
  EXPECT_EQ(rules.Mask(BitKind::ReadOnly), 0u);
  EXPECT_EQ(RegisterRules({{4, 2, BitKind::ReadWrite}}).Mask(BitKind::ReadOnly), 0xFFFFFFE3u);
}

TEST(ConfigSpace, AWriteReachesAllItsDwordsOrNone) {
  ConfigSpace space(Space::Router);
  space.Define(0, 1, kAllReadWrite);
  space.Define(1, 2, kAllReadWrite);
  space.Define(4, 3, kAllReadWrite);
  const std::uint32_t data[] = {7, 8, 9};
  EXPECT_FALSE(space.Write(0, data, test::kNoComplaint)) << "dword 2 is a hole";
  EXPECT_EQ(space.Get(0), 1u);

  std::uint32_t seen = 0;
  space.OnWrite(0, [&](const ConfigSpace::Access&) { seen = space.Get(1); });
  EXPECT_TRUE(space.Write(0, std::span(data).first(2), test::kNoComplaint));
  EXPECT_EQ(seen, 8u) << "the first dword acts after the last is stored";
}

TEST(ConfigSpace, HolesReadZeroAndTheEndRefuses) {
  ConfigSpace space(Space::Adapter);
  space.Define(0, 5);
  space.Define(3, 6, {{31, 0, BitKind::ReadClear}});
  std::vector<std::uint32_t> data;
  EXPECT_TRUE(space.Read(0, 4, data));
  EXPECT_EQ(data, (std::vector<std::uint32_t>{5, 0, 0, 6}));
  EXPECT_EQ(space.Get(3), 0u) << "reading cleared it";
  EXPECT_FALSE(space.Read(3, 2, data));
  EXPECT_FALSE(space.Read(0, 0, data));
  space.Reset();
  EXPECT_EQ(space.Get(3), 6u);
}

}  // namespace
}  // namespace sim
