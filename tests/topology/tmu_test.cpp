// Goal: whatever state firmware has left a router's time in, it ends up in step with the host router, by the one
// sequence of writes that does it. Method: hubs whose registers are preset, enumerated, and their writes compared.
#include "topology/tmu.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/bench.h"

namespace tests {
namespace {

// Where D1 keeps its time: router capability at 0x28, lane capability at 0x0A.
constexpr unsigned kRate = 0x2B;
constexpr unsigned kLaneMode = 0x0D;

// The writes to the time registers of host router and hub, one a line, without their data.
std::string TimeWrites(Bench& bench) {
  const std::map<std::string, std::string> kNames = {
      {"route=1 adapter=0 space=router offset=0x028 length=1", "disruption"},
      {"route=1 adapter=0 space=router offset=0x02b length=1", "rate"},
      {"route=1 adapter=0 space=router offset=0x03e length=2", "local time"},
      {"route=1 adapter=0 space=router offset=0x040 length=2", "post time"},
      {"route=1 adapter=1 space=adapter offset=0x00d length=1", "hub mode"},
      {"route=0 adapter=1 space=adapter offset=0x00d length=1", "host mode"},
  };
  std::string writes;
  std::istringstream lines(bench.Requests());
  for (std::string line; std::getline(lines, line);) {
    for (const auto& [registers, name] : kNames) {
      if (line.find("WRITE " + registers + " ") != 0) continue;
      const std::string data = line.substr(line.find("data=") + 5);
      const bool shown = name == "rate" || name == "disruption" || name.find("mode") != std::string::npos;
      writes += name + (shown ? " " + data : "") + ", ";
    }
  }
  return writes;
}

WORLD_TEST(Tmu, EveryStateThatFirmwareLeavesEndsInHiFi) {
  const std::string enable = "disruption 48000348, rate 00100000, disruption 40000348, ";
  const std::string post = "disruption 48000348, local time, post time, disruption 40000348, ";
  const struct {
    const char* what;
    unsigned rate;
    bool unidirectional;
    std::string writes;
  } kCases[] = {
      {"off", 0, false, post + enable},
      {"off, uni-directional", 0, true,
       post + "disruption 48000348, host mode 00000000, rate 00100000, hub mode 00000000, disruption 40000348, "},
      {"normal", 1000, false, "rate 00000000, " + post + enable},
      {"normal, uni-directional", 1000, true, "hub mode 00000000, host mode 00000000, rate 00000000, " + post + enable},
      {"HiFi, uni-directional", 16, true, "hub mode 00000000, host mode 00000000, rate 00000000, " + post + enable},
      {"HiFi already", 16, false, ""},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    Bench bench("H1:1 - D1:1");
    bench.router("D1").space().SetBits(kRate, 0xFFFF0000u, test.rate << 16);
    bench.adapter("D1:1").space().SetBits(kLaneMode, 1u << 29, test.unidirectional ? 1u << 29 : 0);
    bench.adapter("H1:1").space().SetBits(kLaneMode, 1u << 29, test.unidirectional ? 1u << 29 : 0);
    bench.StartQuietly();
    EXPECT_EQ(TimeWrites(bench), test.writes);
    bench.WithRouter(
        1, [](USB4_SWITCH& router) { EXPECT_STREQ(KivUsb4SwitchTmuModeName(&router), "bi-directional, HiFi"); });
    EXPECT_EQ(bench.router("D1").space().Get(kRate) >> 16, 16u);
    EXPECT_EQ(bench.adapter("D1:1").space().Get(kLaneMode) & 1u << 29, 0u);
  }
}

// A sequence ends at the write that is refused, with the disruption on once the rate is concerned: the time of a router
// that is half switched over is not to be trusted.
WORLD_TEST(Tmu, ARefusedWriteEndsTheSequence) {
  const std::string post = "disruption 48000348, local time, post time, disruption 40000348, ";
  const struct {
    unsigned rate;  // as the record has it, uni-directional
    const char* refused;
    std::string writes;
    bool stillOff;
  } kCases[] = {
      {16, "WRITE route=0 adapter=1 space=adapter offset=0x00d", "hub mode 00000000, host mode 00000000, ", false},
      {0, "WRITE route=1 adapter=0 space=router offset=0x03e", "disruption 48000348, local time, disruption 40000348, ",
       true},
      {0, "WRITE route=0 adapter=1 space=adapter offset=0x00d", post + "disruption 48000348, host mode 00000000, ",
       true},
      {0, "WRITE route=1 adapter=0 space=router offset=0x02b",
       post + "disruption 48000348, host mode 00000000, rate 00100000, ", true},
      {0, "WRITE route=1 adapter=1 space=adapter offset=0x00d",
       post + "disruption 48000348, host mode 00000000, rate 00100000, hub mode 00000000, ", true},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.refused);
    bool refuse = false;  // outlives the wire's listener
    Bench bench("H1:1 - D1:1");
    bench.wire().log().Listen([&](const sim::WireEntry& entry) {
      if (entry.up || !refuse || entry.text.find(test.refused) != 0) return;
      refuse = false;
      bench.wire().ReplaceAnswer(1, [](const sim::ControlPacket& packet) {
        return std::optional(sim::ControlWire::Raw(sim::ErrorPacket(packet.Route(), 0, sim::ErrorCode::NoSuchAddress)));
      });
    });
    bench.StartQuietly();
    bench.Requests();
    bench.WithRouter(1, [&](USB4_SWITCH& router) {
      router.TmuRate = test.rate;
      router.TmuUniMode = 1;
      refuse = true;
      EXPECT_LT(KivUsb4EnableTmu(&router), 0);
      EXPECT_EQ(KivUsb4SwitchTmuIsHiFiBidirectional(&router), false);
      EXPECT_EQ(router.TmuRate == 0, test.stillOff);
    });
    EXPECT_FALSE(refuse);
    EXPECT_EQ(TimeWrites(bench), test.writes);
  }
}

TEST(Tmu, ATimeTakenAtTheHundredthPollIsTooLate) {
  // Each poll follows a sleep of 10 ms and takes its round trip.
  const struct {
    platform::Time taken;
    KIV_RESULT result;
    unsigned polls;
  } kCases[] = {
      {5 * platform::kMillisecond, 0, 1},
      {3600 * platform::kSecond, -1, 100},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.polls);
    Bench bench("H1:1 - D1:1");
    bench.StartQuietly();
    bench.router("D1").services().SetPostingTime(test.taken);
    bench.Requests();
    bench.WithRouter(1, [&test](USB4_SWITCH& router) { EXPECT_EQ(KivUsb4SwitchTmuPostTime(&router), test.result); });
    EXPECT_EQ(CountLines(bench.Requests(1), "READ adapter=0 space=router offset=0x040 length=2"), test.polls);
    EXPECT_EQ(bench.router("D1").space().Get(0x28) & 1u << 27, 0u) << "disruption is off again in either case";
  }
}

// The register is cleared just before the n-th poll.
WORLD_TEST(Tmu, ThePollThatCountsIsTheNinetyNinth) {
  for (const unsigned poll : {99u, 100u}) {
    SCOPED_TRACE(poll);
    Bench bench("H1:1 - D1:1");
    bench.StartQuietly();
    sim::Router& hub = bench.router("D1");
    hub.services().SetPostingTime(3600 * platform::kSecond);
    unsigned reads = 0;
    hub.space().OnRead(0x40, [&reads, poll](std::uint32_t word) { return ++reads >= poll ? 0 : word; });
    bench.WithRouter(
        1, [poll](USB4_SWITCH& router) { EXPECT_EQ(KivUsb4SwitchTmuPostTime(&router), poll == 99 ? 0 : -1); });
    EXPECT_EQ(reads, poll);
  }
}

WORLD_TEST(Tmu, RoutersWithoutAPartInItAreNotTouched) {
  Bench bench("H1:1 - D1:1, D1:3 - T3:1");
  bench.StartQuietly();
  bench.Requests();
  bench.WithRouter(0, [](USB4_SWITCH& router) {
    EXPECT_EQ(KivUsb4SwitchTmuPostTime(&router), 0);
    EXPECT_EQ(KivUsb4EnableTmu(&router), 0);
    EXPECT_STREQ(KivUsb4SwitchTmuModeName(&router), "HiFi");
  });
  bench.WithRouter(0x301, [](USB4_SWITCH& router) {
    EXPECT_EQ(KivUsb4SwitchTmuPostTime(&router), 0);
    EXPECT_EQ(KivUsb4SwitchTmuEnable(&router), 0);
    EXPECT_EQ(KivUsb4SwitchTmuDisable(&router), 0);
  });
  bench.WithRouter(1, [](USB4_SWITCH& router) {
    EXPECT_EQ(KivUsb4EnableTmu(&router), 0);
    router.TmuRate = 0;
    EXPECT_EQ(KivUsb4SwitchTmuDisable(&router), 0);
    router.TmuRate = 16;
  });
  EXPECT_EQ(bench.Requests(), "");
}

}  // namespace
}  // namespace tests
