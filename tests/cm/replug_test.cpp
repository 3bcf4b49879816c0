// Goal: a device that idles after its last router has gone is woken by the next one. Method: a router is pulled, the
// idle time-out passes, and a router is plugged into the same port; below each kind of host, and below a hub.
#include "tests/support/bench.h"

namespace tests {
namespace {

using platform::kSecond;

WORLD_TEST(Replug, TheNextRouterWakesTheDeviceThatTheLastOneLetIdle) {
  const struct {
    const char* topology;
    const char* pulled;
    const char *from, *to;  // the cable that comes next
    const char* routers;
  } kCases[] = {
      {"H1:1 - D1:1", "D1", "H1:1", "D1:1", "0 gen4\n1 gen4 20G bonded\n"},
      {"H3:3 - D1:1", "D1", "H3:3", "D1:5", "0 gen4\n3 gen4 20G bonded\n"},
      {"H1:1 - D1:1, D1:3 - D2:1", "D2", "D1:3", "D2:1", "0 gen4\n1 gen4 20G bonded\n301 gen4 20G bonded\n"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.topology);
    Bench bench(test.topology);
    bench.StartQuietly();
    bench.Unplug(test.pulled);
    bench.Pass(20 * kSecond);
    EXPECT_EQ(bench.kernel().Power(bench.machine().device()), platform::DevicePower::D3);
    bench.fabric().Plug(test.from, test.to);
    bench.Pass(3 * kSecond);
    bench.Quiet();
    EXPECT_EQ(bench.kernel().Power(bench.machine().device()), platform::DevicePower::D0);
    EXPECT_EQ(bench.Routers(), test.routers);
  }
}

// Nothing arms the link controller of a Thunderbolt 3 host but its firmware, and this model's has armed nothing.
WORLD_TEST(Replug, AThunderbolt3HostWakesOnWhatItsFirmwareHasArmed) {
  Bench bench("HT:1 - T3:1");
  bench.StartQuietly();
  bench.Unplug("T3");
  bench.Pass(20 * kSecond);
  bench.fabric().Plug("HT:1", "T3:1");
  bench.Pass(3 * kSecond);
  EXPECT_EQ(bench.kernel().Power(bench.machine().device()), platform::DevicePower::D3);
}

}  // namespace
}  // namespace tests
