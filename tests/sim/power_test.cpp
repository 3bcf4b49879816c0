// Goal: a router that was not told to sleep forgets, with all below it; armed wakes wake and no others. Method:
// H1 - D1 - D2 configured by hand, sent to sleep in part or with some sources armed.
#include <gtest/gtest.h>

#include "tests/sim/rig.h"

namespace sim::test {
namespace {

using platform::FunctionPower;

constexpr unsigned kPort19 = 0x9C + 19;

struct Tree : Rig {
  Tree() : Rig("H1") { Manage("H1:1 D1:1,D1:3 D2:1"); }
  void ArmSleep(const std::vector<std::uint64_t>& routes = {0x301, 1, 0}) {
    for (std::uint64_t route : routes) {
      const std::uint32_t cs5 = Value(route, 0, Space::Router, 5);
      Write(route, 0, Space::Router, 5, {cs5 | 1});
      Run(25 * kMs);
    }
  }
  Router& router(const char* name) { return *fabric.Find(name); }
};

TEST(Power, ARouterBelowOneThatForgetsForgetsToo) {
  Tree rig;
  rig.ArmSleep({0x301, 0});
  rig.host.SetPower(FunctionPower::D3Hot);
  rig.Run(100 * kMs);
  rig.host.SetPower(FunctionPower::D0);
  EXPECT_TRUE(rig.router("H1").configured());
  EXPECT_FALSE(rig.router("D1").configured());
  EXPECT_FALSE(rig.router("D2").configured());
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
    EXPECT_EQ(rig.adapter("H1:1").space().Get(0x9C + 18) >> 18 & 1, c.wakes) << c.what;
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
    EXPECT_EQ(rig.adapter("H1:1").space().Get(0x9C + 18) >> 18 & 1, 0u) << c.what;
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
