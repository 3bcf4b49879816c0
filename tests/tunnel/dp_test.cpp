// Goal: a display gets the best picture that its way, its adapters and what else runs there allow. Method: displays at
// wired hubs; modes and reservations as the hardware shows them, tunnels as the driver lists them.
#include "tunnel/dp_tunnel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "cm/tunnel_policy.h"
#include "platform/host/random.h"
#include "sim/dataplane/display_adapter.h"
#include "sim/dataplane/usb3_function.h"
#include "sim/fabric/fabric_books.h"
#include "tests/support/step_log.h"
#include "tests/support/tunnel_bench.h"
#include "topology/device_list.h"
#include "topology/link.h"
#include "tunnel/dp_adapter.h"
#include "tunnel/dp_capabilities.h"
#include "tunnel/dp_exchange.h"
#include "tunnel/link_bandwidth.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_list.h"

namespace tests {
namespace {

TEST(DpModes, AreReducedInTheOrderOfTheTable) {
  const struct {
    std::uint32_t maximum;
    DP_LINK_MODE dpIn, dpOut;
    KIV_RESULT result;
    DP_LINK_MODE chosen;
    std::uint32_t mbps;
  } kCases[] = {
      {25920, {8100, 4}, {8100, 4}, 0, {8100, 4}, 25920},
      {20000, {8100, 4}, {8100, 4}, 0, {5400, 4}, 17280},
      {17279, {8100, 4}, {8100, 4}, 0, {8100, 2}, 12960},
      {10000, {8100, 4}, {8100, 4}, 0, {2700, 4}, 8640},  // not 5400 x 2
      {9000, {5400, 2}, {8100, 4}, 0, {5400, 2}, 8640},
      {5000, {5400, 2}, {8100, 4}, 0, {5400, 1}, 4320},  // not 2700 x 2
      {4319, {5400, 2}, {8100, 4}, 0, {1620, 2}, 2592},
      {2160, {8100, 4}, {8100, 4}, 0, {2700, 1}, 2160},
      {1296, {8100, 4}, {8100, 4}, 0, {1620, 1}, 1296},
      {1295, {8100, 4}, {8100, 4}, -1, {0, 0}, 0},
      {30000, {8100, 4}, {0, 4}, -1, {0, 0}, 0},
  };
  TunnelBench bench("H1");
  bench.StartQuietly();
  bench.InRun([&kCases](USB4_DOMAIN&) {
    for (const auto& test : kCases) {
      DP_LINK_MODE chosen = {};
      EXPECT_EQ(KivUsb4DpReduceBandwidth({test.maximum, test.dpIn, test.dpOut}, chosen), test.result) << test.maximum;
      EXPECT_EQ(chosen.RateMbps, test.chosen.RateMbps) << test.maximum;
      EXPECT_EQ(chosen.Lanes, test.chosen.Lanes) << test.maximum;
      EXPECT_EQ(KivUsb4DpBandwidth(chosen), test.mbps);
    }
  });
}

TEST(DpModes, AreReadFromAndPutIntoCapabilities) {
  const struct {
    std::uint32_t caps, rate, lanes, set;  // set: 5400 x 2 put into it
  } kCases[] = {
      {0x00000000, 1620, 1, 0x00001200},
      {0x00002300, 8100, 4, 0x00001200},
      {0xFFFF9AFF, 0, 2, 0xFFFF92FF},
      {0x00007400, 0, 0, 0x00001200},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(KivUsb4DpCapRate(test.caps), test.rate);
    EXPECT_EQ(KivUsb4DpCapLanes(test.caps), test.lanes);
    EXPECT_EQ(KivUsb4DpCapSetLanes(KivUsb4DpCapSetRate(test.caps, 5400), 2), test.set);
  }
  EXPECT_EQ(KivUsb4DpCapSetRate(0x00002300, 1234), 0x00002000u) << "a rate without a code gets the smallest one's";
  EXPECT_EQ(KivUsb4DpCapSetLanes(0x00002300, 3), 0x00000300u);
}

std::string Rate(const std::optional<sim::DpRate>& rate) {
  return rate ? std::to_string(rate->mbpsPerLane) + "x" + std::to_string(rate->lanes) : "none";
}

std::string Reserved(TunnelBench& bench) {
  std::string text;
  for (const std::string& port : sim::DpReservations(bench.fabric())) text += port + " ";
  return text;
}

struct DisplayBench : TunnelBench {
  explicit DisplayBench(const std::string& topology = "H1:1 - D1:1", TunnelPolicy policy = {},
                        sim::CableOptions cable = kTrained)
      : TunnelBench(topology, policy, cable) {}
  void PlugDisplay(const std::string& port, sim::DpRate most = {8100, 4}) {
    fabric().PlugDisplay(port, sim::Display{.most = most});
    Quiet(60 * platform::kSecond);
  }
  void UnplugDisplay(const std::string& port) {
    fabric().UnplugDisplay(port);
    Quiet(60 * platform::kSecond);
  }
  std::string Negotiated(const std::string& port) { return Rate(sim::ReadDp(adapter(port)).negotiated); }
};

WORLD_TEST(Displays, ArePlayedOverEachLevelAndKindOfRouter) {
  const struct {
    const char* topology;
    const char* port;
    const char* tunnels;
    const char* reserved;
    const char* paths;
  } kCases[] = {
      {"H1:1 - D1:1", "D1:13", "DP 0:5 -> 1:13\n", "H1:5 ",
       "DP AUX: H1:5 8 -> H1:1 9 | D1:1 9 -> D1:13 8\nDP video: H1:5 9 -> H1:1 8 | D1:1 8 -> D1:13 9\n"
       "DP AUX: D1:13 8 -> D1:1 8 | H1:1 8 -> H1:5 8\n"},
      {"H1:1 - D1:1, D1:3 - DOCK:1", "DOCK:10", "DP 0:5 -> 301:10\n", "H1:5 ",
       "DP AUX: H1:5 8 -> H1:1 9 | D1:1 9 -> D1:3 9 | DOCK:1 9 -> DOCK:10 8\n"
       "DP video: H1:5 9 -> H1:1 8 | D1:1 8 -> D1:3 8 | DOCK:1 8 -> DOCK:10 9\n"
       "DP AUX: DOCK:10 8 -> DOCK:1 8 | D1:3 8 -> D1:1 8 | H1:1 8 -> H1:5 8\n"},
      {"H1:1 - D1:1, D1:3 - D2:1, D2:5 - DOCK:1", "DOCK:10", "DP 0:5 -> 50301:10\n", "H1:5 ",
       "DP AUX: H1:5 8 -> H1:1 9 | D1:1 9 -> D1:3 9 | D2:1 9 -> D2:5 9 | DOCK:1 9 -> DOCK:10 8\n"
       "DP video: H1:5 9 -> H1:1 8 | D1:1 8 -> D1:3 8 | D2:1 8 -> D2:5 8 | DOCK:1 8 -> DOCK:10 9\n"
       "DP AUX: DOCK:10 8 -> DOCK:1 8 | D2:5 8 -> D2:1 8 | D1:3 8 -> D1:1 8 | H1:1 8 -> H1:5 8\n"},
      {"H1:1 - D1:1, D1:3 - T3:1", "T3:11", "DP 0:5 -> 301:11\n", "H1:5 ",
       "DP AUX: H1:5 8 -> H1:1 9 | D1:1 9 -> D1:3 9 | T3:1 9 -> T3:11 8\n"
       "DP video: H1:5 9 -> H1:1 8 | D1:1 8 -> D1:3 8 | T3:1 8 -> T3:11 9\n"
       "DP AUX: T3:11 8 -> T3:1 8 | D1:3 8 -> D1:1 8 | H1:1 8 -> H1:5 8\n"},
      {"HT:1 - T3:1", "T3:10", "DP 0:8 -> 1:10\n", "HT:8 ",
       "DP AUX: HT:8 8 -> HT:1 9 | T3:1 9 -> T3:10 8\nDP video: HT:8 9 -> HT:1 8 | T3:1 8 -> T3:10 9\n"
       "DP AUX: T3:10 8 -> T3:1 8 | HT:1 8 -> HT:8 8\n"},
      {"HT:1 - D1:1", "D1:14", "DP 0:8 -> 1:14\n", "HT:8 ",
       "DP AUX: HT:8 8 -> HT:1 9 | D1:1 9 -> D1:14 8\nDP video: HT:8 9 -> HT:1 8 | D1:1 8 -> D1:14 9\n"
       "DP AUX: D1:14 8 -> D1:1 8 | HT:1 8 -> HT:8 8\n"},
      {"H3", "H3:11", "DP 0:13 -> 0:11\n", "H3:13 ",
       "DP AUX: H3:11 8 -> H3:13 8\nDP AUX: H3:13 8 -> H3:11 8\nDP video: H3:13 9 -> H3:11 9\n"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.topology);
    DisplayBench bench(test.topology);
    bench.StartQuietly();
    bench.PlugDisplay(test.port);
    EXPECT_EQ(bench.Tunnels(), test.tunnels);
    EXPECT_EQ(bench.Paths(), test.paths);
    EXPECT_EQ(bench.Books(), "");
    EXPECT_EQ(Reserved(bench), test.reserved);
    EXPECT_EQ(bench.Counts(), "total 1, USB3 0, PCIe 0, DP 1");
    bench.UnplugDisplay(test.port);
    EXPECT_EQ(bench.Tunnels(), "");
    EXPECT_EQ(bench.Programmed(), "");
    EXPECT_EQ(bench.Books(), "");
    EXPECT_EQ(bench.HopIds(), "");
    EXPECT_EQ(Reserved(bench), "");
    EXPECT_EQ(bench.Counts(), "total 0, USB3 0, PCIe 0, DP 0");
    bench.Finish();
  }
}

// 25:20 credits of an entry; flow control of AUX only; 12 buffers set aside at the lane for video.
WORLD_TEST(Displays, PathsAskWhatVideoAndAuxNeed) {
  DisplayBench bench;
  bench.StartQuietly();
  bench.PlugDisplay("D1:13");
  EXPECT_EQ(bench.Programmed(),
            "H1:1 8=80022808/017ff201\n"
            "H1:5 8=80020809/037ff201 9=80000808/007ff101 on=3\n"
            "D1:1 8=80006809/007ff101 9=80026808/017ff201 aside=12\n"
            "D1:13 8=80020808/037ff201 on=3\n");
}

// A link whose lanes are not bonded carries displays on the second one.
WORLD_TEST(Displays, TakeTheSecondOfTwoSingleLanes) {
  DisplayBench bench("H1:1 - D1:1", {}, {2, 10, true});
  bench.StartQuietly();
  bench.WithRouter(1, [](USB4_SWITCH& router) { KivUsb4SwitchLaneBondingDisable(&router); });
  bench.Pass(platform::kSecond);
  bench.InRun(
      [](USB4_DOMAIN& domain) { EXPECT_EQ(KivUsb4TunnnelPcie(&domain, KivUsb4DomainGetSwitch(&domain, 1).Get()), 0); });
  bench.PlugDisplay("D1:13");
  EXPECT_EQ(bench.Paths(),
            "PCIe: H1:3 8 -> H1:1 8 | D1:1 8 -> D1:9 8\n"
            "DP AUX: H1:5 8 -> H1:2 9 | D1:2 9 -> D1:13 8\nDP video: H1:5 9 -> H1:2 8 | D1:2 8 -> D1:13 9\n"
            "PCIe: D1:9 8 -> D1:1 8 | H1:1 8 -> H1:3 8\n"
            "DP AUX: D1:13 8 -> D1:2 8 | H1:2 8 -> H1:5 8\n");
  EXPECT_EQ(bench.Books(), "");
  EXPECT_EQ(bench.Negotiated("H1:5"), "2700x4") << "9000 Mb/s";
  // The budget is counted along first lanes, so the first display does not weigh on the second.
  bench.PlugDisplay("D1:14");
  EXPECT_EQ(bench.Negotiated("H1:6"), "2700x4");
}

// The hub's DROM leaves its first port without a second lane: there the way would turn back.
WORLD_TEST(Displays, NeedASecondLaneWhereLanesAreSingle) {
  sim::RouterModel oneLane = *sim::FindModel("D1");
  oneLane.adapters[1].pair = 0;
  oneLane.adapters[2].pair = 0;
  oneLane.adapters[2].presence = sim::AdapterPresence::DisabledByDrom;
  DisplayBench bench("H1");
  bench.fabric().AddRouter(oneLane, "X");
  bench.Wire("H1:1", "X:1");
  bench.StartQuietly();
  ASSERT_EQ(bench.Routers(), "0 gen4\n1 gen4 20G single\n");
  bench.PlugDisplay("X:13");
  EXPECT_EQ(bench.Tunnels(), "");
  EXPECT_EQ(bench.Paths(), "");
  EXPECT_EQ(bench.HopIds(), "");
  EXPECT_EQ(Reserved(bench), "");
}

// 25920 of 36000, and what is left; 17280 of 18000, and nothing that any mode fits into.
WORLD_TEST(Displays, ShareALinkInTheOrderInWhichTheyCome) {
  const struct {
    sim::CableOptions cable;
    const char *first, *second, *tunnels, *reserved;
  } kCases[] = {
      {kTrained, "8100x4", "2700x4", "DP 0:5 -> 1:13\nDP 0:6 -> 1:14\n", "H1:5 H1:6 "},
      {{2, 10, true}, "5400x4", "none", "DP 0:5 -> 1:13\n", "H1:5 "},
  };
  for (const auto& test : kCases) {
    DisplayBench bench("H1:1 - D1:1", {}, test.cable);
    bench.StartQuietly();
    bench.PlugDisplay("D1:13");
    bench.PlugDisplay("D1:14");
    EXPECT_EQ(bench.Negotiated("H1:5"), test.first);
    EXPECT_EQ(bench.Negotiated("H1:6"), test.second);
    EXPECT_EQ(bench.Tunnels(), test.tunnels);
    EXPECT_EQ(Reserved(bench), test.reserved);
    EXPECT_EQ(bench.Books(), "");
    bench.UnplugDisplay("D1:13");
    EXPECT_EQ(Count(bench.Tunnels(), "-> 1:14\n"), 1u) << "what was freed is used at once";
    EXPECT_EQ(bench.Books(), "");
    bench.Finish();
  }
}

WORLD_TEST(Displays, GetTheModeThatFitsTheirWayAndBothAdapters) {
  const struct {
    USB4_BANDWIDTH maximum;
    sim::DpRate dpIn, dpOut;
    KIV_RESULT result;
    const char* remote;  // what the DP IN is told of the display's end
    const char* mode;
  } kCases[] = {
      {{0, 20000}, {8100, 4}, {8100, 4}, 0, "5400x4", "5400x4"},
      {{0, 10000}, {8100, 4}, {8100, 4}, 0, "2700x4", "2700x4"},
      {{0, 9000}, {5400, 2}, {8100, 4}, 0, "5400x2", "5400x2"},
      {{0, 5000}, {5400, 2}, {8100, 4}, 0, "5400x1", "5400x1"},
      {{1296, 25920}, {8100, 4}, {8100, 4}, 0, "8100x4", "8100x4"},
      {{25920, 25919}, {8100, 4}, {8100, 4}, 0, "5400x4", "5400x4"},
      {{0, 0}, {2700, 1}, {8100, 4}, 0, "8100x4", "2700x1"},  // no maximum never reduces
      {{0, 1296}, {8100, 4}, {8100, 4}, 0, "1620x1", "1620x1"},
      {{0, 1295}, {8100, 4}, {8100, 4}, -1, "", "none"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(std::to_string(test.maximum.Downstream));
    DisplayBench bench;
    bench.StartQuietly();
    sim::SetDpFacts(bench.adapter("H1:5"), {.local = test.dpIn});
    sim::SetDpFacts(bench.adapter("D1:13"), {.display = sim::Display{.most = {8100, 4}}, .local = test.dpOut});
    bench.InRun([&](USB4_DOMAIN& domain) {
      USB4_TUNNEL* tunnel = KivUsb4TunnelAllocDp(&domain, bench.Ends(domain, "H1:5", "D1:13"), test.maximum);
      ASSERT_NE(tunnel, nullptr);
      EXPECT_EQ(KivUsb4TunnelActivate(tunnel), test.result);
      if (test.result == 0) {
        EXPECT_EQ(KivUsb4PollDPRxCapDone(tunnel), 0);
        EXPECT_EQ(Rate(sim::ReadDp(bench.adapter("H1:5")).remote), test.remote);
        EXPECT_EQ(Rate(sim::ReadDp(bench.adapter("D1:13")).remote), Rate(test.dpIn));
      }
      EXPECT_EQ(bench.Negotiated("H1:5"), test.mode);
      KivUsb4TunnelDeactivate(tunnel);
      KivUsb4TunnelFree(tunnel);
    });
    EXPECT_EQ(bench.Programmed(), "");
    bench.TakeProtocolErrors();
    bench.Finish();
  }
}

WORLD_TEST(Displays, CountByWhatTheyNegotiateAndNotAtAllWhileSilent) {
  const struct {
    const char* topology;
    const char *source, *port;
    sim::Display display;
    const char* consumed;
    int tenths;  // of a second that the answer takes
  } kCases[] = {
      {"H1:1 - D1:1", "H1:5", "D1:13", {.most = {5400, 4}}, "0/17280", 0},
      {"H1:1 - D1:1", "H1:5", "D1:13", {.most = {8100, 4}, .answers = false}, "0/0", 16},
      // A Thunderbolt 3 source that takes no part in the handshake counts by what it was told.
      {"HT:1 - T3:1", "HT:8", "T3:10", {.most = {5400, 2}, .answers = false}, "0/25920", 0},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.consumed);
    DisplayBench bench(test.topology);
    bench.StartQuietly();
    bench.fabric().PlugDisplay(test.port, test.display);
    bench.Quiet(60 * platform::kSecond);
    EXPECT_EQ(bench.Counts(), "total 1, USB3 0, PCIe 0, DP 1") << "a display that keeps silent has its tunnel";
    bench.InRun([&](USB4_DOMAIN& domain) {
      USB4_TUNNEL* tunnel = TunnelsOf(&domain).First();
      ASSERT_NE(tunnel, nullptr);
      USB4_BANDWIDTH consumed = {-1, -1};
      const platform::Time start = bench.simulation().Now();
      EXPECT_EQ(KivUsb4TunnelConsumedBandwidth(tunnel, &consumed), 0);
      const platform::Time tenths = (bench.simulation().Now() - start) / (100 * platform::kMillisecond);
      EXPECT_GE(tenths, test.tenths);
      EXPECT_LE(tenths, test.tenths + 1);
      EXPECT_EQ(std::to_string(consumed.Upstream) + "/" + std::to_string(consumed.Downstream), test.consumed);
      if (test.tenths != 0) {
        bench.Requests();
        EXPECT_EQ(KivUsb4PollDPRxCapDone(tunnel), -1);
        EXPECT_EQ(Count(bench.Requests(), "READ"), 10u);
      }
    });
    bench.Finish();
  }
}

WORLD_TEST(Displays, WaitForADpInThatTheRouterGrants) {
  const struct {
    const char* what;
    void (*script)(sim::RouterOperations& operations);
    const char* tunnels;
  } kCases[] = {
      {"query says no", [](sim::RouterOperations& host) { host.SetOpcodeResult(16, 1); }, ""},
      {"query not supported", [](sim::RouterOperations& host) { host.RefuseOpcode(16); }, "DP 0:5 -> 1:13\n"},
      {"reservation says no", [](sim::RouterOperations& host) { host.SetOpcodeResult(17, 1); }, ""},
      {"reservation not supported", [](sim::RouterOperations& host) { host.RefuseOpcode(17); }, ""},
      {"giving back not supported", [](sim::RouterOperations& host) { host.RefuseOpcode(18); }, "DP 0:5 -> 1:13\n"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    DisplayBench bench("H1:1 - D1:1", {.usb3 = true});
    test.script(bench.router("H1").operations());
    bench.StartQuietly();
    const unsigned granted = sim::ReadUsb3(bench.adapter("H1:4")).allocatedDownUnits;
    bench.PlugDisplay("D1:13");
    EXPECT_EQ(bench.Tunnels(), std::string("USB3 0:4 -> 1:16\n") + test.tunnels);
    EXPECT_EQ(sim::ReadUsb3(bench.adapter("H1:4")).allocatedDownUnits, granted);
    EXPECT_EQ(bench.Books(), "");
    // Both stay listed: the next run of the policy finds them.
    if (std::string(test.what) == "reservation says no") {
      bench.router("H1").operations().SetOpcodeResult(17, 0);
      bench.PlugDisplay("D1:14");
      EXPECT_EQ(bench.Tunnels(), "USB3 0:4 -> 1:16\nDP 0:5 -> 1:13\n")
          << "one pair for each event, in the order of the list";
    }
    bench.Finish();
  }
}

WORLD_TEST(Displays, WhoseHandshakeFailsLeaveNothing) {
  DisplayBench bench;
  bench.StartQuietly();
  bench.faults().FailFrom("dp.no-handshake", 1);
  bench.PlugDisplay("D1:13");
  EXPECT_EQ(bench.Tunnels(), "");
  EXPECT_EQ(bench.Programmed(), "");
  EXPECT_EQ(bench.HopIds(), "");
  EXPECT_EQ(bench.Books(), "");
  EXPECT_EQ(Reserved(bench), "");
  bench.InRun([&](USB4_DOMAIN& domain) {
    bench.Requests();
    const platform::Time start = bench.simulation().Now();
    EXPECT_EQ(KivUsb4DpCmHandshake(bench.Ends(domain, "H1:5", "D1:13")), -1);
    EXPECT_EQ((bench.simulation().Now() - start) / platform::kSecond, 1);
    EXPECT_EQ(Count(bench.Requests(1), "READ adapter=13 space=adapter offset=0x03f length=1"), 12u);
  });
  bench.faults().HealAll();
  bench.TakeProtocolErrors();
}

// Six displays and two sources: the two that have been there longest are shown.
WORLD_TEST(Displays, SixOnTwoSourcesInAnyOrder) {
  const std::vector<std::pair<std::string, std::string>> kDisplays = {{"D1:13", "1:13"},   {"D1:14", "1:14"},
                                                                      {"D2:11", "301:11"}, {"D2:12", "301:12"},
                                                                      {"D2:19", "301:19"}, {"DOCK:10", "501:10"}};
  DisplayBench bench("H1:1 - D1:1, D1:3 - D2:1, D1:5 - DOCK:1");
  bench.StartQuietly();
  std::vector<unsigned> plugged;
  const auto check = [&](const std::string& event) {
    SCOPED_TRACE(event);
    std::set<std::string> shown, expected;
    std::istringstream lines(bench.Tunnels());
    for (std::string line; std::getline(lines, line);) shown.insert(line.substr(line.find("-> ") + 3));
    for (unsigned i = 0; i < plugged.size() && i < 2; ++i) expected.insert(kDisplays[plugged[i]].second);
    EXPECT_EQ(shown, expected);
    EXPECT_EQ(bench.Books(), "");
  };
  platform::RandomStream random(CurrentSeed().value_or(99), "tests.displays");
  while (plugged.size() < 6) {
    const unsigned which = static_cast<unsigned>(random.Below(6));
    if (std::find(plugged.begin(), plugged.end(), which) != plugged.end()) continue;
    plugged.push_back(which);
    bench.PlugDisplay(kDisplays[which].first);
    check("plug " + kDisplays[which].first);
  }
  while (!plugged.empty()) {
    const auto at = plugged.begin() + static_cast<std::ptrdiff_t>(random.Below(plugged.size()));
    const std::string port = kDisplays[*at].first;
    plugged.erase(at);
    bench.UnplugDisplay(port);
    check("unplug " + port);
  }
  EXPECT_EQ(bench.Programmed(), "");
  EXPECT_EQ(Reserved(bench), "");
}

// Thunderbolt 3 adapters are told their hop IDs; what they send AUX with, they keep.
WORLD_TEST(Displays, ThunderboltAdaptersAreToldTheirHopIds) {
  DisplayBench bench("HT:1 - T3:1");
  bench.StartQuietly();
  const auto control = [&bench](const std::string& port) {
    const sim::Adapter& adapter = bench.adapter(port);
    char text[32];
    std::snprintf(text, sizeof text, "%08x %08x", adapter.space().Get(adapter.protocolCapability) & 0xFFFF0000,
                  adapter.space().Get(adapter.protocolCapability + 1));
    return std::string(text);
  };
  bench.PlugDisplay("T3:10");
  EXPECT_EQ(control("HT:8"), "c0090000 00004008");
  EXPECT_EQ(control("T3:10"), "c0090000 00004008");
  bench.UnplugDisplay("T3:10");
  EXPECT_EQ(control("HT:8"), "00000000 00000008");
  EXPECT_EQ(control("T3:10"), "00000000 00000008");
}

WORLD_TEST(Displays, SinksOfThunderboltHostsAreReservedInTheLinkController) {
  const struct {
    unsigned first, second;  // states before the start
    const char* tunnels;
    const char* reserved;
  } kCases[] = {
      {0, 0, "DP 0:8 -> 1:10\n", "HT:8 "},
      {1, 0, "DP 0:8 -> 1:10\n", "HT:8 "},
      {2, 0, "DP 0:11 -> 1:10\n", "HT:11 "},
      {2, 1, "DP 0:11 -> 1:10\n", "HT:11 "},
      {3, 2, "", ""},
  };
  for (const auto& test : kCases) {
    DisplayBench bench("HT:1 - T3:1");
    bench.router("HT").services().SetSinkState(0, test.first);
    bench.router("HT").services().SetSinkState(1, test.second);
    bench.StartQuietly();
    bench.PlugDisplay("T3:10");
    EXPECT_EQ(bench.Tunnels(), test.tunnels);
    EXPECT_EQ(Reserved(bench), test.reserved);
    bench.UnplugDisplay("T3:10");
    EXPECT_EQ(bench.router("HT").services().sinkState(0), test.first > 1 ? test.first : 0);
    bench.TakeProtocolErrors();
    bench.Finish();
  }
}

// The second controller of a machine marks its sources.
WORLD_TEST(Displays, OfTheSecondControllerCarryItsMark) {
  for (const unsigned index : {0u, 1u}) {
    DisplayBench bench;
    bench.StartQuietly();
    bench.InDevice([index](DEVICE_EXTENSION& context) { context.ControllerIndex = index; });
    bench.PlugDisplay("D1:13");
    const sim::Adapter& dpIn = bench.adapter("H1:5");
    EXPECT_EQ(dpIn.space().Get(dpIn.protocolCapability + 2) >> 16 & 0xF, index);
    EXPECT_EQ(bench.Counts(), "total 1, USB3 0, PCIe 0, DP 1");
    bench.InDevice([](DEVICE_EXTENSION& context) { context.ControllerIndex = 0; });
    bench.Finish();
  }
}

}  // namespace
}  // namespace tests
