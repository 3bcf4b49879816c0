// Goal: firmware leaves routers as a new manager may find them, and a tunnel that cannot be is refused. Method: tunnels
// of either generation, registers and the list of paths; one impossible pair of ends per row.
#include "sim/firmware/firmware_tunnels.h"

#include <gtest/gtest.h>

#include "sim/dataplane/path_probe.h"
#include "sim/fabric/fabric_books.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

using Texts = std::vector<std::string>;

TEST(FirmwareTunnels, LeaveRoutersThatANewManagerFindsInOrder) {
  Rig rig("H1");
  rig.Build("H1:1 D1:3,D1:1 T3:1");
  SetUpFirmwareTunnel(rig.fabric, {FirmwareKind::Usb3, "H1:4", "D1:16", FirmwareState::Whole, 9000, 18000});
  EXPECT_EQ(rig.adapter("H1:4").space().Get(0x0C), 2198u << 12 | 1099u);
  EXPECT_FALSE(rig.adapter("D1:1").locked());
  EXPECT_EQ(rig.adapter("H1:1").space().Get(0x9C + 19), 0x0000000Eu);
  rig.StartControlRing();
  EXPECT_EQ(rig.Value(1, 0, Space::Router, 1), 0x03000000u | 19 << 14 | 1u << 20 | 3u << 8 | 0x28);
  EXPECT_EQ(rig.Value(1, 0, Space::Router, 6), 0x03000000u);
  EXPECT_EQ(rig.Value(0x101, 0, Space::Router, 3), 0x80000000u);
  rig.Configure(0, 7);
  rig.Configure(1, 3);
  rig.Configure(0x101, 1);
  EXPECT_EQ(LivePaths(rig.fabric),
            (Texts{"USB3: H1:4 8 -> H1:1 8 | D1:3 8 -> D1:16 8", "USB3: D1:16 8 -> D1:3 8 | H1:1 8 -> H1:4 8"}))
      << "enumerating again takes nothing away";
  EXPECT_EQ(rig.Errors(), "");
}

TEST(FirmwareTunnels, ThunderboltHostsReserveTheirSink) {
  Rig rig("HT");
  rig.Build("HT:1 T3:1");
  rig.fabric.PlugDisplay("T3:10");
  SetUpFirmwareTunnel(rig.fabric, {FirmwareKind::Dp, "HT:11", "T3:10"});
  EXPECT_EQ(rig.fabric.Find("HT")->space().Get(0x20 + 16), 0x10u);
  EXPECT_EQ(DpReservations(rig.fabric), Texts{"HT:11"});
  EXPECT_TRUE(CheckBooks(rig.fabric).empty());
}

TEST(FirmwareTunnels, RefuseWhatCannotBe) {
  struct Case {
    const char* kind;
    const char* from;
    const char* to;
  };
  Rig rig("H1");
  rig.Build("H1:1 D1:1,D2:1 T3:1");
  for (const Case& c : {Case{"pcie", "H1:9", "D1:9"},
                        {"pcie", "H1:4", "D1:9"},
                        {"pcie", "H1:3", "D1:10"},
                        {"usb3", "H1:3", "D1:16"},
                        {"dp", "D1:13", "H1:5"},
                        {"pcie", "H1:3", "D2:9"}}) {
    EXPECT_THROW(SetUpFirmwareTunnel(rig.fabric, {ParseFirmwareKind(c.kind).value(), c.from, c.to}), TopologyError)
        << c.from << " " << c.to;
  }
  EXPECT_THROW(BondByFirmware(rig.fabric, "D1:3"), TopologyError);
  EXPECT_THROW(EnumerateByFirmware(rig.fabric, "D1"), TopologyError);
  EXPECT_EQ(ParseFirmwareKind("dma"), std::nullopt);
  EXPECT_EQ(ParseFirmwareState("Whole"), std::nullopt);
  EXPECT_EQ(LivePaths(rig.fabric), Texts{});
}

}  // namespace
}  // namespace sim::test
