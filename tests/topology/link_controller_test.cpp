// Goal: the link controller of a Thunderbolt 3 router is addressed by port block and changed bit by bit, and a router
// without one is never harmed. Method: docks of each kind; requests and registers compared.
#include "topology/link_controller.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/bench.h"
#include "topology/router_configure.h"

namespace tests {
namespace {

// T1: capability at 0x20, port blocks of 0xA0 from 0x40 on, so control words at 0xD6 and 0x176.
struct Dock {
  Dock() { bench.StartQuietly(), bench.Requests(); }
  std::uint32_t Control(unsigned block) { return bench.router("T1").space().Get(block == 0 ? 0xD6 : 0x176); }
  Bench bench{"H1:1 - T1:1"};
};

WORLD_TEST(LinkController, EachLaneHasItsOwnBitsInTheBlockOfItsPort) {
  Dock dock;
  const struct {
    unsigned adapter;
    unsigned block;
    std::uint32_t configured, peer;
  } kCases[] = {{3, 1, 0x00010000, 0x00020000}, {4, 1, 0x00100000, 0x00200000}};
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.adapter);
    const std::uint32_t before = dock.Control(test.block);
    const auto run = [&](bool on) {
      dock.bench.WithRouter(1, [&](USB4_SWITCH& router) {
        USB4_PORT* adapter = &router.Adapters[test.adapter];
        EXPECT_EQ(KivUsb4LcSetConfigured(adapter, on), 0);
        EXPECT_EQ(KivUsb4LcSetXdomainConfigured(adapter, on), 0);
      });
    };
    run(true);
    EXPECT_EQ(dock.Control(test.block) ^ before, test.configured | test.peer);
    run(false);
    EXPECT_EQ(dock.Control(test.block), before);
  }
}

WORLD_TEST(LinkController, TheUpstreamLinkCarriesItsOwnMarkFromTheEnumerationOn) {
  Dock dock;
  EXPECT_EQ(dock.Control(0) & 0x40330000u, 0x40010000u);
  EXPECT_EQ(dock.Control(1) & 0x40330000u, 0u);
}

WORLD_TEST(LinkController, WakeFlagsAndSleep) {
  Dock dock;
  const struct {
    std::uint32_t flags, bits;
  } kCases[] = {{0x3F, 0x66}, {0x1C, 0x60}, {0x01, 0x06}, {0x2A, 0x00}, {0x00, 0x00}};
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.flags);
    dock.bench.WithRouter(1, [&test](USB4_SWITCH& router) { EXPECT_EQ(KivUsb4LcSetWake(&router, test.flags), 0); });
    EXPECT_EQ(dock.Control(0) & 0x66, test.bits);
    EXPECT_EQ(dock.Control(1) & 0x66, test.bits);
  }
  dock.bench.WithRouter(1, [](USB4_SWITCH& router) { EXPECT_EQ(KivUsb4LcSetSleep(&router), 0); });
  EXPECT_EQ(dock.Control(0) >> 31, 1u);
  EXPECT_EQ(dock.Control(1) >> 31, 1u);
}

WORLD_TEST(LinkController, BelowGenerationTwoNothingIsAccessed) {
  Dock dock;
  dock.bench.WithRouter(1, [](USB4_SWITCH& router) {
    router.Generation = 1;
    EXPECT_EQ(KivUsb4LcSetConfigured(&router.Adapters[1], true), 0);
    EXPECT_EQ(KivUsb4LcSetXdomainConfigured(&router.Adapters[1], true), 0);
    EXPECT_EQ(KivUsb4LcSetWake(&router, 0x3F), 0);
    EXPECT_EQ(KivUsb4LcSetSleep(&router), 0);
    EXPECT_FALSE(KivUsb4LcLaneBondingPossible(&router));
    router.Generation = 3;
  });
  EXPECT_EQ(dock.bench.Requests(), "");
}

// All ones is where a failed search leaves the offset; with 32-bit sums it would come around to offsets that exist.
WORLD_TEST(LinkController, ASearchThatFailedAddressesNothing) {
  Dock dock;
  dock.bench.WithRouter(1, [](USB4_SWITCH& router) {
    const std::uint32_t kept[2] = {router.LinkControllerCapability, router.PlugEventsCapability};
    router.LinkControllerCapability = 0xFFFFFFFF;
    router.PlugEventsCapability = 0xFFFFFFFF;
    std::uint32_t uuid[4] = {};
    EXPECT_EQ(KivUsb4LcReadUuid(&router, uuid), -1);
    EXPECT_EQ(KivUsb4LcSetSleep(&router), -1);
    EXPECT_EQ(KivUsb4LcSetConfigured(&router.Adapters[1], true), -1);
    EXPECT_EQ(KivUsb4PlugEventsActive(&router, false), -1);
    router.LinkControllerCapability = 0;
    EXPECT_EQ(KivUsb4LcReadUuid(&router, uuid), -1);
    router.LinkControllerCapability = kept[0];
    router.PlugEventsCapability = kept[1];
  });
  EXPECT_EQ(CountLines(dock.bench.Requests(1), "WRITE"), 1u) << "the time-out byte, which every router has";
}

WORLD_TEST(LinkController, TheUuidComesFromIt) {
  Dock dock;
  dock.bench.WithRouter(1, [](USB4_SWITCH& router) {
    std::uint32_t uuid[4];
    std::memcpy(uuid, router.Uuid, 16);
    EXPECT_EQ(uuid[2], 0xFFFFFFFFu);
    EXPECT_EQ(uuid[3], 0xFFFFFFFFu);
    EXPECT_NE(uuid[0], 0u);
  });
}

}  // namespace
}  // namespace tests
