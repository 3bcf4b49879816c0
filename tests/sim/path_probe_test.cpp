// Goal: a probe arrives exactly when every entry and cable of its way is right. Method: a PCIe path host - hub - hub
// written by hand, then broken in one place per row.
#include "sim/path_probe.h"

#include <gtest/gtest.h>

#include "tests/sim/rig.h"

namespace sim::test {
namespace {

struct PathBench : Rig {
  PathBench() : Rig("H1") {
    Build("H1:1 D1:1,D1:3 D2:1");
    Entry("D2:1", 9, "9", 8);
    Entry("D1:1", 9, "3", 9);
    Entry("H1:3", 8, "1", 9);
  }
  void Entry(const char* port, unsigned hop, const char* out, unsigned outHop, bool valid = true) {
    ConfigSpace& paths = fabric.FindAdapter(port)->paths();
    paths.Set(2 * hop, (valid ? 0x80000000 : 0) | static_cast<std::uint32_t>(std::stoul(out)) << 11 | outHop);
  }
  ProbeResult Go() { return Probe(*fabric.FindAdapter("H1:3"), 8); }
};

TEST(PathProbe, ArrivesOverThreeRouters) {
  PathBench rig;
  const ProbeResult result = rig.Go();
  EXPECT_EQ(result.arrived, rig.fabric.FindAdapter("D2:9"));
  EXPECT_EQ(result.hop, 8u);
  EXPECT_EQ(result.trail, "H1:3 8 -> H1:1 9 | D1:1 9 -> D1:3 9 | D2:1 9 -> D2:9 8");
  EXPECT_EQ(result.lost, "");
  EXPECT_EQ(LivePaths(rig.fabric),
            (std::vector<std::string>{"H1:3 8 -> H1:1 9 | D1:1 9 -> D1:3 9 | D2:1 9 -> D2:9 8"}));
}

TEST(PathProbe, IsLostWhereTheWayIsBroken) {
  struct Case {
    std::function<void(PathBench&)> act;
    const char* lost;
  };
  const Case cases[] = {
      {[](PathBench& rig) { rig.Entry("D1:1", 9, "3", 9, false); }, "no valid entry at D1:1 9"},
      {[](PathBench& rig) { rig.Entry("H1:3", 8, "1", 10); }, "no valid entry at D1:1 10"},
      {[](PathBench& rig) { rig.Entry("H1:3", 8, "1", 23); }, "hop 23 is above the limit of H1:1"},
      {[](PathBench& rig) { rig.Entry("H1:3", 8, "9", 9); }, "entry at H1:3 8 leads to no adapter"},
      {[](PathBench& rig) { rig.Entry("D1:1", 9, "5", 9); }, "D1:5 is not up"},
      {[](PathBench& rig) { rig.fabric.Unplug("D2"); }, "D1:3 is not up"},
      {[](PathBench& rig) { rig.Entry("D1:1", 9, "1", 9), rig.Entry("H1:1", 9, "1", 9); }, "the path runs in a circle"},
      {[](PathBench& rig) { rig.Entry("D2:1", 9, "9", 9); }, "hop 9 is above the limit of D2:9"},
  };
  for (const Case& c : cases) {
    PathBench rig;
    c.act(rig);
    const ProbeResult result = rig.Go();
    EXPECT_EQ(result.arrived, nullptr) << c.lost;
    EXPECT_EQ(result.lost, c.lost);
  }
}

TEST(PathProbe, OfBondedLanesOnlyTheFirstCarriesPaths) {
  PathBench rig;
  rig.Entry("D1:2", 9, "3", 9);
  rig.Entry("H1:3", 8, "2", 9);
  EXPECT_NE(rig.Go().arrived, nullptr) << "two single lanes";
  for (const char* port : {"H1:1", "H1:2", "D1:1", "D1:2"}) {
    Adapter& adapter = *rig.fabric.FindAdapter(port);
    std::vector<std::string> complaints;
    const std::uint32_t word = 0x0000803C;
    adapter.space().Write(adapter.laneCapability + 1, std::span(&word, 1), complaints);
  }
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Go().lost, "H1:2 is the second lane of a bonded link");
}

}  // namespace
}  // namespace sim::test
