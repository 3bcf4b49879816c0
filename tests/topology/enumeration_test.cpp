// Goal: every router that can be reached is found, described and listed once, with exactly the accesses that takes, and
// whatever goes wrong on the way leaves a consistent domain. Method: whole machines started on wired topologies.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/bench.h"
#include "topology/device_list.h"

namespace tests {
namespace {

WORLD_TEST(Enumeration, ARouterBehindAnyPortPairMayBeTheUpstreamOne) {
  Bench bench("H1:1 - D1:5, D1:1 - D2:3");
  bench.StartQuietly();
  EXPECT_EQ(bench.Routers(), "0 gen4\n1 gen4 20G bonded\n101 gen4 20G bonded\n");
  bench.WithRouter(1, [](USB4_SWITCH& router) { EXPECT_EQ(router.UpstreamAdapter(), 5u); });
}

WORLD_TEST(Enumeration, ARouterIsToldItsPlaceAndThatItsManagerIsThere) {
  Bench bench("H1:1 - D1:1");
  bench.StartQuietly();
  const std::string requests = bench.Requests(1);
  for (const char* line : {
           // Route, depth 1, upstream adapter 1, valid; the manager's version beside the router's own.
           "WRITE adapter=0 space=router offset=0x001 length=4 seq=0 data=0314c128 00000001 80000000 2000100a\n",
           // Thunderbolt 3 supported, configuration valid.
           "WRITE adapter=0 space=router offset=0x005 length=1 seq=0 data=80800000\n",
           // Hot-plug events on: bit 31 clear, the rest of the word as it was.
           "WRITE adapter=3 space=adapter offset=0x005 length=1 seq=0 data=00009813\n",
           // Dual link wanted on both lanes.
           "WRITE adapter=1 space=adapter offset=0x037 length=1 seq=0 data=4814803c\n",
           "WRITE adapter=2 space=adapter offset=0x037 length=1 seq=0 data=4814803c\n",
           // Port configured.
           "WRITE adapter=1 space=adapter offset=0x0af length=1 seq=0 data=0000000e\n",
       }) {
    EXPECT_NE(requests.find(line), std::string::npos) << line << "is not among\n" << requests;
  }
}

// What one D1 behind the host router costs: each line is a step and the accesses to D1 that it takes.
TEST(Enumeration, AHubCostsItsOwnAccessesAndNotOneMore) {
  const struct {
    const char* step;
    unsigned accesses;
  } kSteps[] = {
      {"through which adapter it answers, header", 1 + 1},
      {"two vendor-specific blocks, both searched to the end of a list of two: twice each, and the end", 2 * 5},
      {"header written; wake report, status, control read and written; ready at the second poll", 1 + 1 + 1 + 2 + 2},
      {"4 DROM operations, each done at the second poll: metadata, start, 2 polls, result, data", 4 * 6},
      {"the kind of each adapter that a DROM entry names", 19},
      {"UID", 1},
      {"8 lane adapters: header; lane capability third in the list; port capability second", 8 * (1 + 5 + 3)},
      {"10 protocol adapters and an inactive one: header, one capability", 11 * 2},
      {"link speed and width", 2},
      {"TMU of the router and of 8 lanes; searched in vain through 10 lists of two and an empty one", 1 + 8 + 51},
      {"TMU rate, capability, mode", 3},
      {"hot-plug events of 8 lanes", 8 * 2},
      {"bonding: possible, both widths, both lanes' width and change, new attributes", 1 + 1 + 2 * 3 + 2},
      {"configured mark", 2},
      {"time: disruption on, two writes, two polls, disruption off", 2 + 2 + 2 + 2},
      {"HiFi: disruption on, rate, disruption off", 3 * 2},
      {"3 ports with nothing behind them", 3},
      {"2 DP OUT adapters: a display?", 2},
      {"3 PCIe and 3 USB3 downstream adapters: switched on by firmware?", 3 + 3},
  };
  unsigned sum = 0;
  for (const auto& step : kSteps) sum += step.accesses;
  Bench bench("H1:1 - D1:1");
  bench.StartQuietly();
  EXPECT_EQ(sum, 275u);
  EXPECT_EQ(bench.RequestCounts()[1], 275u);
}

WORLD_TEST(Enumeration, FiveBelowAUsb4RootIsTheDepthLimit) {
  Bench bench("H1:1 - a=D1:1, a:3 - b=D1:1, b:3 - c=D1:1, c:3 - d=D1:1, d:3 - e=D1:1, e:3 - f=D1:1");
  ASSERT_EQ(bench.Start(), 0);
  bench.Pass(5 * platform::kSecond);  // what is behind the last one counts as a host, and is asked who it is
  EXPECT_EQ(bench.Routers(),
            "0 gen4\n1 gen4 20G bonded\n301 gen4 20G bonded\n30301 gen4 20G bonded\n"
            "3030301 gen4 20G bonded\n303030301 gen4 20G bonded\n");
}

WORLD_TEST(Enumeration, ALinkOfOneLaneOrOfTenGigabitStaysWhatItIs) {
  const struct {
    sim::CableOptions cable;
    const char* tree;
  } kCases[] = {
      {{1, 0, true}, "0 gen4\n1 gen4 20G single\n"},
      {{2, 10, true}, "0 gen4\n1 gen4 10G bonded\n"},
      {{1, 10, true}, "0 gen4\n1 gen4 10G single\n"},
  };
  for (const auto& [cable, tree] : kCases) {
    Bench bench("H1:1 - D1:1", cable);
    bench.StartQuietly();
    EXPECT_EQ(bench.Routers(), tree);
  }
}

// The adapter number in a router's first answer, bits 24:19 of its address word, beyond the 19 that the hub has.
WORLD_TEST(Enumeration, ARouterThatAnswersThroughAnAdapterItDoesNotHaveIsNotTaken) {
  for (const std::uint32_t number : {20u, 63u}) {
    SCOPED_TRACE(number);
    bool lie = true;  // outlives the wire's listener
    Bench bench("H1:1 - D1:1");
    bench.ExpectIncomplete();
    bench.wire().log().Listen([&](const sim::WireEntry& entry) {
      if (entry.up || !lie || entry.text.find("READ route=1 ") != 0) return;
      lie = false;
      bench.wire().ReplaceAnswer(1, [number](sim::ControlPacket answer) {
        answer.dwords[2] = (answer.dwords[2] & ~(0x3Fu << 19)) | number << 19;
        return std::optional(sim::ControlWire::Raw(answer));
      });
    });
    bench.StartQuietly();
    EXPECT_FALSE(lie);
    EXPECT_EQ(bench.Routers(), "0 gen4\n");
    EXPECT_EQ(bench.RequestCounts()[1], 2u) << "which adapter, its header, and no more";
  }
}

WORLD_TEST(Enumeration, TheSameRouterAddedTwiceIsListedOnce) {
  Bench bench("H1:1 - D1:1");
  bench.StartQuietly();
  bench.WithRouter(1, [](USB4_SWITCH& router) {
    KivUsb4UpdateSwitchInfoToList(router.Domain, {&router.Info, 1, nullptr, &router, nullptr});
  });
  EXPECT_EQ(bench.Routers(), "0 gen4\n1 gen4 20G bonded\n");
}

}  // namespace
}  // namespace tests
