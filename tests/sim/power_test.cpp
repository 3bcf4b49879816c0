// Goal: what a power state keeps and loses is what the state table says, and armed wakes wake.
// Method: H1 - D1 - D2 configured and bonded by hand, then every power state with and without the sleep handshake.
#include <gtest/gtest.h>

#include "sim/link.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

using platform::FunctionPower;

constexpr unsigned kPort19 = 0x9C + 19;

struct Tree : Rig {
  explicit Tree(std::uint64_t seed = 0) : Rig("H1", seed) {
    Build("H1:1 D1:1,D1:3 D2:1");
    StartControlRing();
    Configure(0, 7);
    Unlock(0, 1);
    Configure(1, 1);
    Unlock(1, 3);
    Configure(0x301, 1);
    for (std::uint64_t route : {1, 0})
      for (unsigned adapter : {1u, 2u}) Write(route, adapter, Space::Adapter, 0x37, {0x0000803C});
    Write(1, 9, Space::Path, 16, {0x80000809, 0x01000000});
    Write(0, 1, Space::Adapter, kPort19, {0x0000000E});
    Run(5 * kMs);
  }
  void ArmSleep() {
    for (std::uint64_t route : {0x301, 1, 0}) {
      const std::uint32_t cs5 = Value(route, 0, Space::Router, 5);
      Write(route, 0, Space::Router, 5, {cs5 | 1});
      Run(25 * kMs);
    }
  }
  void Cycle(FunctionPower power) {
    host.SetPower(power);
    Run(100 * kMs);
    host.SetPower(FunctionPower::D0);
  }
  Router& router(const char* name) { return *fabric.Find(name); }
};

TEST(Power, TheHandshakeKeepsEverythingThroughD3) {
  for (std::uint64_t seed : {0, 1, 2, 3}) {
    Tree rig(seed);
    rig.ArmSleep();
    const std::size_t packets = rig.fabric.wire("H1").log().entries().size();
    rig.Cycle(FunctionPower::D3Hot);
    EXPECT_EQ(rig.fabric.FindAdapter("H1:1")->laneState(), LaneState::Training);
    rig.Run(60 * kMs);
    EXPECT_EQ(rig.fabric.FindAdapter("H1:1")->laneState(), LaneState::Up);
    EXPECT_EQ(rig.fabric.FindAdapter("H1:1")->negotiatedWidth(), 2u);
    EXPECT_EQ(rig.fabric.FindAdapter("D1:9")->paths().Get(16), 0x80000809u);
    EXPECT_EQ(rig.fabric.FindAdapter("H1:1")->space().Get(kPort19), 0x0000000Eu);
    for (const char* name : {"H1", "D1", "D2"}) EXPECT_TRUE(rig.router(name).configured()) << name;
    EXPECT_EQ(rig.router("D1").space().Get(5) & 1, 0u) << "awake again";
    EXPECT_FALSE(rig.fabric.FindAdapter("H1:1")->locked());
    EXPECT_EQ(rig.fabric.wire("H1").log().entries().size(), packets) << "no plug event for what was there before";
  }
}

TEST(Power, WithoutTheHandshakeOrWithoutSupplyEverythingStartsFromReset) {
  struct Case {
    bool handshake;
    FunctionPower power;
  };
  for (const Case& c :
       {Case{false, FunctionPower::D3Hot}, Case{false, FunctionPower::Off}, Case{true, FunctionPower::Off}}) {
    Tree rig;
    if (c.handshake) rig.ArmSleep();
    rig.router("H1").operations().dpReservations().insert(5);
    rig.Cycle(c.power);
    rig.Run(200 * kMs);
    for (const char* name : {"H1", "D1", "D2"}) EXPECT_FALSE(rig.router(name).configured()) << name;
    EXPECT_EQ(rig.fabric.FindAdapter("D1:9")->paths().Get(16) >> 31, 0u);
    EXPECT_EQ(rig.fabric.FindAdapter("H1:1")->space().Get(kPort19), 0x00000006u);
    EXPECT_TRUE(rig.fabric.FindAdapter("H1:1")->locked());
    EXPECT_TRUE(rig.fabric.FindAdapter("D1:3")->locked());
    EXPECT_EQ(rig.fabric.FindAdapter("H1:1")->laneState(), LaneState::Up) << "trained anew";
    EXPECT_EQ(rig.fabric.FindAdapter("H1:1")->negotiatedWidth(), 1u) << "unbonded";
    EXPECT_TRUE(rig.router("H1").operations().dpReservations().empty());
    EXPECT_EQ(rig.router("D2").place().route, 0x301u) << "still in their places";
  }
}

TEST(Power, ARouterBelowOneThatForgetsForgetsToo) {
  Tree rig;
  for (std::uint64_t route : {0x301, 0}) {
    rig.Write(route, 0, Space::Router, 5, {rig.Value(route, 0, Space::Router, 5) | 1});
    rig.Run(25 * kMs);
  }
  rig.Cycle(FunctionPower::D3Hot);
  EXPECT_TRUE(rig.router("H1").configured());
  EXPECT_FALSE(rig.router("D1").configured());
  EXPECT_FALSE(rig.router("D2").configured());
}

TEST(Power, AChangeDuringSleepIsThereAfterwards) {
  Tree rig;
  rig.ArmSleep();
  rig.host.SetPower(FunctionPower::D3Hot);
  rig.fabric.Unplug("D2");
  rig.fabric.AddRouter("T3", "T3");
  rig.fabric.Plug("D1:5", "T3:1");
  rig.Run(200 * kMs);
  EXPECT_EQ(rig.slot.wakes, 0u) << "no wake is armed";
  rig.host.SetPower(FunctionPower::D0);
  rig.Run(100 * kMs);
  EXPECT_EQ(rig.fabric.AtRoute(rig.router("H1"), 0x301), nullptr);
  EXPECT_EQ(rig.fabric.AtRoute(rig.router("H1"), 0x501), rig.fabric.Find("T3"));
  EXPECT_EQ(rig.fabric.FindAdapter("D1:3")->laneState(), LaneState::Disconnected);
}

TEST(Power, ArmedPortsWakeThroughAnArmedChainOnly) {
  struct Case {
    const char* what;
    std::uint32_t hubPort5, hubPort3, hubUpstream, hostPort;
    bool unplug;
    unsigned wakes;
  };
  constexpr std::uint32_t kConnect = 1u << 16, kDisconnect = 1u << 17, kUsb4 = 1u << 18;
  const Case cases[] = {
      {"connect, chain armed", kConnect, 0, kUsb4, kUsb4, false, 1},
      {"connect, port not armed", 0, kDisconnect, kUsb4, kUsb4, false, 0},
      {"connect, host port not armed", kConnect, 0, kUsb4, 0, false, 0},
      {"connect, hub upstream not armed", kConnect, 0, 0, kUsb4, false, 0},
      {"disconnect, chain armed", 0, kDisconnect, kUsb4, kUsb4, true, 1},
      {"disconnect, only connect armed", kConnect, kConnect, kUsb4, kUsb4, true, 0},
  };
  for (const Case& c : cases) {
    Tree rig;
    rig.Write(1, 5, Space::Adapter, kPort19, {6 | c.hubPort5});
    rig.Write(1, 3, Space::Adapter, kPort19, {6 | c.hubPort3});
    rig.Write(1, 1, Space::Adapter, kPort19, {6 | c.hubUpstream});
    rig.Write(0, 1, Space::Adapter, kPort19, {6 | c.hostPort});
    rig.ArmSleep();
    rig.host.SetPower(FunctionPower::D3Hot);
    if (c.unplug) {
      rig.fabric.Unplug("D2");
    } else {
      rig.fabric.AddRouter("T3", "T3");
      rig.fabric.Plug("D1:5", "T3:1");
    }
    rig.Run(200 * kMs);
    EXPECT_EQ(rig.slot.wakes, c.wakes) << c.what;
    EXPECT_EQ(rig.fabric.FindAdapter("H1:1")->space().Get(0x9C + 18) >> 18 & 1, c.wakes) << c.what;
  }
}

// D1 is armed by its control dword, the dock behind it by its link controller; the way up is always armed.
TEST(Power, DevicesWakeThroughTheRouterThatArmsThem) {
  struct Case {
    const char* what;
    const char* place;
    std::uint32_t hub, dock;
    unsigned wakes;
    std::uint32_t status;  // of D1: bit 2 PCIe, bit 3 USB3
  };
  const Case cases[] = {
      {"PCIe", "D1:10", 1u << 1, 0, 1, 1u << 2},
      {"PCIe, only the others armed", "D1:10", 1u << 2 | 1u << 3, 0, 0, 0},
      {"USB3", "D1:17", 1u << 2, 0, 1, 1u << 3},
      {"USB3, only the others armed", "D1:17", 1u << 1 | 1u << 3, 0, 0, 0},
      {"PCIe of the dock", "T1:6", 0, 1u << 6 | 1u << 5, 1, 0},
      {"PCIe of the dock, not armed", "T1:6", 1u << 1, 1u << 5, 0, 0},
      {"PCIe of the dock, its way up not armed", "T1:6", 1u << 1, 1u << 6, 0, 0},
  };
  constexpr std::uint32_t kUsb4 = 1u << 18;
  for (const Case& c : cases) {
    Tree rig;
    rig.fabric.AddRouter("T1", "T1");
    rig.fabric.Connect("D1:5", "T1:1");
    rig.Write(0, 1, Space::Adapter, kPort19, {6 | kUsb4});
    for (unsigned port : {1u, 5u}) rig.Write(1, port, Space::Adapter, kPort19, {6 | kUsb4});
    rig.Write(1, 0, Space::Router, 5, {rig.Value(1, 0, Space::Router, 5) | c.hub});
    for (unsigned block : {0xD6u, 0x176u}) rig.router("T1").space().SetBits(block, 0x80000066, c.dock | 1u << 31);
    rig.ArmSleep();
    rig.fabric.SignalWake(c.place);
    EXPECT_EQ(rig.slot.wakes, 0u) << c.what << ": nobody sleeps yet";
    rig.host.SetPower(FunctionPower::D3Hot);
    rig.fabric.SignalWake(c.place);
    EXPECT_EQ(rig.slot.wakes, c.wakes) << c.what;
    EXPECT_EQ(rig.router("D1").space().Get(6) & 0xC, c.status) << c.what;
    rig.host.SetPower(FunctionPower::D0);
    rig.Run(100 * kMs);
    rig.ArmSleep();
    EXPECT_EQ(rig.router("D1").space().Get(6) & 0xC, 0u) << c.what << ": forgotten by the next sleep";
    EXPECT_EQ(rig.fabric.FindAdapter("H1:1")->space().Get(0x9C + 18) >> 18 & 1, 0u) << c.what;
  }
  EXPECT_THROW(Tree().fabric.SignalWake("D1:3"), TopologyError) << "a port is no device";
}

TEST(Power, NothingReachesAHostThatSleeps) {
  Tree rig;
  rig.Write(0, 1, Space::Adapter, 5, {rig.Value(0, 1, Space::Adapter, 5) & 0x7FFFFFFF});
  rig.fabric.DropLink("D1", 10 * kMs);
  rig.Run(5 * kMs);
  EXPECT_FALSE(rig.fabric.Quiet()) << "an unplug waits for its acknowledgement";
  rig.host.SetPower(FunctionPower::D3Hot);
  rig.Wire();
  rig.Run(500 * kMs);
  EXPECT_EQ(rig.Wire(), "");
  EXPECT_TRUE(rig.fabric.Quiet());
}

}  // namespace
}  // namespace sim::test
