// Goal: whoever walks the device list may take as long as he likes while routers go. Method: a reader that stands on an
// entry across the removal of its router.
#include "topology/device_list.h"

#include <gtest/gtest.h>

#include "tests/support/bench.h"
#include "topology/router_access.h"
#include "topology/router_lifecycle.h"

namespace tests {
namespace {

WORLD_TEST(DeviceList, AReaderKeepsARouterThatGoesAndGetsNothingOutOfIt) {
  Bench bench("H1:1 - D1:1, D1:3 - D2:1");
  bench.ExpectIncomplete();
  bench.StartQuietly();
  bench.InDriver([&bench](USB4_DOMAIN& domain) {
    USB4_DEV_ENTRY* host = NextEntry(&domain, nullptr);
    USB4_DEV_ENTRY* hub = NextEntry(&domain, host);
    ASSERT_EQ(hub->Route, 1u);
    USB4_PORT& port = domain.HostRouter->Adapters[1];
    KivUsb4SwitchRemove(port.Remote->Router);
    port.Remote = nullptr;
    port.DualLinkPartner->Remote = nullptr;
    EXPECT_EQ(KivUsb4DevListFindSwitch(&domain, 1), nullptr);
    bench.Requests();
    std::uint32_t word = 0;
    EXPECT_EQ(KivUsb4SwRead(hub->Router, &word, {USB4_CFG_SPACE_ROUTER, 0, 1}), -1);
    EXPECT_EQ(bench.Requests(), "");
    EXPECT_STREQ(hub->Info.Name, "0-1");
    EXPECT_EQ(NextEntry(&domain, hub), nullptr) << "the router behind it is gone as well";
  });
}

WORLD_TEST(DeviceList, AnEntryIsFoundByRouteAndMarkedByRouter) {
  Bench bench("H1:1 - D1:1");
  bench.StartQuietly();
  bench.InDriver([](USB4_DOMAIN& domain) {
    EXPECT_EQ(KivUsb4DomainGetSwitch(&domain, 0), domain.HostRouter);
    EXPECT_EQ(KivUsb4DevListFindSwitch(&domain, 0x301), nullptr);
    USB4_SWITCH* hub = KivUsb4DomainGetSwitch(&domain, 1);
    KivUsb4GetDevFromSwitchToUpdate(&domain, hub);
    USB4_DEV_ENTRY* host = NextEntry(&domain, nullptr);
    EXPECT_EQ(host->DirectoryCreated, 0);
    USB4_DEV_ENTRY* entry = NextEntry(&domain, host);
    EXPECT_EQ(entry->DirectoryCreated, 1);
    LeaveEntry(&domain, entry);
  });
}

}  // namespace
}  // namespace tests
