// Goal: a source learns its display through a tunnel that works, and nothing else; handshakes, hot-plug detect and
// limits show as the registers say. Method: tunnels from the firmware generator, switched and broken over the wire.
#include "sim/dataplane/display_adapter.h"

#include <gtest/gtest.h>

#include "sim/firmware/firmware_tunnels.h"
#include "sim/router/cable.h"
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

TEST(DpAdapter, ASourceKnowsADisplayOnlyThroughATunnelThatWorks) {
  struct Case {
    const char* what;
    std::function<void(DisplayBench&)> act;
    bool known, alsoLater = false;
  };
  // Each as it stands when the tunnel is switched on; some also as they come about when the display is known.
  const Case cases[] = {
      {"all in order", [](DisplayBench&) {}, true},
      {"no display", [](DisplayBench& rig) { rig.fabric.UnplugDisplay("D1:13"); }, false, true},
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
      {"lane down", [](DisplayBench& rig) { rig.fabric.Unplug("D1"); }, false, true},
      {"sink switched off", [](DisplayBench& rig) { rig.SetDword(1, 13, 0, 0x0009048F); }, true, true},
      {"source switched off", [](DisplayBench& rig) { rig.SetDword(0, 5, 0, 0x0009048F); }, true, true},
  };
  for (const Case& c : cases) {
    DisplayBench rig;
    rig.fabric.PlugDisplay("D1:13");
    c.act(rig);
    rig.Enable();
    rig.Run(50 * kMs);
    EXPECT_EQ(rig.Known(), c.known) << c.what;
    if (!c.alsoLater) continue;
    DisplayBench later;
    later.fabric.PlugDisplay("D1:13");
    later.Enable();
    later.Run(50 * kMs);
    ASSERT_TRUE(later.Known());
    c.act(later);
    EXPECT_FALSE(later.Known()) << c.what;
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
  rig.Manage();
  rig.Write(0, 9, Space::Adapter, 0x3F, {0x06000000});
  rig.Run(100 * kMs);
  EXPECT_EQ(rig.Value(0, 9, Space::Adapter, 0x3F), 0x06000000u);
  EXPECT_EQ(rig.Errors(), "HT:9 (route 0): DP handshake with a router that has none [dp-handshake]\n");
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

}  // namespace
}  // namespace sim::test
