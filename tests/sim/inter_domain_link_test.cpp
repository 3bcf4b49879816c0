// Goal: a cable between two domains keeps them apart: accesses are refused, inter-domain packets cross, lanes run as
// both ends say.
// Method: two hosts by hand on one clock, with and without a hub between; register and packet words from the tables.
#include <gtest/gtest.h>

#include "sim/router/cable.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

constexpr unsigned kLaneCapability = 0x36;  // lane capability of every model here
constexpr const char* kRefused = "ERROR route=1 adapter=1 code=8 (router not enumerated)";

struct TwoHosts : Rig {
  explicit TwoHosts(const char* cables = "H1:1 H3:1", std::uint64_t seed = 0) : Rig("H1", seed), other(*this, "H3") {
    Build(cables);
    ManageDomain();
    other.ManageDomain();
  }
  // A word of the lane capability's second dword, at either end.
  static std::uint32_t Lane(HostBench& host, unsigned adapter) {
    return host.Value(0, adapter, Space::Adapter, kLaneCapability + 1);
  }
  static void Ask(HostBench& host, unsigned adapter, unsigned targetWidth) {
    host.Write(0, adapter, Space::Adapter, kLaneCapability + 1,
               {(Lane(host, adapter) & ~0x3F0u) | targetWidth << 4 | 0x8000});
  }
  static unsigned Width(HostBench& host) { return Lane(host, 1) >> 20 & 0x3F; }
  static unsigned State(HostBench& host, unsigned adapter) { return Lane(host, adapter) >> 26 & 0xF; }

  HostBench other;
};

TEST(InterDomainLink, AnAccessAcrossItIsRefusedWhateverItsAddress) {
  TwoHosts rig;
  rig.Unlock(0, 1);
  EXPECT_EQ(rig.Read(1, 0, Space::Router, 0), kRefused);
  EXPECT_EQ(rig.Read(1, 15, Space::Adapter, 4, 2), kRefused);
  EXPECT_EQ(rig.Read(0x301, 63, Space::Path, 0x1FFF), kRefused) << "a route that would lead on";
  EXPECT_EQ(rig.Write(1, 0, Space::Router, 1, {0x00100100, 1, 0x80000000}), kRefused);
  EXPECT_EQ(rig.fabric.Find("H3")->place().route, 0u);
  EXPECT_EQ(rig.Errors(), "");
}

TEST(InterDomainLink, AHubBelongsToTheHostThatWasThereFirst) {
  TwoHosts rig("H1:1 D1:1,D1:5 H3:3");
  EXPECT_EQ(rig.fabric.Find("D1")->place().host, rig.fabric.Find("H1"));
  rig.Unlock(1, 5);
  EXPECT_EQ(rig.Read(0x501, 0, Space::Router, 0), "ERROR route=501 adapter=3 code=8 (router not enumerated)");
  rig.other.Unlock(0, 3);
  EXPECT_EQ(rig.other.Read(3, 0, Space::Router, 0), "ERROR route=3 adapter=5 code=8 (router not enumerated)");

  TwoHosts late("H3:3 D1:5,D1:1 H1:1");
  EXPECT_EQ(late.fabric.Find("D1")->place().host, late.fabric.Find("H3"));
  EXPECT_EQ(late.fabric.Find("D1")->upstreamAdapter(), 5u);
  late.fabric.Unplug("H3:3");
  late.Run(300 * kMs);
  EXPECT_EQ(late.fabric.Find("D1")->place().host, late.fabric.Find("H1")) << "the other host takes it over";
  EXPECT_EQ(rig.Errors() + late.Errors(), "");
}

TEST(InterDomainLink, PacketsCrossBothWaysAndArriveWithTheWayBack) {
  struct Case {
    const char* cables;
    std::uint64_t there, back;  // H1's route to H3, and H3's to H1
  };
  for (const Case& c :
       {Case{"H1:1 H3:3", 1, 3}, Case{"H1:1 D1:1,D1:5 H3:3", 0x501, 3}, Case{"H3:3 D1:5,D1:1 H1:1", 1, 0x103}}) {
    for (const Pdf pdf : {Pdf::InterDomainRequest, Pdf::InterDomainResponse}) {
      TwoHosts rig(c.cables);
      rig.Unlock(0, 1), rig.other.Unlock(0, 3);
      if (c.there == 0x501) rig.Unlock(1, 5);
      if (c.back == 0x103) rig.other.Unlock(3, 1);
      rig.Wire(), rig.other.Wire();
      const std::vector<std::uint32_t> rest{0x9E588F79, 0x478A1636, 0x6456C697, 0xDDC820A9, 12};
      rig.Send(pdf, c.there, 0x10000005, rest);
      rig.other.Send(pdf, c.back, 0x10000005, rest);
      rig.Run(1 * kMs);
      for (auto [host, route] : {std::pair{static_cast<HostBench*>(&rig), c.there}, {&rig.other, c.back}}) {
        ASSERT_FALSE(host->log().entries().empty());
        const WireEntry& last = host->log().entries().back();
        ASSERT_TRUE(last.up) << last.text;
        const auto decoded = DecodePacket(pdf, last.bytes);
        EXPECT_EQ(last.pdf, static_cast<unsigned>(pdf));
        EXPECT_TRUE(decoded->crcGood) << "with a CRC of its new header";
        EXPECT_EQ(decoded->packet.dwords,
                  (std::vector<std::uint32_t>{0x80000000, static_cast<std::uint32_t>(route), 0x10000005, 0x9E588F79,
                                              0x478A1636, 0x6456C697, 0xDDC820A9, 12}));
      }
      EXPECT_EQ(rig.Errors(), "");
    }
  }
}

TEST(InterDomainLink, ARequestThatFindsNoWayIsRefusedAndAnAnswerIsDropped) {
  Rig rig("H1");
  rig.Manage();
  rig.Wire();
  const std::vector<std::uint32_t> rest{0x0ED738B6, 0xBB40FF42, 0xE290C297, 0x07FFB2C0, 12};
  rig.Send(Pdf::InterDomainRequest, 1, 5, rest);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Wire(), "-> UUID-REQUEST route=1 seq=0\n<- ERROR route=0 adapter=1 code=0 (not connected)\n");
  rig.Send(Pdf::InterDomainResponse, 1, 5, {0x9E588F79, 0x478A1636, 0x6456C697, 0xDDC820A9, 6});
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Wire(), "-> XDOMAIN-RESPONSE route=1 dwords=8\n");
  EXPECT_EQ(rig.Errors(), "");
  rig.Send(Pdf::InterDomainRequest, 0, 5, rest);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Errors(), "H1 (route 0): inter-domain packet to the host's own router [inter-domain-itself]\n");
}

TEST(InterDomainLink, BothHostsAreToldOfPlugAndUnplugAndBothPortsLock) {
  TwoHosts rig("");
  for (HostBench* host : {static_cast<HostBench*>(&rig), &rig.other}) {
    host->Write(0, 1, Space::Adapter, 5, {host->Value(0, 1, Space::Adapter, 5) & 0x7FFFFFFF});
    host->Wire();
  }
  rig.fabric.Plug("H1:1", "H3:1");
  rig.Run(30 * kMs);
  for (HostBench* host : {static_cast<HostBench*>(&rig), &rig.other}) {
    EXPECT_EQ(host->Wire().substr(0, 25), "<- PLUG route=0 adapter=1") << host->hostName;
    host->Acknowledge(0, 1, false);
    host->Unlock(0, 1);
    host->Wire();
  }
  rig.fabric.Unplug("H3:1");
  rig.Run(1 * kMs);
  for (HostBench* host : {static_cast<HostBench*>(&rig), &rig.other}) {
    EXPECT_EQ(host->Wire().substr(0, 27), "<- UNPLUG route=0 adapter=1") << host->hostName;
    EXPECT_EQ(host->Value(0, 1, Space::Adapter, 4) & 0xC0000000, 0x80000000u);
  }
}

TEST(InterDomainLink, MarksBelongToOneEndEach) {
  TwoHosts rig;
  const unsigned mine = 0x9C + 19, theirs = rig.adapter("H3:1").usb4Capability + 19;
  rig.Write(0, 1, Space::Adapter, mine, {rig.Value(0, 1, Space::Adapter, mine) | 0x10});
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, mine), 0x00000016u);
  EXPECT_EQ(rig.other.Value(0, 1, Space::Adapter, theirs), 0x00000006u);
  EXPECT_EQ(rig.Errors(), "");
}

TEST(InterDomainLink, LanesRunWhereBothEndsEnableThemAndBondWhenBothHaveAsked) {
  TwoHosts rig;
  rig.other.Write(0, 2, Space::Adapter, kLaneCapability + 1, {rig.Lane(rig.other, 2) | 0x4000});
  EXPECT_EQ(rig.State(rig.other, 2), 0u) << "disabled";
  EXPECT_EQ(rig.State(rig, 2), 7u) << "the other end sees nothing";
  for (HostBench* host : {static_cast<HostBench*>(&rig), &rig.other}) {
    for (unsigned adapter : {1u, 2u}) rig.Ask(*host, adapter, 3);
  }
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Width(rig), 1u) << "one lane cannot be bonded";
  rig.other.Write(0, 2, Space::Adapter, kLaneCapability + 1, {rig.Lane(rig.other, 2) & ~0x4000u});
  rig.Run(150 * kMs);
  EXPECT_EQ(rig.Width(rig), 2u) << "both had asked";
  EXPECT_EQ(rig.Width(rig.other), 2u);

  rig.Ask(rig.other, 2, 1);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Width(rig), 1u) << "one lane of one end parts them";
  rig.Ask(rig.other, 2, 3);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Width(rig), 2u);
  EXPECT_EQ(rig.Errors(), "");
}

TEST(InterDomainLink, TrainsUnbondedThoughBothEndsKeepTheirTargetWidth) {
  TwoHosts rig;
  for (HostBench* host : {static_cast<HostBench*>(&rig), &rig.other}) {
    for (unsigned adapter : {1u, 2u}) rig.Ask(*host, adapter, 3);
  }
  rig.Run(1 * kMs);
  ASSERT_EQ(rig.Width(rig), 2u);
  rig.fabric.DropLink("H1:1", 10 * kMs);
  rig.Run(200 * kMs);
  EXPECT_EQ(rig.Lane(rig, 1) & 0x3FFFFFFF, 0x0814003Cu) << "up, one lane, target width two";
  for (unsigned adapter : {1u, 2u}) rig.Ask(rig, adapter, 3);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Width(rig), 1u) << "the other end has not asked since";
  for (unsigned adapter : {1u, 2u}) rig.Ask(rig.other, adapter, 3);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Width(rig), 2u);
}

TEST(InterDomainLink, AHostThatGoesToSleepDisconnectsItAndComesBackWithAPlug) {
  TwoHosts rig;
  rig.Write(0, 1, Space::Adapter, 5, {rig.Value(0, 1, Space::Adapter, 5) & 0x7FFFFFFF});
  rig.Wire();
  rig.other.host.SetPower(platform::FunctionPower::D3Hot);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Wire().substr(0, 27), "<- UNPLUG route=0 adapter=1");
  rig.Acknowledge(0, 1, true);
  rig.Run(1000 * kMs);
  EXPECT_EQ(rig.State(rig, 1), 7u);
  rig.Wire();
  rig.other.host.SetPower(platform::FunctionPower::D0);
  rig.Run(30 * kMs);
  EXPECT_EQ(rig.Wire().substr(0, 25), "<- PLUG route=0 adapter=1");
}

// H1 sleeps with its port armed for wake on connect.
TEST(InterDomainLink, ANeighbourThatComesUpWakesASleepingHostThatIsArmedForIt) {
  for (const bool armed : {false, true}) {
    TwoHosts rig;
    const unsigned mark = 0x9C + 19;
    if (armed) rig.Write(0, 1, Space::Adapter, mark, {rig.Value(0, 1, Space::Adapter, mark) | 0x10000});
    rig.Write(0, 0, Space::Router, 5, {rig.Value(0, 0, Space::Router, 5) | 1});
    rig.Run(10 * kMs);
    rig.host.SetPower(platform::FunctionPower::D3Hot);
    rig.other.host.SetPower(platform::FunctionPower::D3Hot);
    rig.Run(10 * kMs);
    EXPECT_EQ(rig.slot.wakes, 0u) << "its own going to sleep is no event";
    rig.other.host.SetPower(platform::FunctionPower::D0);
    EXPECT_EQ(rig.slot.wakes, armed ? 1u : 0u);
    rig.fabric.Unplug("H1:1");
    rig.fabric.Plug("H1:1", "H3:1");
    EXPECT_EQ(rig.slot.wakes, armed ? 2u : 0u);
    rig.fabric.DropLink("H1:1", 10 * kMs);
    rig.Run(20 * kMs);
    EXPECT_EQ(rig.slot.wakes, armed ? 3u : 0u) << "as a cable that was pulled and plugged";
  }
}

TEST(InterDomainLink, ACableBetweenTwoPortsOfAHostLoopsBack) {
  Rig rig("H3");
  rig.Manage("H3:1 H3:3");
  rig.Unlock(0, 1), rig.Unlock(0, 3);
  EXPECT_EQ(rig.Read(1, 0, Space::Router, 0), "ERROR route=1 adapter=3 code=8 (router not enumerated)");
  EXPECT_EQ(rig.Read(3, 0, Space::Router, 0), "ERROR route=3 adapter=1 code=8 (router not enumerated)");
  rig.Wire();
  rig.Send(Pdf::InterDomainRequest, 1, 5, {0x0ED738B6, 0xBB40FF42, 0xE290C297, 0x07FFB2C0, 12});
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Wire(), "-> UUID-REQUEST route=1 seq=0\n<- UUID-REQUEST route=3 seq=0\n");
  EXPECT_THROW(rig.fabric.Plug("H3:1", "H3:1"), TopologyError);
  EXPECT_EQ(rig.Errors(), "");
}

}  // namespace
}  // namespace sim::test
