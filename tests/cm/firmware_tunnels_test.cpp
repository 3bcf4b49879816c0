// Goal: tunnels that firmware has left are adopted where they are whole and cleared away where they are not. Method:
// one tunnel of each kind in each state before the machine is switched on; the domain after its start.
#include <gtest/gtest.h>

#include "cm/tunnel_discovery.h"
#include "sim/dataplane/usb3_function.h"
#include "sim/firmware/firmware_tunnels.h"
#include "tests/support/step_log.h"
#include "tests/support/tunnel_bench.h"
#include "tunnel/tunnel_list.h"

namespace tests {
namespace {

using sim::FirmwareKind;
using sim::FirmwareState;

constexpr const char* kNoTunnels = "total 0, USB3 0, PCIe 0, DP 0";

// Per state, what the domain owns and what is left in the routers.
struct Case {
  FirmwareState state;
  bool adopted;
  const char* left;
};

void Check(TunnelBench& bench, const Case& test, const char* tunnel, const char* counts) {
  SCOPED_TRACE(static_cast<int>(test.state));
  if (!test.adopted) bench.ExpectLeftovers();
  bench.StartQuietly();
  EXPECT_EQ(bench.Tunnels(), test.adopted ? tunnel : "");
  EXPECT_EQ(bench.Programmed(), test.left);
  EXPECT_EQ(bench.HopIds().empty(), !test.adopted);
  EXPECT_EQ(bench.Counts(), test.adopted ? counts : kNoTunnels);
  if (test.adopted) {
    EXPECT_EQ(bench.Books(), "");
    bench.TearDownAll();
    EXPECT_EQ(bench.Programmed(), "");
  }
  EXPECT_EQ(bench.TakeProtocolErrors(), "");
  bench.Finish();
}

WORLD_TEST(FirmwareTunnels, PcieIsAdoptedOrDropped) {
  const Case kCases[] = {
      {FirmwareState::Whole, true,
       "H1:1 8=80201808/01000301\nH1:3 8=800e0808/03000301 on=2\nD1:1 8=80201808/03000301\n"
       "D1:3 8=80200808/03000301\nD2:1 8=80204808/01000301\nD2:9 8=800e0808/03000301 on=2\n"},
      // Nobody looks at what is switched off.
      {FirmwareState::Off, false,
       "H1:1 8=80201808/01000301\nH1:3 8=800e0808/03000301\nD1:1 8=80201808/03000301\n"
       "D1:3 8=80200808/03000301\nD2:1 8=80204808/01000301\nD2:9 8=800e0808/03000301\n"},
      {FirmwareState::Bare, false, "D2:9 on=2\n"},
      {FirmwareState::Half, false, ""},
      // What the walk from the near end has not seen stays.
      {FirmwareState::Broken, false, "D2:9 8=800e0808/03000301 on=2\n"},
      {FirmwareState::FarOff, false, ""},
      {FirmwareState::Wrong, false, ""},
      {FirmwareState::Looping, false,
       "H1:1 8=80200808/03000301 9=80201808/01000301\nH1:3 8=800e0808/03000301\nD1:1 8=80200808/03000301\n"
       "D1:3 8=80200809/03000301\nD2:9 8=800e0808/03000301 on=2\n"},
      {FirmwareState::Long, false,
       "H1:1 14=8020080f/03000301 15=80201808/01000301\nD1:1 15=80201808/03000301\nD1:3 8=8020080f/03000301\n"
       "D2:1 8=80204808/01000301\nD2:9 8=800e0808/03000301 on=2\n"},
  };
  for (const Case& test : kCases) {
    TunnelBench bench("H1:1 - D1:1, D1:3 - D2:1");
    sim::SetUpFirmwareTunnel(bench.fabric(), {FirmwareKind::Pcie, "H1:3", "D2:9", test.state});
    Check(bench, test, "PCIe 0:3 -> 301:9\n", "total 1, USB3 0, PCIe 1, DP 0");
  }
}

WORLD_TEST(FirmwareTunnels, Usb3IsAdoptedOrDropped) {
  const Case kCases[] = {
      {FirmwareState::Whole, true,
       "H1:1 8=80202008/01000301\nH1:4 8=800e0808/03000301 on=3\nD1:1 8=80208008/01000301\n"
       "D1:16 8=800e0808/03000301 on=3\n"},
      {FirmwareState::Off, false,
       "H1:1 8=80202008/01000301\nH1:4 8=800e0808/03000301\nD1:1 8=80208008/01000301\nD1:16 8=800e0808/03000301\n"},
      {FirmwareState::Bare, false, "D1:16 on=3\n"},
      {FirmwareState::Half, false, ""},
      {FirmwareState::Broken, false, "D1:16 8=800e0808/03000301 on=3\n"},
      {FirmwareState::FarOff, false, ""},
      {FirmwareState::Wrong, false, "D1:9 on=3\n"},
      {FirmwareState::Long, false,
       "H1:1 14=8020080f/03000301 15=80202008/01000301\nD1:1 15=80208008/01000301\nD1:16 8=800e080f/03000301 on=3\n"},
  };
  for (const Case& test : kCases) {
    TunnelBench bench("H1:1 - D1:1");
    sim::SetUpFirmwareTunnel(bench.fabric(), {FirmwareKind::Usb3, "H1:4", "D1:16", test.state});
    Check(bench, test, "USB3 0:4 -> 1:16\n", "total 1, USB3 1, PCIe 0, DP 0");
  }
}

// Units of 1024 bits per 125 us; what goes beyond 32 bits per second's count is lost, and half of them read as
// negative.
WORLD_TEST(FirmwareTunnels, Usb3KeepsItsGrant) {
  const struct {
    unsigned up, down;
    int readUp, readDown;
  } kCases[] = {{2000, 1500, 2007, 1507}, {3000, 5000, -1289, 710}, {0, 0, 0, 0}};
  for (const auto& test : kCases) {
    TunnelBench bench("H1:1 - D1:1");
    sim::SetUpFirmwareTunnel(bench.fabric(),
                             {FirmwareKind::Usb3, "H1:4", "D1:16", FirmwareState::Whole, test.up, test.down});
    bench.StartQuietly();
    bench.InRun([&test](USB4_DOMAIN& domain) {
      const USB4_TUNNEL* tunnel = TunnelsOf(&domain).First();
      ASSERT_NE(tunnel, nullptr);
      EXPECT_EQ(tunnel->Allocated.Upstream, test.readUp);
      EXPECT_EQ(tunnel->Allocated.Downstream, test.readDown);
      EXPECT_EQ(tunnel->Maximum.Upstream, 0);
      EXPECT_EQ(tunnel->Maximum.Downstream, 0);
      EXPECT_STREQ(tunnel->Paths[0]->Name, "USB3 Down");
      EXPECT_EQ(tunnel->Paths[0]->Hops[0].InputAdapter, tunnel->Destination) << "the way back stands first";
      EXPECT_STREQ(tunnel->Paths[1]->Name, "USB3 Up");
    });
    EXPECT_FALSE(sim::ReadUsb3(bench.adapter("H1:4")).requested);
    bench.Finish();
  }
}

// A grant that the adapter will not tell is no tunnel.
WORLD_TEST(FirmwareTunnels, Usb3WithoutAnswerIsDropped) {
  TunnelBench bench("H1:1 - D1:1");
  sim::SetUpFirmwareTunnel(bench.fabric(), {FirmwareKind::Usb3, "H1:4", "D1:16", FirmwareState::Whole, 3000, 5000});
  bench.ExpectLeftovers();  // an open request
  bench.faults().FailFrom("usb3.no-acknowledge", 1);
  bench.StartQuietly();
  EXPECT_EQ(bench.Tunnels(), "");
  EXPECT_EQ(bench.Programmed(), "");
}

WORLD_TEST(FirmwareTunnels, DisplaysAreAdoptedOrConnectedAnew) {
  const struct {
    FirmwareState state;
    bool display;
    const char* tunnels;
    const char* counts;
    const char* books;
  } kCases[] = {
      {FirmwareState::Whole, true, "DP 0:5 -> 1:13\n", "total 1, USB3 0, PCIe 0, DP 0", ""},
      // A found path is taken to have set aside what its DP IN has, 13; the firmware had set 12 aside.
      {FirmwareState::Whole, false, "", kNoTunnels,
       "H1:5 is reserved without video [reserved-without-video]\nD1:1 has 1023 buffers set aside, 0 after reset "
       "[set-aside-buffers]\n"},
      // The firmware's DP IN is not offered, being reserved; its entries stand in the way of nobody.
      {FirmwareState::Off, true, "DP 0:6 -> 1:13\n", "total 1, USB3 0, PCIe 0, DP 1",
       "lost: DP AUX: H1:5 8 -> H1:1 9 | D1:1 9 -> D1:13 8 lost: H1:5 is switched off [path-lost]\n"
       "lost: DP video: H1:5 9 -> H1:1 8 | D1:1 8 -> D1:13 9 lost: H1:5 is switched off [path-lost]\n"
       "2 entries lead to H1:1 hop 8 [hop-shared]\n2 entries lead to H1:1 hop 9 [hop-shared]\n"},
      // A DP OUT that is on when it is found is nobody's resource.
      {FirmwareState::Bare, true, "", kNoTunnels,
       "H1:5 is reserved without video [reserved-without-video]\nD1:13 is switched on without a path "
       "[on-without-path]\n"},
      {FirmwareState::Half, true, "", kNoTunnels,
       "H1:5 is reserved without video [reserved-without-video]\nD1:1 has 1023 buffers set aside, 0 after reset "
       "[set-aside-buffers]\n"},
      {FirmwareState::Broken, true, "", kNoTunnels,
       "lost: DP AUX: D1:13 8 -> D1:1 8 lost: no valid entry at H1:1 8 [path-lost]\nH1:5 is reserved without video "
       "[reserved-without-video]\n"
       "D1:1 has 12 buffers set aside, 0 after reset [set-aside-buffers]\n"},
      {FirmwareState::FarOff, true, "DP 0:6 -> 1:13\n", "total 1, USB3 0, PCIe 0, DP 1",
       "H1:5 is reserved without video [reserved-without-video]\n"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(static_cast<int>(test.state));
    TunnelBench bench("H1:1 - D1:1");
    if (*test.books != 0) bench.ExpectLeftovers();
    sim::BondByFirmware(bench.fabric(), "H1:1");
    if (test.display) bench.fabric().PlugDisplay("D1:13");
    sim::SetUpFirmwareTunnel(bench.fabric(), {FirmwareKind::Dp, "H1:5", "D1:13", test.state});
    bench.StartQuietly();
    EXPECT_EQ(bench.Tunnels(), test.tunnels);
    EXPECT_EQ(bench.Counts(), test.counts);
    EXPECT_EQ(bench.Books(), test.books);
    bench.Finish();
  }
}

// Firmware leaves lanes single and a display on the second one; the start bonds the lanes and adopts the display's
// tunnel, which then carries nothing. The display gets another one when it is plugged again.
WORLD_TEST(FirmwareTunnels, ADisplayOnASecondLaneIsAdoptedAndDark) {
  TunnelBench bench("H1:1 - D1:1");
  bench.ExpectLeftovers();
  bench.fabric().PlugDisplay("D1:13");
  sim::FirmwareTunnel tunnel = {FirmwareKind::Dp, "H1:5", "D1:13"};
  tunnel.lane = 1;
  sim::SetUpFirmwareTunnel(bench.fabric(), tunnel);
  bench.StartQuietly();
  EXPECT_EQ(bench.Tunnels(), "DP 0:5 -> 1:13\n");
  EXPECT_NE(bench.Paths().find("DP video: H1:5 9 -> H1:2 8 lost: H1:2 is the second lane of a bonded link"),
            std::string::npos);
  bench.fabric().UnplugDisplay("D1:13");
  bench.Quiet();
  EXPECT_EQ(bench.Tunnels(), "");
  bench.fabric().PlugDisplay("D1:13");
  bench.Quiet();
  EXPECT_EQ(bench.Tunnels(), "DP 0:6 -> 1:13\n");
  EXPECT_NE(bench.Paths().find("DP video: H1:6 9 -> H1:1 8 | D1:1 8 -> D1:13 9"), std::string::npos);
}

// One tunnel of each kind is found again; each access, then each allocation, of the search fails in turn.
TEST(FirmwareTunnels, AreFoundOrForgottenWholeWhenAnyStepOfTheSearchFails) {
  for (const bool memory : {false, true}) {
    unsigned kept = 0, dropped = 0;
    bool failed = true;
    for (unsigned n = 1; failed; ++n) {
      SCOPED_TRACE((memory ? "allocation " : "access ") + std::to_string(n));
      TunnelBench bench("H1:1 - D1:1", {.usb3 = true, .pcie = true});
      bench.ExpectLeftovers();
      bench.StartQuietly();
      bench.fabric().PlugDisplay("D1:13");
      bench.Quiet();
      ASSERT_EQ(bench.Counts(), "total 3, USB3 1, PCIe 1, DP 1");
      bench.InRun([&](USB4_DOMAIN& domain) {
        while (USB4_TUNNEL* tunnel = TunnelsOf(&domain).First()) {
          KivUsb4DeactivateAndFreeTunnel(tunnel, {.Unlink = true, .KeepHardware = true});
        }
        bench.Requests();
        const std::uint64_t fired = bench.faults().FiredCount();
        memory ? bench.faults().FailNth("pool.allocate", n) : bench.FailAnswer(n);
        KivUsb4DiscoverTunnels(domain.HostRouter);
        failed = memory ? bench.faults().FiredCount() > fired : Count(bench.Requests(), "\n") >= n;
        bench.faults().HealAll();
      });
      const std::string tunnels = bench.Tunnels();
      ++(Count(tunnels, "\n") == 3 ? kept : dropped);
      EXPECT_GE(Count(tunnels, "\n"), failed ? 2u : 3u) << tunnels << "a failure costs the tunnel that it strikes";
      bench.TearDownAll();
      EXPECT_EQ(bench.HopIds(), "");
      EXPECT_EQ(bench.InDriver([](USB4_DOMAIN& domain) { return domain.TunnelCount.Load(); }), 0);
      bench.Finish();
      if (testing::Test::HasFailure()) return;
    }
    EXPECT_GE(kept, 5u);
    EXPECT_GE(dropped, 20u);
  }
}

}  // namespace
}  // namespace tests
