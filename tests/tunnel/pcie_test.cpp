// Goal: PCIe reaches every router of the tree over whatever links lie between, and leaves nothing behind. Method: wired
// domains; the packets that the hardware carries, its entries word by word, and the driver's records.
#include <gtest/gtest.h>

#include "cm/tunnel_policy.h"
#include "tests/support/step_log.h"
#include "tests/support/tunnel_bench.h"
#include "topology/device_list.h"
#include "tunnel/pcie_tunnel.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_list.h"

namespace tests {
namespace {

constexpr TunnelPolicy kPcie{.pcie = true};
constexpr sim::CableOptions kOneLane = {1, 0, true};
constexpr sim::CableOptions kTwoSlowLanes = {2, 10, true};
constexpr sim::CableOptions kOneSlowLane = {1, 10, true};

struct Cable {
  const char *first, *second;
  sim::CableOptions options;
};

std::string TwoWays(std::initializer_list<const char*> down_up) {
  std::string text;
  for (const char* path : down_up) text += std::string("PCIe: ") + path + "\n";
  return text;
}

WORLD_TEST(PcieTunnels, ReachEachLevelOverEachKindOfLink) {
  const struct {
    const char* host;
    std::vector<Cable> cables;
    const char* tunnels;
    std::string paths;
  } kCases[] = {
      {"H1",
       {{"H1:1", "D1:1", kTrained}, {"D1:3", "D2:1", kOneLane}, {"D2:5", "DOCK:1", kTwoSlowLanes}},
       "PCIe 0:3 -> 1:9\nPCIe 1:10 -> 301:9\nPCIe 301:17 -> 50301:5\n",
       TwoWays({"H1:3 8 -> H1:1 8 | D1:1 8 -> D1:9 8", "D1:9 8 -> D1:1 8 | H1:1 8 -> H1:3 8",
                "D1:10 8 -> D1:3 8 | D2:1 8 -> D2:9 8", "D2:9 8 -> D2:1 8 | D1:3 8 -> D1:10 8",
                "D2:17 8 -> D2:5 8 | DOCK:1 8 -> DOCK:5 8", "DOCK:5 8 -> DOCK:1 8 | D2:5 8 -> D2:17 8"})},
      {"H1",
       {{"H1:1", "T1:1", kTrained}, {"T1:3", "T3:1", kTrained}},
       "PCIe 0:3 -> 1:8\nPCIe 1:6 -> 301:8\n",
       TwoWays({"H1:3 8 -> H1:1 8 | T1:1 8 -> T1:8 8", "T1:6 8 -> T1:3 8 | T3:1 8 -> T3:8 8",
                "T1:8 8 -> T1:1 8 | H1:1 8 -> H1:3 8", "T3:8 8 -> T3:1 8 | T1:3 8 -> T1:6 8"})},
      {"HT",  // no positions on a Thunderbolt 3 host: the first free adapter, in the order of the tree
       {{"HT:1", "T3:1", kOneLane}, {"HT:3", "D1:1", kTrained}, {"D1:7", "D2:3", kOneSlowLane}},
       "PCIe 0:6 -> 1:8\nPCIe 0:7 -> 3:9\nPCIe 3:12 -> 703:9\n",
       TwoWays({"HT:6 8 -> HT:1 8 | T3:1 8 -> T3:8 8", "HT:7 8 -> HT:3 8 | D1:1 8 -> D1:9 8",
                "T3:8 8 -> T3:1 8 | HT:1 8 -> HT:6 8", "D1:9 8 -> D1:1 8 | HT:3 8 -> HT:7 8",
                "D1:12 8 -> D1:7 8 | D2:3 8 -> D2:9 8", "D2:9 8 -> D2:3 8 | D1:7 8 -> D1:12 8"})},
      {"H3",  // the adapter at the position of the link
       {{"H3:3", "D1:5", kOneSlowLane}},
       "PCIe 0:10 -> 3:9\n",
       TwoWays({"H3:10 8 -> H3:3 8 | D1:5 8 -> D1:9 8", "D1:9 8 -> D1:5 8 | H3:3 8 -> H3:10 8"})},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.cables.back().second);
    TunnelBench bench(test.host, kPcie);
    for (const Cable& cable : test.cables) bench.Wire(cable.first, cable.second, cable.options);
    bench.StartQuietly();
    EXPECT_EQ(bench.Tunnels(), test.tunnels);
    EXPECT_EQ(bench.Paths(), test.paths);
    const std::string count = std::to_string(test.cables.size());
    EXPECT_EQ(bench.Counts(), "total " + count + ", USB3 0, PCIe " + count + ", DP 0");
    EXPECT_EQ(bench.Books(), "");
    bench.TearDownAll();
    EXPECT_EQ(bench.Paths(), "");
    EXPECT_EQ(bench.HopIds(), "");
    EXPECT_EQ(bench.Counts(), "total 0, USB3 0, PCIe 0, DP 0");
    bench.Stop();
    EXPECT_EQ(bench.Books(), "");
    bench.Finish();
  }
}

// Credits are bits 24:17 of the first word; rate code 4 is 20 Gb/s per lane, 8 is 10.
WORLD_TEST(PcieTunnels, TakeCreditsByTheRateAndWidthOfTheLink) {
  const struct {
    const char* device;
    const char* upstream;
    sim::CableOptions cable;
    unsigned rateCode, lanes;
    const char* entry;  // where the link leads into the device
  } kCases[] = {
      {"D1", "9", kTrained, 4, 2, "80404808 017ff301"},      {"D1", "9", kOneLane, 4, 1, "80304808 017ff301"},
      {"D1", "9", kTwoSlowLanes, 8, 2, "80304808 017ff301"}, {"D1", "9", kOneSlowLane, 8, 1, "80204808 017ff301"},
      {"G1", "5", kTrained, 8, 1, "80202808 017ff301"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(std::string(test.device) + " " + test.entry);
    const std::string lane = std::string(test.device) + ":1";
    TunnelBench bench("H1:1 - " + lane, kPcie, test.cable);
    bench.StartQuietly();
    const sim::Adapter& adapter = bench.adapter(lane);
    EXPECT_EQ(adapter.space().Get(adapter.laneCapability + 1) >> 16 & 0xF, test.rateCode);
    EXPECT_EQ(adapter.negotiatedWidth(), test.lanes);
    EXPECT_EQ(bench.Entry(lane, 8), test.entry);
    EXPECT_EQ(bench.Entry("H1:3", 8), "800e0808 037ff301");
    // The host router has no link upwards, so the way up gets the least there.
    EXPECT_EQ(bench.Entry("H1:1", 8), "80201808 017ff301");
    EXPECT_EQ(bench.Entry(std::string(test.device) + ":" + test.upstream, 8), "800e0808 037ff301");
    bench.Finish();
  }
}

struct PcieChain : TunnelBench {
  PcieChain() : TunnelBench("H1:1 - D1:1, D1:3 - D2:1") { StartQuietly(); }
  // Builds the tunnel of the router at `route`.
  KIV_RESULT Build(std::uint64_t route) {
    KIV_RESULT result = -99;
    InRun([&](USB4_DOMAIN& domain) {
      result = KivUsb4TunnnelPcie(&domain, KivUsb4DomainGetSwitch(&domain, route).Get());
    });
    return result;
  }
};

WORLD_TEST(PcieTunnels, AreBuiltFromTheFarEndAndTakenDownFromTheNear) {
  PcieChain chain;
  chain.Requests();
  EXPECT_EQ(chain.Build(0x301), 0);
  EXPECT_EQ(chain.TunnelWrites(),
            "D2:1 path 0x10\nD1:10 path 0x10\nD1:3 path 0x10\nD2:9 path 0x10\nD1:10 0x39\nD2:9 0x39\n");
  chain.TearDownAll();
  EXPECT_EQ(chain.TunnelWrites(),
            "D1:10 0x39\nD2:9 0x39\nD1:10 path 0x10\nD2:1 path 0x10\nD2:9 path 0x10\nD1:3 path 0x10\n");
  EXPECT_EQ(chain.Programmed(), "");
  EXPECT_EQ(chain.HopIds(), "");
}

WORLD_TEST(PcieTunnels, LeaveTheFabricAsItWasWhenAnyAccessFails) {
  PcieChain chain;
  // Whether the near adapter is free is guessed when it cannot be read; then four entries and two adapters.
  const KIV_RESULT results[] = {0, -1, -1, -1, -1, -1, -1};
  unsigned access = 0;
  for (const KIV_RESULT result : results) {
    SCOPED_TRACE("access " + std::to_string(++access));
    chain.FailAnswer(access);
    EXPECT_EQ(chain.Build(0x301), result);
    if (result == 0) chain.TearDownAll();
    EXPECT_EQ(chain.Programmed(), "");
    EXPECT_EQ(chain.HopIds(), "");
    EXPECT_EQ(chain.Counts(), "total 0, USB3 0, PCIe 0, DP 0");
    EXPECT_EQ(chain.Tunnels(), "");
  }
  chain.Requests();
  EXPECT_EQ(chain.Build(0x301), 0);
  EXPECT_EQ(Count(chain.Requests(), "\n"), access) << "there is no other access";
}

// Records, hop arrays, and the requests of every access.
TEST(PcieTunnels, LeaveNothingWhenAnyAllocationFails) {
  PcieChain chain;
  unsigned refused = 0;
  for (unsigned n = 1;; ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    const std::uint64_t fired = chain.faults().FiredCount();
    KIV_RESULT result = 0;
    chain.InRun([&](USB4_DOMAIN& domain) {
      USB4_SWITCH* dock = KivUsb4DomainGetSwitch(&domain, 0x301).Get();
      chain.faults().FailNth("pool.allocate", n);
      result = KivUsb4TunnnelPcie(&domain, dock);
      chain.faults().HealAll();
    });
    if (chain.faults().FiredCount() == fired) break;
    result == 0 ? chain.TearDownAll() : static_cast<void>(++refused);
    EXPECT_EQ(chain.Programmed(), "");
    EXPECT_EQ(chain.HopIds(), "");
    if (testing::Test::HasFailure()) return;
  }
  EXPECT_GE(refused, 6u) << "the tunnel, its array, two paths with their hops";
}

// The record goes whatever fails; what cannot be reached stays as it is.
WORLD_TEST(PcieTunnels, EndWhateverFails) {
  const struct {
    unsigned access;
    const char* left;  // of the path entries and adapters
  } kCases[] = {
      {1, "D2:9 on=2\n"},  // the near adapter's refusal keeps the far one on
      {2, ""},
      {3, "D1:10 8=800e1808/037ff301\n"},  // unread, and so still valid
      {4, ""},                             // its write was obeyed, only the answer was lost
      {5, ""},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.access);
    PcieChain chain;
    chain.ExpectLeftovers();
    ASSERT_EQ(chain.Build(0x301), 0);
    chain.FailAnswer(test.access);
    chain.TearDownAll();
    EXPECT_EQ(chain.Programmed(), test.left);
    EXPECT_EQ(chain.HopIds(), "");
    EXPECT_EQ(chain.Tunnels(), "");
    chain.Finish();
  }
}

WORLD_TEST(PcieTunnels, ThatAreUpAreNotActivatedAgain) {
  PcieChain chain;
  EXPECT_EQ(chain.Build(1), 0);
  chain.Requests();
  chain.InRun([](USB4_DOMAIN& domain) {
    USB4_TUNNEL* tunnel = TunnelsOf(&domain).First();
    EXPECT_EQ(KivUsb4TunnelActivate(tunnel), -1);
    tunnel->Paths[0]->Active = 0;
    EXPECT_EQ(KivUsb4TunnelActivate(tunnel), -1) << "one of its paths still is";
    tunnel->Paths[0]->Active = 1;
  });
  EXPECT_EQ(chain.TunnelWrites(), "");
  // Switched off again although no path is active.
  chain.InRun([](USB4_DOMAIN& domain) {
    KivUsb4TunnelDeactivate(TunnelsOf(&domain).First());
    KivUsb4TunnelDeactivate(TunnelsOf(&domain).First());
  });
  EXPECT_EQ(
      chain.TunnelWrites(),
      "H1:3 0x39\nD1:9 0x39\nH1:3 path 0x10\nD1:1 path 0x10\nD1:9 path 0x10\nH1:1 path 0x10\nH1:3 0x39\nD1:9 0x39\n");
  EXPECT_EQ(chain.Programmed(), "");
}

WORLD_TEST(PcieTunnels, SwitchOnlyAdaptersOfTheirKind) {
  PcieChain chain;
  chain.InRun([&](USB4_DOMAIN& domain) {
    USB4_TUNNEL* tunnel = KivUsb4TunnelAllocPcie(&domain, chain.Ends(domain, "H1:3", "D1:13"));
    ASSERT_NE(tunnel, nullptr);
    chain.Requests();
    EXPECT_EQ(KivUsb4PciActivate(tunnel, true), 0);
    EXPECT_EQ(chain.TunnelWrites(), "H1:3 0x39\n");
    EXPECT_EQ(KivUsb4PciActivate(tunnel, false), 0);
    KivUsb4TunnelFree(tunnel);
    EXPECT_EQ(KivUsb4PciPortEnable(chain.Port(domain, "D1:15"), true), -1) << "no capability";
    EXPECT_EQ(KivUsb4PciPortEnable(chain.Port(domain, "H1:3"), true), 0);
    EXPECT_TRUE(KivUsb4PciPortIsEnabled(chain.Port(domain, "H1:3")));
    chain.adapter("H1:3").space().Set(0x39, 0x80000005);
    chain.Requests();
    EXPECT_EQ(KivUsb4PciPortEnable(chain.Port(domain, "H1:3"), false), 0);
    EXPECT_EQ(chain.Requests(), "WRITE route=0 adapter=3 space=adapter offset=0x039 length=1 seq=0 data=00000000\n")
        << "the whole word, and nothing is read first";
    chain.FailAnswer(1);
    EXPECT_FALSE(KivUsb4PciPortIsEnabled(chain.Port(domain, "H1:3")));
  });
  EXPECT_EQ(chain.HopIds(), "");
  EXPECT_EQ(chain.TakeProtocolErrors(), "H1:3 (route 0): switched on before a path begins here [no-path-yet]\n");
}

}  // namespace
}  // namespace tests
