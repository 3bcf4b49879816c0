// Goal: USB3 adapters consent to bandwidth changes, count in their units, and show what the devices behind them do.
// Method: a host adapter driven over the wire, facts changed from outside.
#include "sim/dataplane/usb3_function.h"

#include <gtest/gtest.h>

#include "sim/firmware/firmware_tunnels.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

struct Usb3Bench : Rig {
  explicit Usb3Bench(std::uint64_t seed = 0) : Rig("H1", seed) { Manage("H1:1 D1:1"); }
  std::uint32_t Dword(unsigned n) { return Value(0, 4, Space::Adapter, 0x0A + n); }
  void SetDword(unsigned n, std::uint32_t value) { Write(0, 4, Space::Adapter, 0x0A + n, {value}); }
};

TEST(Usb3Adapter, ConsentFollowsTheRequestBothWays) {
  for (std::uint64_t seed : {0, 1, 2, 3}) {
    Usb3Bench rig(seed);
    rig.SetDword(2, 0x80000000);
    rig.Run(45 * kMs);
    EXPECT_EQ(rig.Dword(1), 0x80000000u);
    rig.SetDword(2, 0x80123456);
    rig.SetDword(2, 0x00123456);
    rig.Run(45 * kMs);
    EXPECT_EQ(rig.Dword(1), 0u);
    EXPECT_EQ(rig.Dword(2), 0x00123456u);
    EXPECT_EQ(rig.Errors(), "");
  }
}

TEST(Usb3Adapter, RefusesAndTakesItsTime) {
  struct Case {
    const char* what;
    std::function<void(Usb3Bench&)> arrange;
    platform::Time at;
    std::uint32_t before, after;
  };
  const Case cases[] = {
      {"refused", [](Usb3Bench& rig) { SetUsb3Facts(rig.adapter("H1:4"), {.refusesRequests = true}); }, 900 * kMs, 0,
       0},
      {"fault", [](Usb3Bench& rig) { rig.simulation.faults().FailNth("usb3.no-acknowledge", 1); }, 900 * kMs, 0, 0},
      {"slow", [](Usb3Bench& rig) { SetUsb3Facts(rig.adapter("H1:4"), {.ackDelay = 850 * kMs}); }, 840 * kMs, 0,
       0x80000000},
  };
  for (const Case& c : cases) {
    Usb3Bench rig;
    c.arrange(rig);
    rig.SetDword(2, 0x80000000);
    rig.Run(c.at);
    EXPECT_EQ(rig.Dword(1), c.before) << c.what;
    rig.Run(100 * kMs);
    EXPECT_EQ(rig.Dword(1), c.after) << c.what;
  }
}

TEST(Usb3Adapter, BandwidthIsWrittenUnderConsentOnly) {
  Usb3Bench rig;
  rig.SetDword(2, 0x00123456);
  EXPECT_EQ(rig.Errors(),
            "H1:4 (route 0): USB3 bandwidth 0x00123456 written without the adapter's consent [usb3-consent]\n");
  Usb3Bench disturbed;
  disturbed.simulation.faults().FailNth("wire.lose", 1);
  EXPECT_EQ(disturbed.Read(0, 4, Space::Adapter, 0x0C), "");
  disturbed.SetDword(2, 0x00123456);
  EXPECT_EQ(disturbed.Errors(), "") << "a packet may have come late or twice";
  Usb3Bench spill;
  spill.SetDword(2, 0x80000000);
  spill.Run(5 * kMs);
  spill.SetDword(2, 0xFFFFFFFF);
  EXPECT_EQ(spill.Errors(), "") << "an allocation that is too large spills";
  EXPECT_EQ(spill.Dword(2), 0x80FFFFFFu);
}

TEST(Usb3Adapter, FactsShowInTheRegistersAndSurviveAReset) {
  Usb3Bench rig;
  EXPECT_EQ(rig.Dword(3), 1u) << "a host router holds 18000 Mb/s in 12 bits";
  EXPECT_EQ(rig.adapter("D1:16").space().Get(0x0A + 3), 0u);
  EXPECT_EQ(rig.Dword(4), 0x00001500u);
  SetUsb3Facts(rig.adapter("H1:4"),
               {.scale = 0, .maxRateMbps = 10000, .actualRateMbps = 20000, .consumed = {300, 200}});
  auto expectShown = [&rig](const char* when) {
    EXPECT_EQ(rig.adapter("H1:4").space().Get(0x0B), 49u << 12 | 74u) << when;
    EXPECT_EQ(rig.Dword(3), 0u) << when;
    EXPECT_EQ(rig.Dword(4), 0x00000581u) << when;
  };
  expectShown("at once");
  rig.fabric.Find("H1")->Reset();
  rig.Configure(0, 7);
  expectShown("after a reset");
  const Usb3Book book = ReadUsb3(rig.adapter("H1:4"));
  EXPECT_EQ(book.consumed.upMbps, 303u);
  EXPECT_EQ(book.consumed.downMbps, 201u);
  EXPECT_EQ(book.maxRateMbps, 10000u);
  EXPECT_EQ(book.actualRateMbps, 20000u);
}

TEST(Usb3Adapter, TheLinkRunsAtTheRateOfTheSlowerEndOnceItsTunnelWorks) {
  Usb3Bench rig;
  SetUsb3Facts(rig.adapter("D1:16"), {.maxRateMbps = 10000});
  EXPECT_EQ(rig.Dword(4) & 0xFF, 0u) << "no tunnel";
  SetUpFirmwareTunnel(rig.fabric, {FirmwareKind::Usb3, "H1:4", "D1:16", FirmwareState::Whole, 9000, 9000});
  EXPECT_EQ(rig.Dword(4) & 0xFF, 0x80u);
  SetUsb3Facts(rig.adapter("D1:16"), {.maxRateMbps = 20000});
  EXPECT_EQ(rig.Dword(4) & 0xFF, 0x81u);
  rig.fabric.Unplug("D1");
  EXPECT_EQ(rig.Dword(4) & 0xFF, 0u);
}

}  // namespace
}  // namespace sim::test
