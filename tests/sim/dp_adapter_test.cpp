// Goal: a source learns its display through a tunnel that works, and nothing else; handshakes, hot-plug detect and
// limits show as the registers say. Method: tunnels from the firmware generator, switched and broken over the wire.
#include "sim/dp_adapter.h"

#include <gtest/gtest.h>

#include "sim/firmware_tunnels.h"
#include "sim/link.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

constexpr std::uint32_t kRead = 0x80000000;

struct DisplayBench : Rig {
  explicit DisplayBench(std::uint64_t seed = 0) : Rig("H1", seed) {
    Build("H1:1 D1:1");
    StartControlRing();
    SetUpFirmwareTunnel(fabric, {FirmwareKind::Dp, "H1:5", "D1:13", FirmwareState::Off});
  }
  Adapter& adapter(const char* port) { return *fabric.FindAdapter(port); }
  std::uint32_t Dword(std::uint64_t route, unsigned number, unsigned n) {
    return Value(route, number, Space::Adapter, 0x39 + n);
  }
  void SetDword(std::uint64_t route, unsigned number, unsigned n, std::uint32_t value) {
    Write(route, number, Space::Adapter, 0x39 + n, {value});
  }
  void Enable(bool on = true) {
    SetDword(0, 5, 0, (on ? 0xC0000000 : 0) | 0x0009048F);
    SetDword(1, 13, 0, (on ? 0xC0000000 : 0) | 0x0009048F);
  }
  bool Known() { return (Dword(0, 5, 7) & kRead) != 0; }
};

TEST(DpAdapter, ASourceLearnsWhatAllOfTheWayAgreeOn) {
  struct Case {
    DpRate source, limit, display, agreed;
  };
  const Case cases[] = {
      {{8100, 4}, {8100, 4}, {8100, 4}, {8100, 4}}, {{8100, 4}, {5400, 4}, {8100, 4}, {5400, 4}},
      {{5400, 2}, {8100, 4}, {8100, 4}, {5400, 2}}, {{8100, 4}, {8100, 4}, {1620, 1}, {1620, 1}},
      {{5400, 4}, {8100, 2}, {2700, 4}, {2700, 2}},
  };
  for (const Case& c : cases) {
    DisplayBench rig;
    SetDpFacts(rig.adapter("H1:5"), {.local = c.source});
    rig.SetDword(0, 5, 5, EncodeDpRate(c.limit));
    rig.fabric.PlugDisplay("D1:13", {.most = c.display});
    rig.Enable();
    rig.Run(11 * kMs);
    EXPECT_EQ(rig.Dword(0, 5, 7), kRead | EncodeDpRate(c.agreed));
    EXPECT_EQ(ReadDp(rig.adapter("H1:5")).negotiated, c.agreed);
    EXPECT_EQ(rig.Errors(), "");
  }
}

TEST(DpAdapter, RatesHaveTheirCodesAndBandwidth) {
  struct Case {
    DpRate rate;
    std::uint32_t code;
    unsigned mbps;
  };
  const Case cases[] = {{{8100, 4}, 0x2300, 25920}, {{5400, 4}, 0x2200, 17280}, {{2700, 4}, 0x2100, 8640},
                        {{5400, 2}, 0x1200, 8640},  {{5400, 1}, 0x0200, 4320},  {{1620, 1}, 0x0000, 1296}};
  for (const Case& c : cases) {
    EXPECT_EQ(EncodeDpRate(c.rate), c.code);
    EXPECT_EQ(DecodeDpRate(c.code | 0x0C3080FF), c.rate);
    EXPECT_EQ(DpMbps(c.rate), c.mbps);
  }
  EXPECT_EQ(DecodeDpRate(0x3400), (DpRate{0, 0}));
}

TEST(DpAdapter, CapabilitiesTakeFiveToTenMilliseconds) {
  for (std::uint64_t seed = 0; seed < 12; ++seed) {
    DisplayBench rig(seed);
    rig.fabric.PlugDisplay("D1:13");
    rig.Enable();
    rig.Run(3 * kMs);
    EXPECT_FALSE(rig.Known()) << seed;
    rig.Run(9 * kMs);
    EXPECT_TRUE(rig.Known()) << seed;
  }
  DisplayBench slow;
  slow.fabric.PlugDisplay("D1:13", {.most = {}, .readyAfter = 700 * kMs});
  slow.Enable();
  slow.Run(690 * kMs);
  EXPECT_FALSE(slow.Known());
  slow.Run(20 * kMs);
  EXPECT_TRUE(slow.Known());
}

TEST(DpAdapter, ASourceLearnsNothingThroughATunnelThatDoesNotWork) {
  struct Case {
    const char* what;
    std::function<void(DisplayBench&)> act;
    bool known;
  };
  const Case cases[] = {
      {"all in order", [](DisplayBench&) {}, true},
      {"no display", [](DisplayBench& rig) { rig.fabric.UnplugDisplay("D1:13"); }, false},
      {"a display that never answers",
       [](DisplayBench& rig) {
         rig.fabric.UnplugDisplay("D1:13");
         rig.fabric.PlugDisplay("D1:13", {.answers = false});
       },
       false},
      {"fault", [](DisplayBench& rig) { rig.simulation.faults().FailNth("dp.no-capabilities", 1); }, false},
      {"no video entry", [](DisplayBench& rig) { rig.adapter("H1:5").SetPathEntry(9, {}); }, false},
      {"no AUX there", [](DisplayBench& rig) { rig.adapter("H1:5").SetPathEntry(8, {}); }, false},
      {"no AUX back", [](DisplayBench& rig) { rig.adapter("D1:13").SetPathEntry(8, {}); }, false},
      {"no buffers", [](DisplayBench& rig) { rig.adapter("D1:1").SetSetAsideBuffers(0); }, false},
      {"lane down", [](DisplayBench& rig) { rig.fabric.Unplug("D1"); }, false},
  };
  for (const Case& c : cases) {
    DisplayBench rig;
    rig.fabric.PlugDisplay("D1:13");
    c.act(rig);
    rig.Enable();
    rig.Run(50 * kMs);
    EXPECT_EQ(rig.Known(), c.known) << c.what;
  }
}

TEST(DpAdapter, ASourceForgetsADisplayThatIsGone) {
  struct Case {
    const char* what;
    std::function<void(DisplayBench&)> act;
  };
  const Case cases[] = {
      {"display unplugged", [](DisplayBench& rig) { rig.fabric.UnplugDisplay("D1:13"); }},
      {"hub unplugged", [](DisplayBench& rig) { rig.fabric.Unplug("D1"); }},
      {"sink switched off", [](DisplayBench& rig) { rig.SetDword(1, 13, 0, 0x0009048F); }},
      {"source switched off", [](DisplayBench& rig) { rig.SetDword(0, 5, 0, 0x0009048F); }},
  };
  for (const Case& c : cases) {
    DisplayBench rig;
    rig.fabric.PlugDisplay("D1:13");
    rig.Enable();
    rig.Run(11 * kMs);
    ASSERT_TRUE(rig.Known());
    c.act(rig);
    EXPECT_FALSE(rig.Known()) << c.what;
  }
  DisplayBench again;
  again.Enable();
  again.Run(50 * kMs);
  again.fabric.PlugDisplay("D1:13");
  again.Run(11 * kMs);
  EXPECT_TRUE(again.Known()) << "a display that comes later";
}

TEST(DpAdapter, TheHandshakeBitClearsByItself) {
  struct Case {
    const char* what;
    std::function<void(DisplayBench&)> arrange;
    std::uint32_t after;
  };
  const Case cases[] = {
      {"typical", [](DisplayBench&) {}, 0x04000000},
      {"slow", [](DisplayBench& rig) { SetDpFacts(rig.adapter("D1:13"), {.handshake = 500 * kMs}); }, 0x06000000},
      {"refused", [](DisplayBench& rig) { SetDpFacts(rig.adapter("D1:13"), {.refusesHandshake = true}); }, 0x06000000},
      {"fault", [](DisplayBench& rig) { rig.simulation.faults().FailNth("dp.no-handshake", 1); }, 0x06000000},
  };
  for (const Case& c : cases) {
    DisplayBench rig;
    c.arrange(rig);
    rig.SetDword(1, 13, 6, 0x06000000);
    EXPECT_EQ(rig.Dword(1, 13, 6), 0x06000000u);
    rig.Run(60 * kMs);
    EXPECT_EQ(rig.Dword(1, 13, 6), c.after) << c.what;
  }
}

TEST(DpAdapter, RoutersWithoutAHandshakeBlameWhoTries) {
  Rig rig("HT");
  rig.StartControlRing();
  rig.Configure(0, 5);
  rig.Write(0, 9, Space::Adapter, 0x3F, {0x06000000});
  rig.Run(100 * kMs);
  EXPECT_EQ(rig.Value(0, 9, Space::Adapter, 0x3F), 0x06000000u);
  EXPECT_EQ(rig.Errors(), "router 0 adapter 9: DP handshake with a router that has none\n");
}

TEST(DpAdapter, HotPlugDetectShowsTheDisplayAndClearsOnDemand) {
  DisplayBench rig;
  EXPECT_EQ(rig.Dword(1, 13, 2), 0u);
  rig.fabric.PlugDisplay("D1:13");
  EXPECT_EQ(rig.Dword(1, 13, 2), 0x40u);
  rig.Enable();
  rig.Run(11 * kMs);
  EXPECT_EQ(rig.Dword(0, 5, 2), 0x40u) << "passed on to the source";
  rig.SetDword(0, 5, 3, 0x01010205);
  EXPECT_EQ(rig.Dword(0, 5, 2), 0u);
  EXPECT_EQ(rig.Dword(0, 5, 3), 0x01010005u);
  rig.SetDword(0, 5, 2, 0x00010040);
  EXPECT_EQ(rig.Dword(0, 5, 2), 0x00010000u) << "the configuration field is the manager's";
  EXPECT_EQ(rig.Errors(), "");
}

TEST(DpAdapter, PlugAndUnplugAreReportedByTheirRouter) {
  DisplayBench rig;
  rig.Wire();
  rig.fabric.PlugDisplay("D1:13");
  rig.Run(1 * kMs);
  EXPECT_NE(rig.Wire().find("PLUG route=1 adapter=13"), std::string::npos);
  rig.Acknowledge(1, 13, false);
  rig.Wire();
  rig.fabric.UnplugDisplay("D1:13");
  rig.Run(1 * kMs);
  EXPECT_NE(rig.Wire().find("UNPLUG route=1 adapter=13"), std::string::npos);
  EXPECT_THROW(rig.fabric.UnplugDisplay("D1:13"), TopologyError);
  EXPECT_THROW(rig.fabric.PlugDisplay("H1:5"), TopologyError);
  EXPECT_THROW(rig.fabric.PlugDisplay("D1:13", {.most = {1000, 4}}), TopologyError);
}

TEST(DpAdapter, ADisplayCanHangOnAnyLevelAndOnAThunderboltDock) {
  for (const char* sink : {"D1:13", "D1a:14", "T3:10"}) {
    Rig rig("H1");
    rig.Build("H1:1 D1:1,D1:3 D1a:1,D1a:5 T3:1");
    rig.fabric.PlugDisplay(sink);
    SetUpFirmwareTunnel(rig.fabric, {FirmwareKind::Dp, "H1:6", sink});
    Adapter& source = *rig.fabric.FindAdapter("H1:6");
    EXPECT_EQ(ReachedDisplayPort(source), rig.fabric.FindAdapter(sink)) << sink;
    EXPECT_TRUE(ReadDp(source).capabilitiesRead) << sink;
  }
}

TEST(DpAdapter, ModelsMaySayTheirLimit) {
  const std::string text = "name = \"X\"\nmax-adapter = 2\n[[adapter]]\nnumbers = [1]\ntype = \"dp-in\"\n";
  EXPECT_EQ(ParseModel(text, "X").adapters[1].dpLink, (DpRate{8100, 4}));
  EXPECT_EQ(ParseModel(text + "dp-link = [5400, 2]\n", "X").adapters[1].dpLink, (DpRate{5400, 2}));
  for (const char* wrong : {"dp-link = [5400]\n", "dp-link = [5401, 2]\n", "dp-link = [5400, 3]\n"})
    EXPECT_THROW(ParseModel(text + wrong, "X"), ModelError);
}

}  // namespace
}  // namespace sim::test
