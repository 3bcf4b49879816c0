// Goal: lanes train, bond and drop as both ends' registers say, and the registers show it.
// Method: one or two cables, register words as read off real machines.
#include <gtest/gtest.h>

#include "sim/router/cable.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

constexpr unsigned kLane = 0x36;  // lane capability of every model here
constexpr unsigned kUsb4Port = 0x9C;

struct CableRig : Rig {
  explicit CableRig(const char* cables = "H1:1 D1:1", std::uint64_t seed = 0) : Rig("H1", seed) { Manage(cables); }
  std::uint32_t Lane(std::uint64_t route, unsigned adapter) { return Value(route, adapter, Space::Adapter, kLane + 1); }
  void Target(std::uint64_t route, unsigned adapter, unsigned width) {
    Write(route, adapter, Space::Adapter, kLane + 1, {(Lane(route, adapter) & ~0x3F0u) | width << 4 | 0x8000});
  }
  void Bond(unsigned width = 3) {
    for (std::uint64_t route : {1, 0}) {
      for (unsigned adapter : {1u, 2u}) Target(route, adapter, width);
    }
  }
};

TEST(Link, WordsOfAPortWithNothingInItAndOfARunningLink) {
  Rig empty("H1");
  empty.Manage();
  EXPECT_EQ(empty.Value(0, 1, Space::Adapter, kLane), 0x003C013Eu);
  EXPECT_EQ(empty.Value(0, 1, Space::Adapter, kLane + 1), 0x5C18001Cu);
  EXPECT_EQ(empty.Value(0, 1, Space::Adapter, kUsb4Port + 18), 0x00000410u);
  EXPECT_EQ(empty.Value(0, 1, Space::Adapter, kUsb4Port + 19), 0x00000006u);

  CableRig rig;
  EXPECT_EQ(rig.Lane(0, 1), 0x4814001Cu) << "up, 20 Gb/s, one lane";
  EXPECT_EQ(rig.Lane(1, 2), 0x4814001Cu);
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, kUsb4Port + 18), 0x00000510u) << "bondable, USB4";
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, 4), 0x4B300000u) << "plugged and unlocked";
  EXPECT_EQ(rig.Lane(1, 3), 0x5C18001Cu) << "the next port is empty";
}

TEST(Link, BondingNeedsAllFourLanesTakesTimeAndMovesTheBuffers) {
  CableRig rig;
  const std::pair<std::uint64_t, unsigned> lanes[] = {{1, 1}, {1, 2}, {0, 1}, {0, 2}};
  for (auto [route, adapter] : lanes) {
    EXPECT_EQ(rig.Lane(0, 1) >> 20 & 0x3F, 1u) << "before the last of the four";
    rig.Target(route, adapter, 3);
  }
  rig.Run(1 * kMs);
  for (auto [route, adapter] : lanes) EXPECT_EQ(rig.Lane(route, adapter), 0x4824003Cu);
  EXPECT_EQ(rig.Value(1, 1, Space::Adapter, 4) >> 20 & 0x3FF, 120u);
  EXPECT_EQ(rig.Value(1, 2, Space::Adapter, 4) >> 20 & 0x3FF, 0u);
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, 4) >> 20 & 0x3FF, 358u);

  rig.Target(1, 2, 1);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Lane(0, 1) >> 20 & 0x3F, 1u) << "one lane is enough to part them";
  EXPECT_EQ(rig.Value(1, 1, Space::Adapter, 4) >> 20 & 0x3FF, 60u);
  EXPECT_EQ(rig.Value(1, 2, Space::Adapter, 4) >> 20 & 0x3FF, 60u);
  EXPECT_EQ(rig.Errors(), "");
}

TEST(Link, AWidthWithoutTheBondingBitChangesNothing) {
  CableRig rig;
  for (std::uint64_t route : {1, 0}) {
    for (unsigned adapter : {1u, 2u}) {
      rig.Write(route, adapter, Space::Adapter, kLane + 1, {(rig.Lane(route, adapter) & ~0x3F0u) | 0x30});
    }
  }
  rig.Run(10 * kMs);
  EXPECT_EQ(rig.Lane(0, 1), 0x4814003Cu);
}

TEST(Link, ADisabledSecondLanePartsTheLinkButKeepsItUp) {
  CableRig rig;
  rig.Bond();
  rig.Run(1 * kMs);
  rig.Write(0, 2, Space::Adapter, kLane + 1, {rig.Lane(0, 2) | 0x4000});
  EXPECT_EQ(rig.Lane(0, 2) >> 26 & 0xF, 0u) << "disabled";
  EXPECT_EQ(rig.Lane(1, 2) >> 26 & 0xF, 7u) << "its other end sees nothing";
  EXPECT_EQ(rig.Lane(1, 1) >> 20 & 0x3F, 1u);
  EXPECT_TRUE(rig.fabric.Find("D1")->configured()) << "lane 0 still carries control packets";
  rig.Write(0, 2, Space::Adapter, kLane + 1, {rig.Lane(0, 2) & ~0x4000u});
  rig.Run(150 * kMs);
  EXPECT_EQ(rig.Lane(1, 2) >> 26 & 0xF, 2u);
}

TEST(Link, ASingleLaneCableNeverBonds) {
  Rig rig("H1");
  rig.fabric.AddRouter("D1", "D1");
  rig.fabric.Connect("H1:1", "D1:1", {.lanes = 1, .gbpsPerLane = 10});
  rig.Manage();
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, kLane + 1), 0x4818001Cu) << "10 Gb/s x1";
  EXPECT_EQ(rig.Value(0, 2, Space::Adapter, kLane + 1) >> 26 & 0xF, 7u);
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, kUsb4Port + 18), 0x00000410u) << "bonding is not on offer";
}

TEST(Link, AThunderboltPartnerPutsThePortIntoItsMode) {
  CableRig rig("H1:1 T1:1");
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, kUsb4Port + 18), 0x00000710u);
  const std::uint32_t descriptor = rig.Value(1, 0, Space::Router, 0x22);
  EXPECT_EQ(descriptor, 0x00A02002u) << "two port blocks of 160 dwords, 32 behind the start";
  EXPECT_EQ(rig.Value(1, 0, Space::Router, 0x20 + 0x20 + 141), 0x00001000u) << "bondable port";
  EXPECT_EQ(rig.Value(1, 0, Space::Router, 0x20 + 0x20 + 0xA0 + 141), 0u) << "empty port";
  rig.Bond();
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Lane(1, 1) >> 20 & 0x3F, 2u);
  EXPECT_EQ(rig.Errors(), "");
}

TEST(Link, ADropResetsTheFarRouterAndComesBack) {
  CableRig rig("H1:1 D1:1,D1:3 D2:1");
  rig.Bond();
  rig.Run(1 * kMs);
  rig.fabric.DropLink("D1", 50 * kMs);
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, kLane + 1), 0x5C18003Cu) << "disconnected, its target width kept";
  rig.Run(200 * kMs);
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, kLane + 1) & 0x3FFFFFFF, 0x0814003Cu) << "trained anew, unbonded";
  rig.Unlock(0, 1);
  EXPECT_EQ(rig.Value(1, 0, Space::Router, 3), 0u) << "the hub was reset";
  EXPECT_FALSE(rig.fabric.Find("D2")->configured());
}

TEST(Link, AHastyDockGivesUpUnlessItIsEnumerated) {
  Rig rig("H1");
  rig.Manage();
  rig.fabric.AddRouter("HASTY", "dock");
  rig.fabric.Plug("H1:1", "dock:1");
  rig.Run(600 * kMs);
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, kLane + 1) >> 26 & 0xF, 2u);
  rig.Run(40 * kMs);
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, kLane + 1) >> 26 & 0xF, 7u) << "600 ms after it came up";
  rig.Run(320 * kMs);
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, kLane + 1) >> 26 & 0xF, 2u) << "300 ms later it is back";
  rig.Unlock(0, 1);
  rig.Configure(1, 1);
  rig.Run(1000 * kMs);
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, kLane + 1) >> 26 & 0xF, 2u) << "now it stays";
}

}  // namespace
}  // namespace sim::test
