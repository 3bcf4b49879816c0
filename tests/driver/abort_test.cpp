// Goal: no flow that a power-down waits for holds it up, whatever that flow waits for. Method: a flow that is not the
// work loop takes the run lock and waits for an hour; a system sleep begins one second later.
#include "hostif/abort.h"

#include <gtest/gtest.h>

#include "hostif/config_access.h"
#include "include/wait.h"
#include "tests/support/bench.h"
#include "topology/link.h"
#include "tunnel/display_power.h"

namespace tests {
namespace {

using platform::kMillisecond;
using platform::kSecond;
using platform::Time;

constexpr ULONG kHourMs = 3'600'000;

int Sleeps(Bench&, USB4_DOMAIN& domain) {
  SleepMs(&domain, kHourMs);
  return 0;
}

int Waits(Bench&, USB4_DOMAIN& domain) {
  KEVENT never;
  InitialiseAutoResetEvent(never);
  return WaitForEventOrAbort(&domain, never, kHourMs);
}

int WaitsForAnAnswer(Bench& bench, USB4_DOMAIN& domain) {
  bench.wire().ReplaceAnswer(1, [](const sim::ControlPacket&) { return std::nullopt; });
  std::uint32_t word = 0;
  return Usb4CfgReadRaw(domain.ControlChannel, &word, {0, 0, {USB4_CFG_SPACE_ROUTER, 0, 1}}, kHourMs).Err;
}

int Polls(Bench&, USB4_DOMAIN& domain) {
  return KivUsb4PortWaitForLinkWidth(&domain.HostRouter.Peek()->Adapters[1], 3, kHourMs);
}

WORLD_TEST(Abort, EndsEveryKindOfWaitOfEveryFlow) {
  const struct {
    const char* what;
    int (*wait)(Bench& bench, USB4_DOMAIN& domain);
    int result;
  } kCases[] = {
      {"sleep", Sleeps, 0},
      {"event", Waits, static_cast<int>(0xC0000120)},
      {"answer", WaitsForAnAnswer, -1},
      {"poll", Polls, -1},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    Bench bench("H1:1 - D1:1");
    bench.StartQuietly();
    const Time start = bench.simulation().Now();
    bench.At(1 * kSecond, [&bench] { bench.kernel().SystemSleepAsync(platform::SystemPowerAction::Sleep); });
    const int result = bench.InDriver([&](USB4_DOMAIN& domain) {
      const RunGuard guard(domain);
      return test.wait(bench, domain);
    });
    const Time took = bench.simulation().Now() - start;
    EXPECT_EQ(result, test.result);
    EXPECT_GE(took, 6 * kSecond);
    EXPECT_LE(took, 6 * kSecond + 100 * kMillisecond);
    bench.Pass(20 * kSecond);
    EXPECT_EQ(bench.kernel().Power(bench.machine().device()), platform::DevicePower::D3);
    bench.Resume();
    bench.Quiet();
    EXPECT_EQ(bench.Routers(), "0 gen4\n1 gen4 20G bonded\n") << "the abort is over";
  }
}

// Each notification may take the graphics driver two seconds. The one that has begun ends by itself.
WORLD_TEST(Abort, NoNotificationBeginsAfterIt) {
  Bench bench("H1:1 - D1:1");
  std::vector<Time> told;  // of displays in D0
  bench.kernel().Offer({"{52d5f7e0-0786-41ef-a5d8-f03a2b29ba26}", "\\??\\graphics", 0,
                        [&](std::uint32_t, std::span<const std::uint8_t> input) {
                          if (input[8] == 1) told.push_back(bench.simulation().Now());
                          return platform::CompanionReply{0, 3 * kSecond};
                        }});
  bench.fabric().PlugDisplay("D1:13");
  bench.StartQuietly();
  ASSERT_EQ(bench.Tunnels(), "DP 0:5 -> 1:13\n");
  const Time start = bench.simulation().Now();
  bench.At(1 * kSecond, [&bench] { bench.kernel().SystemSleepAsync(platform::SystemPowerAction::Sleep); });
  bench.InDevice([](DEVICE_EXTENSION& context) {
    const RunGuard guard(*context.Domain);
    for (int round = 0; round < 10; ++round) KivUsb4NotifyGfxDpTunnels(&context, context.Domain, kDisplayEnteredD0);
  });
  ASSERT_FALSE(told.empty());
  EXPECT_LE(told.back() - start, 8 * kSecond + 100 * kMillisecond) << "1 s, 2 s for the sleep, 5 s of patience";
  EXPECT_LE(bench.simulation().Now() - start, 10 * kSecond + 200 * kMillisecond);
  bench.Pass(20 * kSecond);
  EXPECT_EQ(bench.kernel().Power(bench.machine().device()), platform::DevicePower::D3);
}

}  // namespace
}  // namespace tests
