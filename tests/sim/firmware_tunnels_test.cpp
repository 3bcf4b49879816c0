// Goal: what firmware leaves is what its state says: whole tunnels carry packets, the others fail in their one way.
// Method: each kind and state over one to three levels, both generations, bonded and not; the list of paths as text.
#include "sim/firmware_tunnels.h"

#include <gtest/gtest.h>

#include "sim/fabric_books.h"
#include "sim/link.h"
#include "sim/path_probe.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

using Texts = std::vector<std::string>;

struct FirmwareBench : Rig {
  explicit FirmwareBench(const char* cables = "H1:1 D1:1", const char* root = "H1") : Rig(root) { Build(cables); }
  Texts SetUp(const char* kind, const char* from, const char* to, const char* state) {
    const bool dp = std::string(kind) == "dp";
    if (dp) fabric.PlugDisplay(to);
    FirmwareTunnel tunnel{ParseFirmwareKind(kind).value(), from, to, ParseFirmwareState(state).value()};
    tunnel.lane = dp ? 1 : 0;
    SetUpFirmwareTunnel(fabric, tunnel);
    return LivePaths(fabric);
  }
  Adapter& adapter(const char* port) { return *fabric.FindAdapter(port); }
};

TEST(FirmwareTunnels, EachStateFailsInItsOneWay) {
  struct Case {
    const char* kind;
    const char* from;
    const char* to;
    const char* state;
    Texts paths;
  };
  const Case cases[] = {
      {"pcie",
       "H1:3",
       "D1:9",
       "whole",
       {"PCIe: H1:3 8 -> H1:1 8 | D1:1 8 -> D1:9 8", "PCIe: D1:9 8 -> D1:1 8 | H1:1 8 -> H1:3 8"}},
      {"pcie",
       "H1:3",
       "D1:9",
       "off",
       {"PCIe: H1:3 8 -> H1:1 8 | D1:1 8 -> D1:9 8 lost: H1:3 is switched off",
        "PCIe: D1:9 8 -> D1:1 8 | H1:1 8 -> H1:3 8 lost: D1:9 is switched off"}},
      {"pcie", "H1:3", "D1:9", "bare", {}},
      {"pcie", "H1:3", "D1:9", "half", {"PCIe: H1:3 8 -> H1:1 8 | D1:1 8 -> D1:9 8"}},
      {"pcie",
       "H1:3",
       "D1:9",
       "broken",
       {"PCIe: H1:3 8 -> H1:1 8 lost: no valid entry at D1:1 8", "PCIe: D1:9 8 -> D1:1 8 | H1:1 8 -> H1:3 8"}},
      {"pcie",
       "H1:3",
       "D1:9",
       "far-off",
       {"PCIe: H1:3 8 -> H1:1 8 | D1:1 8 -> D1:9 8 lost: D1:9 is switched off",
        "PCIe: D1:9 8 -> D1:1 8 | H1:1 8 -> H1:3 8 lost: D1:9 is switched off"}},
      {"pcie",
       "H1:3",
       "D1:9",
       "wrong",
       {"mismatched: H1:3 8 -> H1:1 8 | D1:1 8 -> D1:10 8", "mismatched: D1:10 8 -> D1:1 8 | H1:1 8 -> H1:3 8"}},
      {"usb3",
       "H1:4",
       "D1:16",
       "whole",
       {"USB3: H1:4 8 -> H1:1 8 | D1:1 8 -> D1:16 8", "USB3: D1:16 8 -> D1:1 8 | H1:1 8 -> H1:4 8"}},
      {"dp",
       "H1:5",
       "D1:13",
       "whole",
       {"DP AUX: H1:5 8 -> H1:2 9 | D1:2 9 -> D1:13 8", "DP video: H1:5 9 -> H1:2 8 | D1:2 8 -> D1:13 9",
        "DP AUX: D1:13 8 -> D1:2 8 | H1:2 8 -> H1:5 8"}},
      {"dp",
       "H1:5",
       "D1:13",
       "half",
       {"DP AUX: H1:5 8 -> H1:2 9 | D1:2 9 -> D1:13 8", "DP video: H1:5 9 -> H1:2 8 | D1:2 8 -> D1:13 9"}},
      {"dp",
       "H1:5",
       "D1:13",
       "broken",
       {"DP AUX: H1:5 8 -> H1:2 9 | D1:2 9 -> D1:13 8", "DP video: H1:5 9 -> H1:2 8 lost: no valid entry at D1:2 8",
        "DP AUX: D1:13 8 -> D1:2 8 | H1:2 8 -> H1:5 8"}},
  };
  for (const Case& c : cases) {
    FirmwareBench rig;
    EXPECT_EQ(rig.SetUp(c.kind, c.from, c.to, c.state), c.paths) << c.kind << " " << c.state;
  }
}

TEST(FirmwareTunnels, LongOnesPassMoreThanFourteenHopsAndLoopsNeverEnd) {
  for (const char* cables : {"H1:1 D1:1", "H1:1 T1:1"}) {
    FirmwareBench rig(cables);
    const char* to = rig.fabric.Find("D1") != nullptr ? "D1:9" : "T1:8";
    rig.SetUp("pcie", "H1:3", to, "long");
    const ProbeResult way = Probe(rig.adapter("H1:3"), 8);
    EXPECT_EQ(way.arrived, &rig.adapter(to));
    EXPECT_EQ(way.hops.size(), 16u);
  }
  FirmwareBench loop;
  EXPECT_EQ(loop.SetUp("pcie", "H1:3", "D1:9", "looping").front(),
            "PCIe: H1:3 8 -> H1:1 8 | D1:1 8 -> D1:1 8 | H1:1 8 -> H1:1 8 lost: the path runs in a circle");
}

TEST(FirmwareTunnels, CarryPacketsOverEveryTree) {
  struct Case {
    const char* host;
    const char* cables;
    const char* kind;
    const char* from;
    const char* to;
    const char* trail;
  };
  const Case cases[] = {
      {"H1", "H1:1 D1:1,D1:3 D2:1", "pcie", "D1:10", "D2:9", "D1:10 8 -> D1:3 8 | D2:1 8 -> D2:9 8"},
      {"H1", "H1:1 D1:1,D1:3 D1a:5,D1a:1 T3:1", "pcie", "H1:3", "T3:8",
       "H1:3 8 -> H1:1 8 | D1:1 8 -> D1:3 8 | D1a:5 8 -> D1a:1 8 | T3:1 8 -> T3:8 8"},
      {"HT", "HT:3 T3:1", "pcie", "HT:7", "T3:8", "HT:7 8 -> HT:3 8 | T3:1 8 -> T3:8 8"},
      {"H3", "H3:1 D1:1,H3:3 D2:1", "usb3", "H3:22", "D2:20", "H3:22 8 -> H3:3 8 | D2:1 8 -> D2:20 8"},
  };
  for (const Case& c : cases) {
    for (bool bonded : {false, true}) {
      FirmwareBench rig(c.cables, c.host);
      if (bonded) {
        for (const auto& link : rig.fabric.links()) BondByFirmware(rig.fabric, link->end(0).Name());
      }
      rig.SetUp(c.kind, c.from, c.to, "whole");
      EXPECT_EQ(Probe(rig.adapter(c.from), 8).trail, c.trail);
      EXPECT_EQ(Probe(rig.adapter(c.from), 8).arrived, &rig.adapter(c.to));
      EXPECT_EQ(Probe(rig.adapter(c.to), 8).arrived, &rig.adapter(c.from));
      EXPECT_EQ(CheckBooks(rig.fabric), Texts{});
    }
  }
}

TEST(FirmwareTunnels, VideoTakesTheSecondLaneUntilBothAreOne) {
  FirmwareBench rig("H1:1 D1:1,D1:3 D2:1");
  BondByFirmware(rig.fabric, "H1:1");
  EXPECT_EQ(rig.SetUp("dp", "H1:5", "D2:11", "whole")[1],
            "DP video: H1:5 9 -> H1:1 8 | D1:1 8 -> D1:4 8 | D2:2 8 -> D2:11 9");
  EXPECT_EQ(rig.adapter("D1:1").setAsideBuffers(), 12u);
  EXPECT_EQ(rig.adapter("D2:2").setAsideBuffers(), 12u);
  EXPECT_EQ(rig.adapter("H1:1").setAsideBuffers(), 0u);
  EXPECT_EQ(DpReservations(rig.fabric), Texts{"H1:5"});
  EXPECT_TRUE(ReadDp(rig.adapter("H1:5")).capabilitiesRead);
}

TEST(FirmwareTunnels, LeaveRoutersThatANewManagerFindsInOrder) {
  FirmwareBench rig("H1:1 D1:3,D1:1 T3:1");
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
  FirmwareBench rig("HT:1 T3:1", "HT");
  rig.SetUp("dp", "HT:11", "T3:10", "whole");
  EXPECT_EQ(rig.fabric.Find("HT")->space().Get(0x20 + 16), 0x10u);
  EXPECT_EQ(DpReservations(rig.fabric), Texts{"HT:11"});
  EXPECT_EQ(CheckBooks(rig.fabric), Texts{});
}

TEST(FirmwareTunnels, RefuseWhatCannotBe) {
  struct Case {
    const char* kind;
    const char* from;
    const char* to;
  };
  FirmwareBench rig("H1:1 D1:1,D2:1 T3:1");
  for (const Case& c : {Case{"pcie", "H1:9", "D1:9"},
                        {"pcie", "H1:4", "D1:9"},
                        {"pcie", "H1:3", "D1:10"},
                        {"usb3", "H1:3", "D1:16"},
                        {"dp", "D1:13", "H1:5"},
                        {"pcie", "H1:3", "D2:9"}})
    EXPECT_THROW(SetUpFirmwareTunnel(rig.fabric, {ParseFirmwareKind(c.kind).value(), c.from, c.to}), TopologyError)
        << c.from << " " << c.to;
  EXPECT_THROW(BondByFirmware(rig.fabric, "D1:3"), TopologyError);
  EXPECT_THROW(EnumerateByFirmware(rig.fabric, "D1"), TopologyError);
  EXPECT_EQ(ParseFirmwareKind("dma"), std::nullopt);
  EXPECT_EQ(ParseFirmwareState("Whole"), std::nullopt);
  EXPECT_EQ(LivePaths(rig.fabric), Texts{});
}

}  // namespace
}  // namespace sim::test
