// Goal: tunnels live as long as what they serve, over unplugs, stops and power states, and the device rests when there
// are none. Method: whole domains with all kinds of tunnels; lists, counts and entries before, during and after.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <sstream>
#include <utility>

#include "cm/bus.h"
#include "hostif/upcalls.h"
#include "sim/firmware/firmware_tunnels.h"
#include "tests/support/step_log.h"
#include "tests/support/tunnel_bench.h"

namespace tests {
namespace {

using sim::FirmwareKind;
using sim::FirmwareState;

constexpr const char* kNone = "total 0, USB3 0, PCIe 0, DP 0";

// Host, hub and dock, a display at the hub and one at the dock.
struct ChainBench : TunnelBench {
  ChainBench() : TunnelBench("H1:1 - D1:1, D1:3 - DOCK:1", kBoth) {
    StartQuietly();
    fabric().PlugDisplay("D1:13");
    Quiet();
    fabric().PlugDisplay("DOCK:10");
    Quiet();
  }
  // Sorted, and whichever source a display has: both follow the order in which displays are noticed.
  std::string Sorted() {
    std::vector<std::string> lines;
    std::istringstream text(Tunnels());
    for (std::string line; std::getline(text, line);) {
      if (line.find("DP 0:") == 0) line.erase(5, 1);
      lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    std::string sorted;
    for (const std::string& line : lines) sorted += line + "\n";
    return sorted;
  }
};
constexpr const char* kChain =
    "DP 0: -> 1:13\nDP 0: -> 301:10\nPCIe 0:3 -> 1:9\nPCIe 1:10 -> 301:5\nUSB3 0:4 -> 1:16\nUSB3 1:17 -> 301:7\n";
WORLD_TEST(TunnelLifetime, WhatRunsThroughAnUnpluggedRouterGoesWithIt) {
  ChainBench bench;
  EXPECT_EQ(bench.Sorted(), kChain);
  EXPECT_EQ(bench.Counts(), "total 6, USB3 2, PCIe 2, DP 2");
  EXPECT_EQ(bench.Books(), "");
  bench.Unplug("DOCK");
  bench.Quiet();
  EXPECT_EQ(bench.Sorted(), "DP 0: -> 1:13\nPCIe 0:3 -> 1:9\nUSB3 0:4 -> 1:16\n");
  EXPECT_EQ(bench.Counts(), "total 3, USB3 1, PCIe 1, DP 1");
  EXPECT_EQ(bench.Books(), "");
  bench.Plug("D1:3 - DOCK:1");
  bench.Quiet();
  EXPECT_EQ(bench.Sorted(), kChain) << "its display is there and gets its source again";
  bench.Requests();
  bench.Unplug("D1");
  bench.Quiet();
  EXPECT_EQ(bench.Tunnels(), "");
  EXPECT_EQ(bench.Counts(), kNone);
  EXPECT_EQ(bench.HopIds(), "");
  EXPECT_EQ(bench.Programmed(), "");
  // Tunnels before the link: its lanes are taken apart after the last path entry.
  const std::string requests = bench.Requests(0);
  const std::size_t last = requests.rfind("space=path");
  const std::size_t unmarked = requests.find("WRITE adapter=2 space=adapter offset=0x037");
  ASSERT_NE(last, std::string::npos);
  ASSERT_NE(unmarked, std::string::npos) << requests;
  EXPECT_LT(last, unmarked);
}

WORLD_TEST(TunnelLifetime, PcieAndUsb3AreNotTouchedBySleep) {
  std::string programmed;  // outlives the wire's listener
  unsigned broken = 0;
  ChainBench bench;
  bench.fabric().UnplugDisplay("DOCK:10");
  bench.fabric().UnplugDisplay("D1:13");
  bench.Quiet();
  const std::string tunnels = bench.Sorted();
  programmed = bench.Programmed();
  bench.Requests();
  bench.wire().log().Listen([&](const sim::WireEntry&) { broken += bench.Programmed() != programmed; });
  bench.Sleep();
  EXPECT_EQ(bench.Programmed(), programmed);
  bench.Resume();
  bench.Quiet();
  EXPECT_EQ(broken, 0u) << "valid and on at every packet";
  EXPECT_EQ(bench.TunnelWrites(), "H1:4 0x0c\nH1:4 0x0c\n") << "only the question how much USB3 has been granted";
  EXPECT_EQ(bench.Sorted(), tunnels);
  EXPECT_EQ(bench.Counts(), "total 4, USB3 2, PCIe 2, DP 0");
  EXPECT_EQ(bench.Books(), "");
}

WORLD_TEST(TunnelLifetime, DisplaysGoBeforeAPowerDownAndComeBackAfterIt) {
  for (const bool hibernate : {false, true}) {
    ChainBench bench;
    hibernate ? bench.Hibernate() : bench.Sleep();
    EXPECT_EQ(Count(bench.Paths(), "DP "), 0u);
    bench.Resume();
    bench.Quiet(60 * platform::kSecond);
    EXPECT_EQ(bench.Sorted(), kChain);
    EXPECT_EQ(bench.Counts(), "total 6, USB3 2, PCIe 2, DP 2");
    EXPECT_EQ(bench.Books(), "");
    bench.Finish();
  }
}

// An idle power-down that takes displays away has the graphics driver told of all of them, at each one that comes up,
// until the next power-down; one for a system sleep does not. The adapter and the power state of each message.
WORLD_TEST(TunnelLifetime, AfterAnIdleEachDisplayTellsOfAllOfThem) {
  const struct {
    bool idle;
    const char* restored;
    const char* replugged;
  } kCases[] = {{true, "5=1 5=1 6=1 ", "6=1 5=1 "}, {false, "", ""}};
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.idle);
    TunnelBench bench("H1:1 - D1:1");
    std::string told;
    bench.kernel().Offer({"{52d5f7e0-0786-41ef-a5d8-f03a2b29ba26}", "\\??\\graphics", 0,
                          [&told](std::uint32_t, std::span<const std::uint8_t> message) {
                            told += std::to_string(message[1]) + "=" + std::to_string(message[8]) + " ";
                            return platform::CompanionReply{};
                          }});
    bench.StartQuietly();
    for (const char* display : {"D1:13", "D1:14"}) {
      bench.fabric().PlugDisplay(display);
      bench.Quiet();
    }
    EXPECT_EQ(told, "") << "there was no power-down";
    bench.InDriver([&](USB4_DOMAIN& domain) {
      domain.RuntimeIdle.Set(test.idle);
      KivUsb4BusSuspend(&domain);
      EXPECT_EQ(domain.DisplayRestore.IsSet(), test.idle);
      KivUsb4BusStop(&domain, true);
      EXPECT_EQ(KivUsb4BusStart(&domain, false), 0);
    });
    bench.Quiet();
    EXPECT_EQ(bench.Counts(), "total 2, USB3 0, PCIe 0, DP 2");
    EXPECT_EQ(std::exchange(told, ""), test.restored);
    bench.fabric().UnplugDisplay("D1:13");
    bench.Quiet();
    bench.fabric().PlugDisplay("D1:13");
    bench.Quiet();
    EXPECT_EQ(told, test.replugged);
    bench.Finish();
  }
}

WORLD_TEST(TunnelLifetime, AStopThatKeepsHardwareLeavesEveryEntry) {
  ChainBench bench;
  const std::string programmed = bench.Programmed();
  bench.InDriver([&](USB4_DOMAIN& domain) {
    KivUsb4BusStop(&domain, true);
    EXPECT_EQ(bench.Programmed(), programmed);
    EXPECT_EQ(domain.TunnelCount.Load(), 0);
    EXPECT_TRUE(IsListEmpty(&domain.TunnelListHead));
    EXPECT_TRUE(IsListEmpty(&domain.DpResourceListHead));
    EXPECT_EQ(domain.HostRouter.Peek(), nullptr);
    EXPECT_EQ(KivUsb4BusStart(&domain, false), 0);
  });
  bench.Quiet();
  EXPECT_EQ(bench.Programmed(), programmed);
  EXPECT_EQ(bench.Sorted(), kChain);
  EXPECT_EQ(bench.Counts(), "total 6, USB3 2, PCIe 2, DP 0") << "adopted displays are not counted as this driver's";
}

WORLD_TEST(TunnelLifetime, AnyOtherStopTakesAllOfThemOut) {
  ChainBench bench;
  bench.InDriver([&](USB4_DOMAIN& domain) {
    KivUsb4BusStop(&domain, false);
    EXPECT_EQ(bench.Programmed(), "");
    EXPECT_EQ(bench.Books(), "");
    EXPECT_EQ(KivUsb4BusStart(&domain, false), 0);
  });
  bench.Quiet();
  EXPECT_EQ(bench.Sorted(), kChain);
  EXPECT_EQ(bench.Counts(), "total 6, USB3 2, PCIe 2, DP 2");
}

WORLD_TEST(TunnelLifetime, FirmwareTunnelsAreCountedByKindButForDisplays) {
  TunnelBench bench("H1:1 - D1:1, D1:3 - D2:1");
  sim::BondByFirmware(bench.fabric(), "H1:1");
  sim::BondByFirmware(bench.fabric(), "D1:3");
  bench.fabric().PlugDisplay("D1:13");
  sim::SetUpFirmwareTunnel(bench.fabric(), {FirmwareKind::Pcie, "H1:3", "D2:9"});
  sim::SetUpFirmwareTunnel(bench.fabric(), {FirmwareKind::Dp, "H1:5", "D1:13"});
  bench.StartQuietly();
  EXPECT_EQ(bench.Counts(), "total 2, USB3 0, PCIe 1, DP 0");
  EXPECT_EQ(bench.Tunnels(), "PCIe 0:3 -> 301:9\nDP 0:5 -> 1:13\n");
  EXPECT_EQ(bench.Books(), "");
  for (const std::uint64_t route : {0ull, 1ull, 0x301ull}) {
    bench.WithRouter(route, [route](USB4_SWITCH& router) { EXPECT_EQ(router.OnFirmwarePcieTunnel, route != 0); });
  }
  bench.Pass(60 * platform::kSecond);
  EXPECT_EQ(bench.kernel().Power(bench.machine().device()), platform::DevicePower::D0);
  // The found video path gives back what its DP IN has set aside, one more than the firmware took.
  bench.ExpectLeftovers();
  bench.fabric().UnplugDisplay("D1:13");
  bench.Quiet();
  EXPECT_EQ(bench.Counts(), "total 1, USB3 0, PCIe 1, DP 0") << "a count that is 0 stays 0";
}

WORLD_TEST(TunnelLifetime, NoTunnelIsBuiltWhileTheStartEnumerates) {
  TunnelBench bench("H1:1 - D1:1, D1:3 - DOCK:1", kBoth);
  bench.StartQuietly();
  const std::string requests = bench.Requests();
  const std::size_t first = requests.find("space=path");
  const std::size_t enumerated = requests.rfind("WRITE route=301 adapter=0 space=router offset=0x001");
  ASSERT_NE(enumerated, std::string::npos);
  EXPECT_GT(first, enumerated);
}

// What firmware has made of a source: nothing, a tunnel, or one whose near end alone (or both) it has switched off.
enum class Source { Nothing, On, NearOff, BothOff };

void SetUp(TunnelBench& bench, const std::string& dpIn, const std::string& dpOut, Source source) {
  if (source == Source::Nothing) return;
  const FirmwareState state = source == Source::BothOff ? FirmwareState::Off : FirmwareState::Whole;
  bench.fabric().PlugDisplay(dpOut);
  sim::SetUpFirmwareTunnel(bench.fabric(), {FirmwareKind::Dp, dpIn, dpOut, state});
  sim::Adapter& adapter = bench.adapter(dpIn);
  if (source == Source::NearOff) adapter.space().SetBits(adapter.protocolCapability, 3u << 30, 0);
}

// The leading sources that are off with whole paths are cleared, up to the first that is anything else.
WORLD_TEST(TunnelLifetime, LeftoversOfFirmwareAreClearedOnRequest) {
  const struct {
    const char* what;
    bool cleanUp;
    Source first, second;  // H1:5 to D1:13, H1:6 to D1:14
    const char* tunnels;
    bool firstLeft, secondLeft;  // programmed without a tunnel
  } kCases[] = {
      {"not asked for", false, Source::NearOff, Source::Nothing, "", true, false},
      // The displays are known now, and shown at the next event.
      {"one", true, Source::NearOff, Source::Nothing, "", false, false},
      {"both", true, Source::NearOff, Source::NearOff, "", false, false},
      {"the first is on", true, Source::On, Source::NearOff, "DP 0:5 -> 1:13\n", false, true},
      {"the first has no paths", true, Source::Nothing, Source::NearOff, "", false, true},
      // No tunnel by the rules of discovery: switched off, but its source stays reserved.
      {"its far end is off too", true, Source::BothOff, Source::Nothing, "DP 0:6 -> 1:13\n", false, false},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    TunnelBench bench("H1:1 - D1:1", {.cleanUp = test.cleanUp});
    bench.ExpectLeftovers();
    sim::BondByFirmware(bench.fabric(), "H1:1");
    SetUp(bench, "H1:5", "D1:13", test.first);
    SetUp(bench, "H1:6", "D1:14", test.second);
    bench.StartQuietly();
    EXPECT_EQ(bench.Tunnels(), test.tunnels);
    const std::string paths = bench.Paths();
    EXPECT_EQ(paths.find("video: H1:5") != paths.npos, test.firstLeft || test.first == Source::On) << paths;
    EXPECT_EQ(paths.find("video: H1:6") != paths.npos, test.secondLeft || test.first == Source::BothOff) << paths;
    if (std::string(test.what) == "both") {
      EXPECT_EQ(Count(bench.Books(), "reserved"), 0u);
      bench.fabric().UnplugDisplay("D1:14");
      bench.Quiet();
      EXPECT_EQ(bench.Tunnels(), "DP 0:5 -> 1:13\n");
    }
    bench.Finish();
  }
}

}  // namespace
}  // namespace tests
