// Goal: each router gets the tunnels that its parent has adapters for, at the right ones. Method: choices asked of
// records; domains whose tunnels are built at start and by plugs, with adapters taken and accesses failing.
#include "cm/tunnel_policy.h"

#include <gtest/gtest.h>

#include "sim/firmware/firmware_tunnels.h"
#include "tests/support/step_log.h"
#include "tests/support/tunnel_bench.h"
#include "topology/device_list.h"
#include "tunnel/protocol_adapter.h"

namespace tests {
namespace {

void SwitchOn(TunnelBench& bench, const std::string& port) {
  sim::Adapter& adapter = bench.adapter(port);
  adapter.space().SetBits(adapter.protocolCapability, 1u << 31, 1u << 31);
}

WORLD_TEST(TunnelPolicy, AdaptersGoWithLinksByPosition) {
  const struct {
    const char* host;
    const char* topology;
    const char* lane;
    unsigned index;
    const char *pcieAt, *usb3At;  // by position
    const char *pcie, *usb3;      // chosen
    std::vector<const char*> on;  // switched on before
  } kCases[] = {
      {"H3", "H3:1 - D1:3", "H3:1", 0, "H3:9", "H3:21", "H3:9", "H3:21", {}},
      {"H3", "H3:1 - D1:3", "H3:3", 1, "H3:10", "H3:22", "H3:10", "H3:22", {}},
      {"H3", "H3:1 - D1:3", "H3:3", 1, "H3:10", "none", "H3:9", "H3:21", {"H3:10", "H3:22"}},
      {"H3", "H3:1 - D1:3", "H3:3", 1, "H3:10", "none", "none", "none", {"H3:9", "H3:10", "H3:21", "H3:22"}},
      {"H3", "H3:1 - D1:3", "H3:2", 2, "none", "none", "H3:9", "H3:21", {}},  // a second lane is no link
      // The way up does not count.
      {"H3", "H3:1 - D1:3", "D1:1", 0, "D1:10", "D1:17", "D1:10", "D1:17", {}},
      {"H3", "H3:1 - D1:3", "D1:7", 2, "D1:12", "D1:19", "D1:12", "D1:19", {}},
      {"H3", "H3:1 - D1:3", "D1:3", 3, "none", "none", "D1:10", "D1:17", {}},
      {"HT", "HT:1 - T3:1", "HT:3", 1, "HT:7", "none", "HT:6", "none", {}},  // no positions for PCIe here
      {"HT", "HT:1 - T3:1", "HT:3", 1, "HT:7", "none", "HT:7", "none", {"HT:6"}},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.lane);
    TunnelBench bench(test.topology);
    bench.ExpectLeftovers();
    bench.StartQuietly();
    for (const char* port : test.on) SwitchOn(bench, port);
    bench.InRun([&](USB4_DOMAIN& domain) {
      USB4_PORT* lane = bench.Port(domain, test.lane);
      EXPECT_EQ(Usb4PortIdx(lane->Router, lane), test.index);
      EXPECT_EQ(bench.NameOf(Usb4SwitchMapPcieDown(lane->Router, lane)), test.pcieAt);
      EXPECT_EQ(bench.NameOf(Usb4SwitchMapUsb3Down(lane->Router, lane)), test.usb3At);
      EXPECT_EQ(bench.NameOf(KivUsb4FindPcieDown(lane->Router, lane)), test.pcie);
      EXPECT_EQ(bench.NameOf(KivUsb4FindUsb3Down(lane->Router, lane)), test.usb3);
    });
    bench.Finish();
  }
}

WORLD_TEST(TunnelPolicy, BuildsParentsBeforeChildrenAndUsb3BeforePcie) {
  const struct {
    TunnelPolicy policy;
    const char* tunnels;
    const char* counts;
  } kCases[] = {
      {{}, "", "total 0, USB3 0, PCIe 0, DP 0"},
      {{.usb3 = true}, "USB3 0:4 -> 1:16\nUSB3 1:17 -> 301:7\n", "total 2, USB3 2, PCIe 0, DP 0"},
      {{.pcie = true}, "PCIe 0:3 -> 1:9\nPCIe 1:10 -> 301:5\nPCIe 1:11 -> 501:8\n", "total 3, USB3 0, PCIe 3, DP 0"},
      {kBoth, "USB3 0:4 -> 1:16\nUSB3 1:17 -> 301:7\nPCIe 0:3 -> 1:9\nPCIe 1:10 -> 301:5\nPCIe 1:11 -> 501:8\n",
       "total 5, USB3 2, PCIe 3, DP 0"},
  };
  for (const auto& test : kCases) {
    TunnelBench bench("H1:1 - D1:1, D1:3 - DOCK:1, D1:5 - T3:1", test.policy);
    bench.StartQuietly();
    EXPECT_EQ(bench.Tunnels(), test.tunnels);
    EXPECT_EQ(bench.Counts(), test.counts);
    // Displays are nobody's setting.
    bench.fabric().PlugDisplay("D1:13");
    bench.Quiet();
    EXPECT_EQ(bench.Tunnels(), std::string(test.tunnels) + "DP 0:5 -> 1:13\n");
    // A plug brings the same, router by router.
    bench.Unplug("D1:3");
    bench.Quiet();
    bench.Plug("D1:3 - DOCK:1");
    bench.Quiet();
    EXPECT_EQ(Count(bench.Tunnels(), "-> 301:7"), test.policy.usb3 ? 1u : 0u);
    EXPECT_EQ(Count(bench.Tunnels(), "-> 301:5"), test.policy.pcie ? 1u : 0u);
    bench.Finish();
  }
}

// The near adapter of the first child's tunnel refuses its path: the walk of that kind ends there.
WORLD_TEST(TunnelPolicy, AFailureEndsTheWalkOfItsKind) {
  const struct {
    const char* refused;
    const char* tunnels;
  } kCases[] = {
      {"WRITE route=0 adapter=9 space=path", "USB3 0:21 -> 1:16\nUSB3 0:22 -> 3:20\n"},
      {"WRITE route=0 adapter=21 space=path", "PCIe 0:9 -> 1:9\nPCIe 0:10 -> 3:9\n"},
      {"WRITE route=0 adapter=22 space=path", "USB3 0:21 -> 1:16\nPCIe 0:9 -> 1:9\nPCIe 0:10 -> 3:9\n"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.refused);
    bool refuse = true;
    TunnelBench bench("H3:1 - D1:1, H3:3 - D2:1", kBoth);
    bench.wire().log().Listen([&](const sim::WireEntry& entry) {
      if (entry.up || !refuse || entry.text.find(test.refused) != 0) return;
      refuse = false;
      bench.FailAnswer(1);
    });
    bench.StartQuietly();
    EXPECT_FALSE(refuse);
    EXPECT_EQ(bench.Tunnels(), test.tunnels);
    EXPECT_EQ(bench.Books(), "");
    bench.Finish();
  }
}

// Where the parent has another adapter free, a tunnel is tried beside the adopted one; the router's own is taken.
WORLD_TEST(TunnelPolicy, AnAdoptedTunnelBesideAFreeAdapterEndsTheWalk) {
  const struct {
    const char* topology;
    const char *from, *to;
    const char* tunnels;
  } kCases[] = {
      {"H3:1 - D1:1, H3:3 - D2:1", "H3:9", "D1:9", "PCIe 0:9 -> 1:9\n"},
      {"H1:1 - D1:1, D1:3 - D2:1", "H1:3", "D1:9", "PCIe 0:3 -> 1:9\nPCIe 1:10 -> 301:9\n"},
  };
  for (const auto& test : kCases) {
    TunnelBench bench(test.topology, {.pcie = true});
    sim::SetUpFirmwareTunnel(bench.fabric(), {sim::FirmwareKind::Pcie, test.from, test.to});
    bench.StartQuietly();
    EXPECT_EQ(bench.Tunnels(), test.tunnels);
    EXPECT_EQ(bench.Books(), "");
    bench.Finish();
  }
}

// Fewer adapters than routers: whoever comes late goes without, which is no failure.
WORLD_TEST(TunnelPolicy, ARouterWithoutAnAdapterGoesWithout) {
  TunnelBench bench("H1:1 - D1:1, D1:3 - DOCK:1, DOCK:3 - D2:1", kBoth);
  bench.StartQuietly();
  EXPECT_EQ(Count(bench.Tunnels(), "\n"), 6u);
  bench.Unplug("DOCK");
  bench.Quiet();
  EXPECT_EQ(bench.Tunnels(), "USB3 0:4 -> 1:16\nPCIe 0:3 -> 1:9\n");
  SwitchOn(bench, "D1:10"), SwitchOn(bench, "D1:11"), SwitchOn(bench, "D1:12");
  bench.Plug("D1:3 - DOCK:1");
  bench.Quiet();
  EXPECT_EQ(bench.Tunnels(),
            "USB3 0:4 -> 1:16\nPCIe 0:3 -> 1:9\nUSB3 1:17 -> 301:7\nUSB3 301:8 -> 30301:20\nPCIe 301:6 -> 30301:9\n");
  bench.ExpectLeftovers();
}

}  // namespace
}  // namespace tests
