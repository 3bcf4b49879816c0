// Goal: readers may take as long as they like while routers go and come. Method: readers that stand on an entry or a
// router across its removal, in one step and beside the connection manager.
#include "topology/device_list.h"

#include <gtest/gtest.h>

#include "hostif/abort.h"
#include "tests/support/bench.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"
#include "topology/router_remove.h"

namespace tests {
namespace {

using platform::kMillisecond;
using platform::kSecond;

WORLD_TEST(DeviceList, AReaderKeepsARouterThatGoesAndGetsNothingOutOfIt) {
  Bench bench("H1:1 - D1:1, D1:3 - D2:1");
  bench.ExpectIncomplete();
  bench.StartQuietly();
  bench.InDriver([&bench](USB4_DOMAIN& domain) {
    DeviceWalk walk(&domain);
    ASSERT_NE(walk.Next(), nullptr);
    const USB4_DEV_ENTRY* hub = walk.Next();
    ASSERT_EQ(hub->Route, 1u);
    const RunGuard guard(domain);
    USB4_PORT& port = domain.HostRouter->Adapters[1];
    KivUsb4SwitchRemove(port.Remote->Router);
    EXPECT_EQ(port.Remote, nullptr);
    EXPECT_EQ(port.DualLinkPartner->Remote, nullptr);
    EXPECT_EQ(KivUsb4DevListFindSwitch(&domain, 1), nullptr);
    bench.Requests();
    std::uint32_t word = 0;
    EXPECT_EQ(KivUsb4SwRead(hub->Router, &word, {USB4_CFG_SPACE_ROUTER, 0, 1}), -1);
    EXPECT_EQ(bench.Requests(), "");
    EXPECT_STREQ(hub->Info.Name, "0-1");
    EXPECT_EQ(walk.Next(), nullptr) << "the router behind it is gone as well";
  });
}

WORLD_TEST(DeviceList, AnEntryIsFoundByRouteAndMarkedByRouter) {
  Bench bench("H1:1 - D1:1");
  bench.StartQuietly();
  bench.InDriver([](USB4_DOMAIN& domain) {
    EXPECT_EQ(KivUsb4DomainGetSwitch(&domain, 0), domain.HostRouter.Peek());
    EXPECT_EQ(KivUsb4DevListFindSwitch(&domain, 0x301), nullptr);
    KivUsb4GetDevFromSwitchToUpdate(&domain, KivUsb4DomainGetSwitch(&domain, 1).Get());
    DeviceWalk walk(&domain);
    EXPECT_EQ(walk.Next()->DirectoryCreated.Peek(), 0);
    EXPECT_EQ(walk.Next()->DirectoryCreated.Peek(), 1);
  });
}

// What a reader does with a router that it has found: it looks where the links lead, takes its time, and then follows
// them one router far, and the parents up to the host.
void LookAround(const USB4_SWITCH& router) {
  std::vector<const USB4_PORT*> remotes;
  for (const USB4_PORT& adapter : AdaptersOf(&router)) {
    const SpinLockGuard guard(router.Domain->TopologyLock);
    if (const USB4_PORT* remote = adapter.Remote) remotes.push_back(remote);
  }
  std::uint32_t word = 0;
  IgnoreResult(KivUsb4SwRead(&router, &word, {USB4_CFG_SPACE_ROUTER, 0, 1}));
  SleepMs(router.Domain, 30);
  const USB4_ROUTE route = KivUsb4SwitchRoute(&router);
  for (const USB4_SWITCH* above = router.Info.Parent; above != nullptr; above = above->Info.Parent) {
    EXPECT_TRUE(KivUsb4SwitchRouteMatches(above, &router)) << std::hex << route;
  }
  for (const USB4_PORT* remote : remotes) {
    const USB4_SWITCH* neighbour = remote->Router;
    EXPECT_TRUE(neighbour == router.Info.Parent || neighbour->Info.Parent == &router) << std::hex << route;
  }
}

WORLD_TEST(DeviceList, ReadersBesideUnplugsFindWholeRecordsOnly) {
  Bench bench("H3:1 - D1:1, D1:3 - B=D1:1, B:3 - T3:1, H3:3 - K=D1:1");
  bench.fabric().PlugDisplay("K:13");  // keeps the device awake whatever goes elsewhere
  bench.StartQuietly();
  for (int i = 0; i < 6; ++i) {
    bench.At((i * 900 + 50) * kMillisecond, [&bench, i] { bench.fabric().Unplug(i % 2 == 0 ? "B" : "D1"); });
    bench.At((i * 900 + 350) * kMillisecond,
             [&bench, i] { i % 2 == 0 ? bench.fabric().Plug("D1:3", "B:1") : bench.fabric().Plug("H3:1", "D1:1"); });
  }
  unsigned looks = 0;
  bench.InDriver([&](USB4_DOMAIN& domain) {
    const platform::Time end = bench.simulation().Now() + 7 * kSecond;
    while (bench.simulation().Now() < end) {
      for (const USB4_ROUTE route : {0x1, 0x301, 0x30301}) {
        if (const RouterReference router = KivUsb4DomainGetSwitch(&domain, route)) LookAround(*router), ++looks;
      }
      DeviceWalk walk(&domain);
      while (const USB4_DEV_ENTRY* entry = walk.Next()) LookAround(*entry->Router), ++looks;
    }
  });
  EXPECT_GT(looks, 20u);
  bench.Quiet(60 * kSecond);
  EXPECT_EQ(bench.Routers(),
            "0 gen4\n3 gen4 20G bonded\n1 gen4 20G bonded\n301 gen4 20G bonded\n30301 gen3 20G bonded\n");
  bench.TakeProtocolErrors();  // accesses of the readers to routers that are not configured again yet
}

}  // namespace
}  // namespace tests
