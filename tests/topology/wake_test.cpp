// Goal: what has been armed wakes the host, what has not does not, and afterwards the domain is whole again and has
// been told why. Method: a tree of all generations goes to sleep by itself or with the system; then one thing happens.
#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/bench.h"
#include "tests/support/step_log.h"

namespace tests {
namespace {

using platform::kSecond;

// A hub, a second hub beside a Thunderbolt 3 router, and behind that one router of each older generation.
constexpr const char* kTree = "H1:1 - D1:1, D1:3 - T1:1, T1:3 - G2:1, G2:3 - G1:1, D1:5 - D2:1";
const std::string kHost = "0 gen4\n";
const std::string kHub = "1 gen4 20G bonded\n";
const std::string kDock = "301 gen3 20G bonded\n";
const std::string kOld = "30301 gen2 10G bonded\n3030301 gen1 10G single\n";
const std::string kSecondHub = "501 gen4 20G bonded\n";
const std::string kWhole = kHost + kHub + kDock + kOld + kSecondHub;

struct WakeCase {
  const char* what;
  std::function<void(Bench& bench)> happens;
  bool wakesIdle, wakesSleeping;
  std::string routers;  // afterwards
  const char* report;   // what the driver says about it, if it wakes
};

const WakeCase kCases[] = {
    {"nothing", [](Bench&) {}, false, false, kWhole, ""},
    {"a router is connected to the second hub", [](Bench& bench) { bench.Plug("D2:5 - T3:1"); }, true, false,
     kWhole + "50501 gen3 20G bonded\n", ""},
    {"the second hub is disconnected", [](Bench& bench) { bench.Unplug("D2"); }, true, false,
     kHost + kHub + kDock + kOld, ""},
    {"everything is disconnected", [](Bench& bench) { bench.Unplug("D1"); }, true, false, kHost, ""},
    {"a router is disconnected from a Thunderbolt 3 one", [](Bench& bench) { bench.Unplug("G2"); }, true, false,
     kHost + kHub + kDock + kSecondHub, ""},
    {"a display is connected", [](Bench& bench) { bench.fabric().PlugDisplay("D1:13"); }, true, false, kWhole, ""},
    {"PCIe of the second hub", [](Bench& bench) { bench.fabric().SignalWake("D2:10"); }, true, true, kWhole,
     "driver: woken by name=0-501 pcie=yes usb3=no\n"},
    {"USB3 of the second hub", [](Bench& bench) { bench.fabric().SignalWake("D2:21"); }, true, true, kWhole,
     "driver: woken by name=0-501 pcie=no usb3=yes\n"},
    {"PCIe of the first hub", [](Bench& bench) { bench.fabric().SignalWake("D1:10"); }, true, true, kWhole,
     "driver: woken by name=0-1 pcie=yes usb3=no\n"},
    {"PCIe of a Thunderbolt 3 router", [](Bench& bench) { bench.fabric().SignalWake("T1:6"); }, true, true, kWhole, ""},
    {"PCIe of a Thunderbolt 2 router", [](Bench& bench) { bench.fabric().SignalWake("G2:6"); }, true, true, kWhole, ""},
    // It has no link controller, so nothing can be armed there.
    {"PCIe of a Thunderbolt 1 router", [](Bench& bench) { bench.fabric().SignalWake("G1:6"); }, false, false, kWhole,
     ""},
};

bool Awake(Bench& bench) {
  return bench.kernel().Power(bench.machine().device()) == platform::DevicePower::D0;
}

void ExpectWake(const WakeCase& test, bool idle) {
  SCOPED_TRACE(std::string(test.what) + (idle ? ", idle" : ", system asleep"));
  Bench bench(kTree);
  bench.StartQuietly();
  EXPECT_EQ(bench.Routers(), kWhole);
  idle ? bench.Pass(30 * kSecond) : bench.Sleep();
  ASSERT_FALSE(Awake(bench));
  StepLog log(bench, {"driver: woken by"});
  test.happens(bench);
  bench.Pass(5 * kSecond);
  EXPECT_EQ(Awake(bench), idle ? test.wakesIdle : test.wakesSleeping);
  if (!Awake(bench)) {
    bench.Pass(3600 * kSecond);
    EXPECT_FALSE(Awake(bench)) << "what does not wake at once does not wake later";
    if (idle) bench.Sleep();
    bench.Resume();
  }
  bench.Quiet();
  EXPECT_EQ(bench.Routers(), test.routers);
  const std::string reports = log.Take();
  EXPECT_NE(reports.find(test.report), std::string::npos) << reports;
  EXPECT_EQ(Count(reports, "yes"), *test.report != 0 ? 1u : 0u) << reports;
}

// A runtime idle arms every source.
TEST(Wake, AnIdleDomainIsWokenByWhateverIsArmedAndNothingElse) {
  for (const WakeCase& test : kCases) ExpectWake(test, true);
}

// A system that sleeps is to be woken by what tunnels carry, not by plugs and displays.
TEST(Wake, ASleepingSystemIsWokenByTunnelledDevicesOnly) {
  for (const WakeCase& test : kCases) ExpectWake(test, false);
}

// Routes in the order of the last request to each: a router is left alone only when all below it are asleep.
std::string LeftAlone(Bench& bench) {
  std::vector<std::string> order;
  std::istringstream lines(bench.Requests());
  for (std::string line; std::getline(lines, line);) {
    const std::size_t at = line.find("route=") + 6;
    const std::string route = line.substr(at, line.find(' ', at) - at);
    std::erase(order, route);
    order.push_back(route);
  }
  std::string text;
  for (const std::string& route : order) text += route + " ";
  return text;
}

WORLD_TEST(Wake, TheDeepestRouterIsSentToSleepFirstInEveryKindOfTree) {
  const struct {
    const char* tree;
    const char* order;
  } kTrees[] = {
      {"H1:1 - D1:1, D1:3 - D2:1", "301 1 0 "},
      {kTree, "3030301 30301 301 501 1 0 "},
      {"H1:1 - T1:1, T1:3 - T3:1", "301 1 0 "},
      {"HT:1 - T1:1, T1:3 - D1:1, D1:3 - G1:1", "30301 301 1 0 "},
  };
  for (const auto& test : kTrees) {
    SCOPED_TRACE(test.tree);
    Bench bench(test.tree);
    bench.StartQuietly();
    const std::string before = bench.Routers();
    bench.Requests();
    bench.Sleep();
    EXPECT_EQ(LeftAlone(bench), test.order);
    bench.Resume();
    bench.Quiet();
    EXPECT_EQ(bench.Routers(), before);
  }
}

}  // namespace
}  // namespace tests
