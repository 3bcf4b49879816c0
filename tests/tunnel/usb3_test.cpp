// Goal: USB3 gets its share of each link and gives way to displays by the rules. Method: tunnels over wired links; the
// registers of the host router's adapter, and the figures of the driver's records.
#include "tunnel/usb3_tunnel.h"

#include <gtest/gtest.h>

#include "cm/tunnel_policy.h"
#include "sim/dataplane/display_adapter.h"
#include "sim/dataplane/usb3_function.h"
#include "tests/support/step_log.h"
#include "tests/support/tunnel_bench.h"
#include "topology/device_list.h"
#include "tunnel/link_bandwidth.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_list.h"
#include "tunnel/usb3_adapter.h"

namespace tests {
namespace {

constexpr TunnelPolicy kUsb3{.usb3 = true};

std::string Text(const USB4_BANDWIDTH& bandwidth) {
  return std::to_string(bandwidth.Upstream) + "/" + std::to_string(bandwidth.Downstream);
}

TEST(Usb3Units, AreConvertedIn32Bits) {
  const struct {
    std::int32_t mbps;
    std::uint32_t scale, units;
    std::int32_t back;
  } kCases[] = {
      {1000, 0, 245, 1004},  // 125000 / 512, up; and to nearest
      {0, 0, 0, 0},          {1, 0, 1, 4},          {2000, 1, 245, 2007}, {9000, 1, 1099, 413},  // beyond 32 bits
      {18000, 1, 2198, 826}, {3000, 1, 367, -1289},                                              // read as signed
      {9000, 3, 275, 421},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(KivUsb4Usb3MbpsToBw(test.mbps, test.scale), test.units) << test.mbps;
    EXPECT_EQ(Usb3BwToMbps(test.units, test.scale), test.back) << test.units;
  }
}

// H1:4 to D1:16, as the driver records it, without a tunnel.
struct UsbBench : TunnelBench {
  explicit UsbBench(TunnelPolicy policy = {}, sim::CableOptions cable = kTrained,
                    const std::string& topology = "H1:1 - D1:1")
      : TunnelBench(topology, policy, cable) {
    sim::SetUsb3Facts(adapter("H1:4"), {.scale = 1, .maxRateMbps = 10000, .actualRateMbps = 10000});
  }
  sim::Usb3Facts facts() { return {.scale = 1, .maxRateMbps = 10000, .actualRateMbps = 10000}; }
  void Consume(unsigned up, unsigned down) {
    sim::Usb3Facts changed = facts();
    changed.consumed = {up, down};
    sim::SetUsb3Facts(adapter("H1:4"), changed);
  }
  std::string Units() {
    const sim::Usb3Book book = sim::ReadUsb3(adapter("H1:4"));
    return std::to_string(book.allocatedUpUnits) + "/" + std::to_string(book.allocatedDownUnits) +
           (book.requested ? " requested" : "") + (book.enabled ? " on" : "");
  }
  // The figures of the tunnel that starts at H1:4.
  std::string Allocated() {
    std::string text = "none";
    InRun([&](USB4_DOMAIN& domain) {
      const USB4_TUNNEL* tunnel = KivUsb4FindTunnel(&domain, USB4_TUNNEL_USB3, {Port(domain, "H1:4"), nullptr});
      if (tunnel != nullptr) text = Text(tunnel->Allocated);
    });
    return text;
  }
};

WORLD_TEST(Usb3Tunnels, AreMadeWith90PercentOfTheRateOrNotAtAll) {
  const struct {
    unsigned rate;  // of the host's adapter; the hub's can do 20000
    USB4_BANDWIDTH maximum;
    const char* allocated;
  } kCases[] = {
      {10000, {0, 0}, "0/0"},
      {10000, {9000, 9000}, "9000/9000"},
      {10000, {8999, 9000}, "none"},
      {10000, {9000, 8999}, "none"},
      {10000, {0, 1}, "none"},
      {10000, {-5, 0}, "0/0"},
      {10000, {36000, 36000}, "9000/9000"},
      {20000, {18000, 18000}, "18000/18000"},
      {20000, {17999, 36000}, "none"},
  };
  UsbBench bench;
  bench.StartQuietly();
  sim::SetUsb3Facts(bench.adapter("D1:16"), {.maxRateMbps = 20000});
  for (const auto& test : kCases) {
    sim::Usb3Facts facts = bench.facts();
    facts.maxRateMbps = test.rate;
    sim::SetUsb3Facts(bench.adapter("H1:4"), facts);
    bench.InRun([&](USB4_DOMAIN& domain) {
      USB4_TUNNEL* tunnel = KivUsb4TunnelAllocUsb3(&domain, bench.Ends(domain, "H1:4", "D1:16"), test.maximum);
      EXPECT_EQ(tunnel == nullptr ? "none" : Text(tunnel->Allocated), test.allocated) << Text(test.maximum);
      if (tunnel != nullptr) {
        EXPECT_EQ(bench.TextOf(tunnel->Paths[0]), "H1:4 8 -> H1:1 8 | D1:1 8 -> D1:16 8");
      }
      KivUsb4TunnelFree(tunnel);
    });
    EXPECT_EQ(bench.HopIds(), "");
  }
  bench.InRun([&](USB4_DOMAIN& domain) {
    bench.FailAnswer(1);
    EXPECT_EQ(KivUsb4TunnelAllocUsb3(&domain, bench.Ends(domain, "H1:4", "D1:16"), {9000, 9000}), nullptr);
    EXPECT_EQ(KivUsb4Usb3PortMaxLinkRate(bench.Port(domain, "H1:3")), -1) << "PCIe";
    EXPECT_EQ(Usb4Usb3PortCmRequest(bench.Port(domain, "D1:17"), true), -1) << "not on the host router";
    EXPECT_EQ(Usb4Usb3PortCmRequest(bench.Port(domain, "H1:3"), true), -1);
    EXPECT_EQ(KivUsb4Usb3PortEnable(bench.Port(domain, "D1:15"), true), -1);
  });
}

WORLD_TEST(Usb3Tunnels, AreGrantedWithinARequestBeforeTheirPathsAreUp) {
  UsbBench bench(kUsb3);
  bench.StartQuietly();
  EXPECT_EQ(bench.Units(), "1099/1099 on");
  EXPECT_EQ(bench.Allocated(), "9000/9000");
  EXPECT_EQ(bench.Paths(), "USB3: H1:4 8 -> H1:1 8 | D1:1 8 -> D1:16 8\nUSB3: D1:16 8 -> D1:1 8 | H1:1 8 -> H1:4 8\n");
  EXPECT_EQ(bench.Entry("D1:1", 8), "80408008 017ff303");
  EXPECT_EQ(bench.Entry("H1:4", 8), "800e0808 037ff303");
  EXPECT_EQ(bench.Counts(), "total 1, USB3 1, PCIe 0, DP 0");
  EXPECT_EQ(bench.Books(), "");
  bench.InRun([&](USB4_DOMAIN& domain) {
    USB4_TUNNEL* tunnel = TunnelsOf(&domain).First();
    KivUsb4TunnelDeactivate(tunnel);
    bench.Requests();
    EXPECT_EQ(KivUsb4TunnelActivate(tunnel), 0);
  });
  // Request, grant, end of the request; paths from their far ends; adapters, the near one first.
  EXPECT_EQ(bench.TunnelWrites(),
            "H1:4 0x0c\nH1:4 0x0c\nH1:4 0x0c\nD1:1 path 0x10\nH1:4 path 0x10\nH1:1 path 0x10\nD1:16 path 0x10\n"
            "H1:4 0x0a\nD1:16 0x0a\n");
  bench.InRun([&](USB4_DOMAIN& domain) {
    bench.Requests();
    EXPECT_EQ(KivUsb4Usb3PortEnable(bench.Port(domain, "H1:4"), false), 0);
    EXPECT_EQ(KivUsb4Usb3PortEnable(bench.Port(domain, "H1:4"), true), 0);
  });
  EXPECT_EQ(bench.Requests(0),
            "WRITE adapter=4 space=adapter offset=0x00a length=1 seq=0 data=40000000\n"
            "WRITE adapter=4 space=adapter offset=0x00a length=1 seq=0 data=c0000000\n");
  bench.TearDownAll();
  EXPECT_EQ(bench.Paths(), "");
  EXPECT_EQ(bench.HopIds(), "");
}

WORLD_TEST(Usb3Tunnels, GrowToWhatIsConsumedAndShrinkToNoLessThan1000) {
  UsbBench bench;
  bench.StartQuietly();
  const struct {
    unsigned up, down;
    USB4_BANDWIDTH asked;  // negative: a release
    const char* granted;
    const char* units;
  } kCases[] = {
      {300, 200, {-1, -1}, "1000/1000", "123/123"},
      {2000, 200, {-1, -1}, "2007/1000", "245/123"},
      {300, 200, {5000, 9000}, "5000/9000", "611/1099"},
      {2000, 1500, {1500, 1600}, "2007/1600", "245/196"},
      {0, 0, {0, 0}, "0/0", "0/0"},
  };
  for (const auto& test : kCases) {
    bench.Consume(test.up, test.down);
    bench.InRun([&](USB4_DOMAIN& domain) {
      USB4_BANDWIDTH bandwidth = test.asked;
      const USB4_PORT* adapter = bench.Port(domain, "H1:4");
      EXPECT_EQ(test.asked.Upstream < 0 ? Usb4Usb3PortReleaseBandwidth(adapter, bandwidth)
                                        : Usb4Usb3PortAllocateBandwidth(adapter, bandwidth),
                0);
      EXPECT_EQ(Text(bandwidth), test.granted);
    });
    EXPECT_EQ(bench.Units(), test.units);
  }
}

WORLD_TEST(Usb3Tunnels, AnAdapterThatDoesNotAcknowledgeIsLeftAlone) {
  UsbBench bench;
  bench.ExpectLeftovers();  // an open request
  bench.StartQuietly();
  bench.faults().FailFrom("usb3.no-acknowledge", 1);
  bench.InRun([&](USB4_DOMAIN& domain) {
    USB4_BANDWIDTH bandwidth = {5000, 5000};
    bench.Requests();
    const platform::Time start = bench.simulation().Now();
    EXPECT_EQ(Usb4Usb3PortAllocateBandwidth(bench.Port(domain, "H1:4"), bandwidth), -1);
    EXPECT_EQ((bench.simulation().Now() - start) / platform::kSecond, 1);
  });
  EXPECT_EQ(Count(bench.Requests(0), "READ adapter=4 space=adapter offset=0x00b length=1"), 11u);
  EXPECT_EQ(sim::ReadUsb3(bench.adapter("H1:4")).allocatedUpUnits, 0u);
  bench.InRun([&](USB4_DOMAIN& domain) {
    EXPECT_EQ(KivUsb4TunnelUsb3(&domain, KivUsb4DomainGetSwitch(&domain, 1).Get()), -1);
  });
  EXPECT_EQ(bench.Programmed(), "");
  EXPECT_EQ(bench.HopIds(), "");
  EXPECT_EQ(bench.Counts(), "total 0, USB3 0, PCIe 0, DP 0");
  bench.TakeProtocolErrors();
}

WORLD_TEST(Usb3Tunnels, TakeBackWhatIsAvailable) {
  const struct {
    unsigned actual, most;
    USB4_BANDWIDTH allocated, available;
    const char *after, *left;
  } kCases[] = {
      {10000, 20000, {1000, 1000}, {5000, 9500}, "5000/9000", "0/500"},
      {0, 10000, {1000, 1000}, {5000, 9500}, "5000/9000", "0/500"},  // no link: the maximum
      {20000, 20000, {1000, 1000}, {36000, 36000}, "18000/18000", "18000/18000"},
      {10000, 10000, {9000, 9000}, {36000, 36000}, "9000/9000", "36000/36000"},
      {10000, 10000, {3000, 3000}, {2000, 0}, "3000/3000", "2000/0"},  // no less than it has
      {10000, 10000, {3000, 9000}, {4000, 100}, "4000/9000", "0/-8900"},
  };
  UsbBench bench(kUsb3);
  bench.StartQuietly();
  for (const auto& test : kCases) {
    sim::SetUsb3Facts(bench.adapter("H1:4"), {.scale = 1, .maxRateMbps = test.most, .actualRateMbps = test.actual});
    bench.InRun([&](USB4_DOMAIN& domain) {
      USB4_TUNNEL* tunnel = TunnelsOf(&domain).First();
      tunnel->Allocated = test.allocated;
      USB4_BANDWIDTH available = test.available;
      KivUsb4TunnelReclaimAvailableBandwidth(tunnel, available);
      EXPECT_EQ(Text(tunnel->Allocated), test.after);
      EXPECT_EQ(Text(available), test.left);
    });
  }
  EXPECT_EQ(bench.Units(), "489/1099 on");
}

WORLD_TEST(LinkBudget, IsTheNarrowestLinkLessDisplaysAndUsb3) {
  const struct {
    sim::CableOptions first, second;
    const char *one, *two;  // to the hub, to the dock behind it
  } kCases[] = {
      {kTrained, kTrained, "36000/36000", "36000/36000"},
      {kTrained, {1, 0, true}, "36000/36000", "18000/18000"},
      {{2, 10, true}, kTrained, "18000/18000", "18000/18000"},
      {{1, 10, true}, kTrained, "9000/9000", "9000/9000"},
  };
  for (const auto& test : kCases) {
    TunnelBench bench("H1");
    bench.Wire("H1:1", "D1:1", test.first);
    bench.Wire("D1:3", "DOCK:1", test.second);
    bench.StartQuietly();
    bench.InRun([&](USB4_DOMAIN& domain) {
      USB4_BANDWIDTH available = {};
      EXPECT_EQ(KivUsb4AvailableBandwidth(&domain, bench.Ends(domain, "H1:4", "D1:16"), available), 0);
      EXPECT_EQ(Text(available), test.one);
      EXPECT_EQ(KivUsb4AvailableBandwidth(&domain, bench.Ends(domain, "H1:5", "DOCK:10"), available), 0);
      EXPECT_EQ(Text(available), test.two);
      EXPECT_EQ(KivUsb4AvailableBandwidth(&domain, bench.Ends(domain, "H1:3", "H1:7"), available), 0);
      EXPECT_EQ(Text(available), "40000/40000") << "no link on the way";
      bench.FailAnswer(2);  // the first one asks for a USB3 adapter
      EXPECT_NE(KivUsb4AvailableBandwidth(&domain, bench.Ends(domain, "H1:4", "D1:16"), available), 0);
    });
    bench.Finish();
  }
}

// A USB3 adapter that is on is not looked at: its tunnel neither gives way nor counts.
WORLD_TEST(LinkBudget, KnowsOnlyAUsb3TunnelWhoseAdapterIsOff) {
  UsbBench bench(kUsb3, kTrained, "H1:1 - D1:1, D1:3 - DOCK:1");
  bench.StartQuietly();
  bench.Consume(300, 200);
  bench.InRun([&](USB4_DOMAIN& domain) {
    const USB4_ENDS display = bench.Ends(domain, "H1:5", "DOCK:10");
    USB4_BANDWIDTH available = {};
    EXPECT_EQ(KivUsb4FindFirstUsb3Tunnel(&domain, display), nullptr);
    EXPECT_EQ(KivUsb4AvailableBandwidth(&domain, display, available), 0);
    EXPECT_EQ(Text(available), "36000/36000");
    EXPECT_EQ(KivUsb4ReleaseUsb3Bandwidth(&domain, display), 0);
    EXPECT_EQ(bench.Units(), "1099/1099 on") << "untouched";
    EXPECT_EQ(KivUsb4FindFirstUsb3Tunnel(&domain, bench.Ends(domain, "H1:5", "H1:4")), nullptr) << "no link";

    EXPECT_EQ(KivUsb4Usb3PortEnable(bench.Port(domain, "H1:4"), false), 0);
    USB4_TUNNEL* tunnel = KivUsb4FindFirstUsb3Tunnel(&domain, display);
    ASSERT_NE(tunnel, nullptr);
    EXPECT_EQ(tunnel->Source, bench.Port(domain, "H1:4"));
    EXPECT_EQ(KivUsb4AvailableBandwidth(&domain, display, available), 0);
    EXPECT_EQ(Text(available), "24000/24000") << "9000 and a third more, on both links";
    EXPECT_EQ(KivUsb4ReleaseUsb3Bandwidth(&domain, display), 0);
    EXPECT_EQ(Text(tunnel->Allocated), "1000/1000");
    EXPECT_EQ(KivUsb4AvailableBandwidth(&domain, display, available), 0);
    EXPECT_EQ(Text(available), "34667/34667");
    EXPECT_EQ(KivUsb4ReclaimUsb3Bandwidth(&domain, display), 0);
    EXPECT_EQ(Text(tunnel->Allocated), "9000/9000") << "back to 90 % of its link";
    tunnel->Paths[0]->Active = 0;
    EXPECT_EQ(KivUsb4AvailableBandwidth(&domain, display, available), 0);
    EXPECT_EQ(Text(available), "36000/36000") << "a tunnel that is not active consumes nothing";
    tunnel->Paths[0]->Active = 1;
    EXPECT_EQ(KivUsb4Usb3PortEnable(bench.Port(domain, "H1:4"), true), 0);
  });
}

WORLD_TEST(Usb3Tunnels, FurtherDownHaveNoGrantAndNeedOneAbove) {
  UsbBench bench(kUsb3, kTrained, "H1:1 - D1:1, D1:3 - DOCK:1, DOCK:3 - D2:1");
  bench.StartQuietly();
  EXPECT_EQ(bench.Tunnels(), "USB3 0:4 -> 1:16\nUSB3 1:17 -> 301:7\nUSB3 301:8 -> 30301:20\n");
  EXPECT_EQ(bench.Books(), "");
  bench.InRun([&](USB4_DOMAIN& domain) {
    for (USB4_TUNNEL& tunnel : TunnelsOf(&domain)) {
      const bool first = tunnel.Source == bench.Port(domain, "H1:4");
      EXPECT_EQ(tunnel.Init != nullptr, first);
      EXPECT_EQ(tunnel.ConsumedBandwidth != nullptr, first);
      EXPECT_EQ(tunnel.ReleaseUnusedBandwidth != nullptr, first);
      EXPECT_EQ(tunnel.ReclaimAvailableBandwidth != nullptr, first);
      EXPECT_EQ(Text(tunnel.Allocated), first ? "9000/9000" : "0/0");
    }
    // Without one itself the hub gives none to the dock.
    while (USB4_TUNNEL* tunnel = TunnelsOf(&domain).First()) {
      KivUsb4DeactivateAndFreeTunnel(tunnel, {.Unlink = true, .KeepHardware = false});
    }
    EXPECT_EQ(KivUsb4TunnelUsb3(&domain, KivUsb4DomainGetSwitch(&domain, 0x301).Get()), 0);
    EXPECT_TRUE(TunnelsOf(&domain).IsEmpty());
  });
}

// Every access of building the tunnel fails in turn.
WORLD_TEST(Usb3Tunnels, LeaveTheFabricAsItWasWhenAnyAccessFails) {
  UsbBench bench;
  bench.ExpectLeftovers();  // by the teardown whose first access fails at last
  bench.StartQuietly();
  unsigned access = 0;
  KIV_RESULT result = 0;
  for (bool all = false; !all;) {
    SCOPED_TRACE("access " + std::to_string(++access));
    bench.FailAnswer(access);
    bench.Requests();
    bench.InRun(
        [&](USB4_DOMAIN& domain) { result = KivUsb4TunnelUsb3(&domain, KivUsb4DomainGetSwitch(&domain, 1).Get()); });
    all = Count(bench.Requests(), "\n") < access;
    if (result == 0) {
      EXPECT_EQ(bench.Counts(), "total 1, USB3 1, PCIe 0, DP 0");
      bench.TearDownAll();
    }
    if (!all) {
      EXPECT_EQ(bench.Programmed(), "");
    }
    EXPECT_EQ(bench.HopIds(), "");
    EXPECT_EQ(bench.Counts(), "total 0, USB3 0, PCIe 0, DP 0");
    if (testing::Test::HasFailure()) return;
  }
  EXPECT_GT(access, 20u);
}

}  // namespace
}  // namespace tests
