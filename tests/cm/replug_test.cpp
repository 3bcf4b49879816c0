// Goal: a device that idles after its last router has gone is woken by the next one. Method: a router is pulled, the
// idle time-out passes, and a router is plugged into the same port; below each kind of host, and below a hub.
#include <algorithm>

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

// The hardware takes the port's mark off when the cable goes, so the start finds neither. An idling device is armed for
// the unplug, a sleeping system is not.
WORLD_TEST(Replug, ARouterThatIsPulledWhileTheDeviceIsInD3WakesItWithItsNextPlug) {
  for (const bool system : {false, true}) {
    SCOPED_TRACE(system ? "the system sleeps" : "the device idles");
    Bench bench("H1:1 - D1:1");
    bench.StartQuietly();
    const auto rests = [&] { return bench.kernel().Power(bench.machine().device()) == platform::DevicePower::D3; };
    if (system) {
      bench.Sleep();
    } else {
      bench.Pass(20 * kSecond);
    }
    EXPECT_TRUE(rests()) << "there is no tunnel";
    bench.Unplug("D1");
    bench.Pass(3 * kSecond);
    EXPECT_EQ(rests(), system);
    if (system) bench.Resume();
    bench.Pass(20 * kSecond);
    EXPECT_TRUE(rests());
    bench.fabric().Plug("H1:1", "D1:1");
    bench.Pass(3 * kSecond);
    EXPECT_FALSE(rests());
    EXPECT_EQ(bench.Routers(), "0 gen4\n1 gen4 20G bonded\n");
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

// Forty hubs take 23 s to set up, in the same run of the work loop whose unplug has let the device idle. The wake sets
// up all of them; tunnels are there as far as the first run has come, since a start with tunnels to adopt builds no
// more.
TEST(Replug, ATreeThatIsBackAtOnceMayIdleInBetween) {
  std::string topology = "H1:1 - r0=D1:1";
  for (unsigned router = 1; router < 40; ++router) {
    topology += ", r" + std::to_string((router - 1) / 3) + ":" + std::to_string(3 + 2 * ((router - 1) % 3)) + " - r" +
                std::to_string(router) + "=D1:1";
  }
  Bench bench(topology, {2, 0, true}, {{"PCIETunnel\\PCIETunnelSupported", 1}});
  bench.StartQuietly();
  bench.faults().FailFrom("path.never-drains", 1);
  bench.fabric().DropLink("H1:1", 300 * platform::kMillisecond);
  bench.Pass(2 * kSecond);
  bench.faults().HealAll();
  const auto idles = [&] { return bench.kernel().Power(bench.machine().device()) == platform::DevicePower::D3; };
  EXPECT_EQ(bench.simulation().RunUntil(idles, bench.simulation().Now() + 30 * kSecond), platform::Outcome::Done);
  bench.Pass(30 * kSecond);
  EXPECT_FALSE(idles());
  const auto lines = [](const std::string& text) { return std::count(text.begin(), text.end(), '\n'); };
  EXPECT_EQ(lines(bench.Routers()), 1 + 40);
  EXPECT_GT(lines(bench.Tunnels()), 0);
  EXPECT_LT(lines(bench.Tunnels()), 40);
}

}  // namespace
}  // namespace tests
