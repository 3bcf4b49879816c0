// Goal: what tunnels leave in the registers is kept and lost over each event as the state table says.
// Method: whole tunnels H1 - D1 with a display, one event per row, then entries, enables, buffers and reservation.
#include <gtest/gtest.h>

#include "sim/dataplane/display_adapter.h"
#include "sim/fabric/fabric_books.h"
#include "sim/firmware/firmware_tunnels.h"
#include "sim/router/cable.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

using platform::FunctionPower;

struct TunnelBench : Rig {
  TunnelBench() : Rig("H1") {
    Build("H1:1 D1:1");
    fabric.PlugDisplay("D1:13");
    BondByFirmware(fabric, "H1:1");
    SetUpFirmwareTunnel(fabric, {FirmwareKind::Pcie, "H1:3", "D1:9"});
    SetUpFirmwareTunnel(fabric, {FirmwareKind::Usb3, "H1:4", "D1:16", FirmwareState::Whole, 1000, 1000});
    SetUpFirmwareTunnel(fabric, {FirmwareKind::Dp, "H1:5", "D1:13"});
    adapter("H1:1").SetSetAsideBuffers(5);
    adapter("D1:1").space().SetBits(5, 0x7Fu << 22, 3u << 22);
    adapter("H1:1").space().SetBits(5, 0x7Fu << 22, 2u << 22);
    StartControlRing();
  }
  void Cycle(
      bool handshake, FunctionPower power, const std::function<void()>& asleep = [] {}) {
    for (std::uint64_t route : {1, 0}) {
      const std::uint32_t cs5 = Value(route, 0, Space::Router, 5);
      if (handshake) Write(route, 0, Space::Router, 5, {cs5 | 1});
      Run(25 * kMs);
    }
    host.SetPower(power);
    asleep();
    Run(100 * kMs);
    host.SetPower(FunctionPower::D0);
    Run(200 * kMs);
  }
  // What is left at one router: "configured entries pcie usb3 dp set-aside allocated", its lane's width and lock, the
  // port's marks, and the reservation.
  std::string Left(const char* name, const char* pcie, const char* usb3, const char* dp) {
    const std::string lane = std::string(name) + ":1";
    auto on = [this](const char* port, unsigned offset) { return adapter(port).space().Get(offset) >> 31 != 0; };
    std::string text = fabric.Find(name)->configured() ? "configured" : "";
    if (adapter(pcie).pathEntry(8).valid() && adapter(lane.c_str()).pathEntry(8).valid()) text += " entries";
    if (on(pcie, 0x39)) text += " pcie";
    if (on(usb3, 0x0A)) text += " usb3";
    if (on(dp, 0x39)) text += " dp";
    text += " " + std::to_string(adapter(lane.c_str()).setAsideBuffers());
    text += " " + std::to_string(adapter(lane.c_str()).allocatedBuffers());
    text += " x" + std::to_string(adapter(lane.c_str()).negotiatedWidth());
    text += adapter(lane.c_str()).locked() ? " locked " : " open ";
    return text + std::to_string(adapter(lane.c_str()).space().Get(0x9C + 19) & 0xF);
  }
  std::string Left() {
    const std::vector<std::string> reserved = DpReservations(fabric);
    return Left("H1", "H1:3", "H1:4", "H1:5") + (reserved.empty() ? "" : " reserved") + " |" +
           Left("D1", "D1:9", "D1:16", "D1:13");
  }
};

TEST(TunnelState, IsKeptAndLostAsTheTableSays) {
  constexpr const char* kAll =
      "configured entries pcie usb3 dp 5 2 x2 open 14 reserved |configured entries pcie usb3 dp 12 3 x2 open 14";
  const std::string nearSide = "configured entries pcie usb3 dp 5 2 x1 locked 6 reserved |";
  constexpr const char* kNothing = " 0 0 x1 locked 6 | 0 0 x1 open 6";
  struct Case {
    const char* what;
    std::function<void(TunnelBench&)> act;
    std::string left;
    bool live;
  };
  const Case cases[] = {
      {"nothing happens", [](TunnelBench&) {}, kAll, true},
      {"sleep with the handshake", [](TunnelBench& rig) { rig.Cycle(true, FunctionPower::D3Hot); }, kAll, true},
      {"sleep without it", [](TunnelBench& rig) { rig.Cycle(false, FunctionPower::D3Hot); }, kNothing, false},
      {"hibernation", [](TunnelBench& rig) { rig.Cycle(true, FunctionPower::Off); }, kNothing, false},
      {"hibernation without", [](TunnelBench& rig) { rig.Cycle(false, FunctionPower::Off); }, kNothing, false},
      {"link drop",
       [](TunnelBench& rig) {
         rig.fabric.DropLink("D1", 10 * kMs);
         rig.Run(200 * kMs);
       },
       nearSide + " 0 0 x1 open 6", false},
      {"unplug", [](TunnelBench& rig) { rig.fabric.Unplug("D1"); }, nearSide + " 0 0 x1 locked 6", false},
      {"unplug while asleep",
       [](TunnelBench& rig) { rig.Cycle(true, FunctionPower::D3Hot, [&rig] { rig.fabric.Unplug("D1"); }); },
       nearSide + " 0 0 x1 locked 6", false},
  };
  for (const Case& c : cases) {
    TunnelBench rig;
    c.act(rig);
    EXPECT_EQ(rig.Left(), c.left) << c.what;
    EXPECT_EQ(ReachedDisplayPort(rig.adapter("H1:5")) != nullptr, c.live) << c.what;
    EXPECT_EQ(ReadDp(rig.adapter("H1:5")).capabilitiesRead, c.live) << c.what;
    EXPECT_EQ(rig.Errors(), "") << c.what;
  }
}

TEST(TunnelState, ASleepingRouterHasDrainedAndReportsNothingThatWasThereBefore) {
  TunnelBench rig;
  rig.Write(0, 1, Space::Adapter, 5, {rig.Value(0, 1, Space::Adapter, 5) & 0x7FFFFFFF});
  rig.Write(0, 3, Space::Path, 16, {0x000E0808, 0x03000301});
  EXPECT_TRUE(rig.adapter("H1:3").pathPending(8));
  rig.Cycle(true, FunctionPower::D3Hot);
  EXPECT_FALSE(rig.adapter("H1:3").pathPending(8));
  EXPECT_EQ(rig.Value(0, 3, Space::Path, 17), 0x03000301u);
  EXPECT_EQ(rig.Wire().find("PLUG"), std::string::npos);
}

TEST(TunnelState, ADeviceThatLendsDisplaySourcesForgetsWithItsSupply) {
  RouterModel model = *FindModel("D1");
  model.adapters[14].type = kTypeDpIn;
  model.dpInResources = 1;
  for (bool unplug : {false, true}) {
    Rig rig("H1");
    rig.fabric.AddRouter(model, "X");
    rig.fabric.Connect("H1:1", "X:1");
    rig.fabric.Find("X")->operations().dpReservations().insert(14);
    if (unplug) {
      rig.fabric.Unplug("X");
    } else {
      rig.fabric.DropLink("X", 10 * kMs);
    }
    EXPECT_EQ(DpReservations(rig.fabric).size(), unplug ? 0u : 1u);
  }
}

// The whole dword is written, as a manager does.
TEST(TunnelState, AnAdapterIsSwitchedOnBehindAPathThatBeginsAtIt) {
  const struct {
    FirmwareTunnel tunnel;
    unsigned offset;
    std::uint32_t on;
    const char* blamed;
  } kCases[] = {
      {{FirmwareKind::Pcie, "H1:3", "D1:9", FirmwareState::Off}, 0x39, 0x80000000, "H1:3"},
      {{FirmwareKind::Usb3, "H1:4", "D1:16", FirmwareState::Off, 1000, 1000}, 0x0A, 0xC0000000, "H1:4"},
      {{FirmwareKind::Dp, "H1:5", "D1:13", FirmwareState::Off}, 0x39, 0xC009048F, "H1:5"},
  };
  for (const auto& test : kCases) {
    for (const char* lead : {"path", "no path", "fault"}) {
      SCOPED_TRACE(std::string(test.blamed) + ", " + lead);
      Rig rig("H1");
      rig.Build("H1:1 D1:1");
      rig.Manage();
      if (std::string(lead) == "path") SetUpFirmwareTunnel(rig.fabric, test.tunnel);
      if (std::string(lead) == "fault") {
        rig.simulation.faults().FailNth("wire.duplicate", 1);
        rig.Value(0, 0, Space::Router, 0);
      }
      const Adapter& adapter = rig.adapter(test.tunnel.from.c_str());
      for (int times = 0; times < 2; ++times) rig.Write(0, adapter.number(), Space::Adapter, test.offset, {test.on});
      const std::string error =
          std::string(test.blamed) + " (route 0): switched on before a path begins here [no-path-yet]\n";
      EXPECT_EQ(rig.Errors(), std::string(lead) == "no path" ? error : "");
    }
  }
}

}  // namespace
}  // namespace sim::test
