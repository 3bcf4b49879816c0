// Goal: a packet arrives exactly when every entry, cable and adapter of its way is right, and the list of paths says
// so. Method: tunnels host - hub - hub written by hand, then broken in one place per row.
#include "sim/dataplane/path_probe.h"

#include <gtest/gtest.h>

#include "tests/sim/rig.h"

namespace sim::test {
namespace {

constexpr std::uint32_t kFlow = 0x03000000;      // second dword: flow control on both sides
constexpr std::uint32_t kLastFlow = 0x01000000;  // only where the packet comes in
constexpr std::uint32_t kCredits = 7u << 17;

struct PathBench : Rig {
  explicit PathBench(const char* cables = "H1:1 D1:1,D1:3 D2:1") : Rig("H1") { Build(cables); }

  void Entry(const char* port, unsigned hop, unsigned out, unsigned outHop, std::uint32_t word1 = kFlow,
             std::uint32_t credits = kCredits) {
    adapter(port).SetPathEntry(hop, {0x80000000 | credits | out << 11 | outHop, word1});
  }
  void Set(const char* port, unsigned offset, std::uint32_t value) { adapter(port).space().Set(offset, value); }
  ProbeResult Go(const char* port = "H1:3", unsigned hop = 8) { return Probe(adapter(port), hop); }
};

struct PcieBench : PathBench {
  PcieBench() {
    Entry("H1:3", 8, 1, 9);
    Entry("D1:1", 9, 3, 9);
    Entry("D2:1", 9, 9, 8, kLastFlow);
    Set("H1:3", 0x39, 0x80000000);
    Set("D2:9", 0x39, 0x80000000);
  }
};

TEST(PathProbe, ArrivesOverThreeRouters) {
  PcieBench rig;
  const ProbeResult result = rig.Go();
  EXPECT_EQ(result.arrived, &rig.adapter("D2:9"));
  EXPECT_EQ(result.hop, 8u);
  EXPECT_EQ(result.trail, "H1:3 8 -> H1:1 9 | D1:1 9 -> D1:3 9 | D2:1 9 -> D2:9 8");
  EXPECT_EQ(result.hops.size(), 3u);
  EXPECT_EQ(result.lost, "");
}

TEST(PathProbe, IsLostWhereTheWayIsBroken) {
  struct Case {
    std::function<void(PcieBench&)> act;
    const char* lost;
  };
  const Case cases[] = {
      {[](PcieBench& rig) {
         rig.adapter("D1:1").SetPathEntry(9, {0x00001809, kFlow});
       },
       "no valid entry at D1:1 9"},
      {[](PcieBench& rig) { rig.Entry("H1:3", 8, 1, 10); }, "no valid entry at D1:1 10"},
      {[](PcieBench& rig) { rig.Entry("H1:3", 8, 1, 23); }, "hop 23 is above the limit of H1:1"},
      {[](PcieBench& rig) { rig.Entry("H1:3", 8, 9, 9); }, "entry at H1:3 8 leads to no adapter"},
      {[](PcieBench& rig) { rig.Entry("D1:1", 9, 5, 9); }, "D1:5 is not up"},
      {[](PcieBench& rig) { rig.fabric.Unplug("D2"); }, "D1:3 is not up"},
      {[](PcieBench& rig) { rig.Entry("D1:1", 9, 1, 9), rig.Entry("H1:1", 9, 1, 9); }, "the path runs in a circle"},
      {[](PcieBench& rig) { rig.Entry("D2:1", 9, 9, 9, kLastFlow); }, "hop 9 is above the limit of D2:9"},
      {[](PcieBench& rig) { rig.Entry("D2:1", 9, 9, 7, kLastFlow); }, "D2:9 does not take hop 7"},
      {[](PcieBench& rig) { rig.Set("H1:3", 0x39, 0); }, "H1:3 is switched off"},
      {[](PcieBench& rig) { rig.Set("D2:9", 0x39, 0); }, "D2:9 is switched off"},
      {[](PcieBench& rig) { rig.Entry("D1:1", 9, 3, 9, kFlow, 0); }, "no credits at D1:1 9"},
      {[](PcieBench& rig) { rig.Entry("H1:3", 8, 1, 9, kFlow, 0); }, "no credits at H1:3 8"},
      {[](PcieBench& rig) { rig.Entry("D1:1", 9, 3, 9, 0x02000000); },
       "flow control differs between H1:1 9 and D1:1 9"},
      {[](PcieBench& rig) { rig.Entry("D1:1", 9, 3, 9, kLastFlow); }, "flow control differs between D1:3 9 and D2:1 9"},
      {[](PcieBench& rig) { rig.Entry("D1:1", 9, 3, 9, kFlow | 0x800); }, "the entry at D1:1 9 drops packets"},
      {[](PcieBench& rig) { rig.host.SetPower(platform::FunctionPower::D3Hot); }, "H1 is asleep"},
  };
  for (const Case& c : cases) {
    PcieBench rig;
    c.act(rig);
    const ProbeResult result = rig.Go();
    EXPECT_EQ(result.arrived, nullptr) << c.lost;
    EXPECT_EQ(result.lost, c.lost);
  }
}

TEST(PathProbe, EntriesLeadThroughAFabricAtRestButPacketsDoNot) {
  PcieBench rig;
  for (const auto& link : rig.fabric.links()) link->Pause();
  EXPECT_EQ(FollowEntries(rig.adapter("H1:3"), 8).arrived, &rig.adapter("D2:9"));
  EXPECT_EQ(rig.Go().lost, "H1:1 is not up");
  EXPECT_EQ(
      LivePaths(rig.fabric),
      (std::vector<std::string>{"PCIe: H1:3 8 -> H1:1 9 | D1:1 9 -> D1:3 9 | D2:1 9 -> D2:9 8 lost: H1:1 is not up"}));
}

TEST(PathProbe, OfBondedLanesOnlyTheFirstCarriesPaths) {
  PcieBench rig;
  rig.Entry("D1:2", 9, 3, 9);
  rig.Entry("H1:3", 8, 2, 9);
  EXPECT_NE(rig.Go().arrived, nullptr) << "two single lanes";
  ASSERT_TRUE(rig.adapter("H1:1").link->BondAtOnce());
  EXPECT_EQ(rig.Go().lost, "H1:2 is the second lane of a bonded link");
}

TEST(PathProbe, DisplayAdaptersPassTheChannelThatIsSwitchedOnAndThunderboltOnesTheHopsTheyWereGiven) {
  struct Case {
    std::string sink;
    unsigned lane, buffers;
    std::uint32_t source, dword0, dword1;
    const char* video;
    const char* aux;
  };
  const Case cases[] = {
      {"D1:13", 2, 12, 0xC0000000, 0xC0000000, 0, "", ""},
      {"D1:13", 2, 0, 0xC0000000, 0xC0000000, 0, "no buffers set aside at D1:2 9", ""},
      {"D1:13", 2, 12, 0x80000000, 0xC0000000, 0, "", "H1:5 is switched off"},
      {"D1:13", 2, 12, 0xC0000000, 0x40000000, 0, "D1:13 is switched off", ""},
      {"D1:13", 2, 12, 0, 0xC0000000, 0, "H1:5 is switched off", "H1:5 is switched off"},
      {"T3:10", 1, 12, 0xC0000000, 0xC0090000, 0x00004008, "", ""},
      {"T3:10", 1, 12, 0xC0000000, 0xC0000000, 0x00004008, "T3:10 does not take hop 9", ""},
      {"T3:10", 1, 12, 0xC0000000, 0xC0090000, 0x00000008, "", "T3:10 does not take hop 8"},
      {"T3:10", 1, 12, 0xC0000000, 0xC0090000, 0x00004000, "", ""},
  };
  for (const Case& c : cases) {
    const std::string router = c.sink.substr(0, 2), in = router + (c.lane == 1 ? ":1" : ":2");
    const unsigned sink = router == "D1" ? 13 : 10;
    PathBench rig(("H1:1 " + router + ":1").c_str());
    rig.Entry("H1:5", 9, c.lane, 9, 0, 0);
    rig.Entry(in.c_str(), 9, sink, 9, 0, 0);
    rig.adapter(in.c_str()).SetSetAsideBuffers(c.buffers);
    rig.Entry("H1:5", 8, c.lane, 8);
    rig.Entry(in.c_str(), 8, sink, 8, kLastFlow);
    rig.Set("H1:5", 0x39, c.source);
    rig.Set(c.sink.c_str(), 0x39, c.dword0);
    if (router == "T3") rig.Set("T3:10", 0x3A, c.dword1);
    EXPECT_EQ(rig.Go("H1:5", 9).lost, c.video) << c.sink;
    EXPECT_EQ(rig.Go("H1:5", 8).lost, c.aux) << c.sink;
  }
}

TEST(PathProbe, TheListNamesKindsLostPathsAndLooseEntries) {
  PcieBench rig;
  rig.Entry("H1:4", 8, 1, 12);
  rig.Entry("D1:1", 12, 10, 8, kLastFlow);
  rig.Entry("D1:9", 8, 1, 8);
  rig.Entry("D1:4", 11, 1, 14);
  rig.Entry("D1:16", 8, 17, 8, kLastFlow);
  EXPECT_EQ(LivePaths(rig.fabric), (std::vector<std::string>{
                                       "PCIe: H1:3 8 -> H1:1 9 | D1:1 9 -> D1:3 9 | D2:1 9 -> D2:9 8",
                                       "mismatched: H1:4 8 -> H1:1 12 | D1:1 12 -> D1:10 8 lost: H1:4 is switched off",
                                       "PCIe: D1:9 8 -> D1:1 8 lost: no valid entry at H1:1 8",
                                       "USB3: D1:16 8 -> D1:17 8 lost: D1:16 is switched off",
                                       "dangling entry at D1:4 hop 11",
                                   }));
}

}  // namespace
}  // namespace sim::test
