// Goal: what records say without the hardware, and the small protocols around one register, hold at their edges.
// Method: a record bent word by word, and a hub whose answers are.
#include "topology/router_queries.h"

#include <gtest/gtest.h>

#include "hostif/abort.h"
#include "tests/support/bench.h"
#include "topology/router_access.h"
#include "topology/router_configure.h"
#include "topology/router_operation.h"
#include "topology/router_remove.h"

namespace tests {
namespace {

TEST(Queries, ARoutesDepthIsItsSignificantBytes) {
  const struct {
    std::uint64_t route;
    std::uint32_t depth;
  } kCases[] = {{0, 0}, {1, 1}, {0x80, 1}, {0x100, 2}, {0x301, 2}, {0x010203040506, 6}, {0x3F000000000000, 7}};
  for (const auto& test : kCases) EXPECT_EQ(KivUsb4RouteDepth(test.route), test.depth) << test.route;
}

WORLD_TEST(Queries, WalksFollowRoutesAndLinks) {
  Bench bench("H1:1 - D1:1, D1:3 - D2:1, D1:5 - T3:1");
  bench.StartQuietly();
  bench.WithRouter(1, [&](USB4_SWITCH& hub) {
    EXPECT_EQ(KivUsb4SwitchPortForRoute(&hub, 0x301)->Number, 3);
    EXPECT_EQ(KivUsb4SwitchPortForRoute(&hub, 0x1401), nullptr) << "it has 19 adapters, not 20";
    EXPECT_EQ(KivUsb4SwitchFindPortByType(&hub, 0x100101)->Number, 10);
    EXPECT_EQ(KivUsb4SwitchFindPortByType(&hub, 0x0E0101), nullptr);
    EXPECT_TRUE(KivUsb4PortIsUpstream(&hub.Adapters[1]));
    EXPECT_TRUE(KivUsb4PortIsUpstream(&hub.Adapters[2]));
    EXPECT_FALSE(KivUsb4PortHasDownstreamLink(&hub.Adapters[1]));
    EXPECT_TRUE(KivUsb4PortHasDownstreamLink(&hub.Adapters[3]));
    EXPECT_FALSE(KivUsb4PortHasDownstreamLink(&hub.Adapters[4])) << "counted once per link";
    EXPECT_FALSE(KivUsb4PortHasDownstreamLink(&hub.Adapters[7]));
    EXPECT_FALSE(KivUsb4PortIsLane(&hub.Adapters[0]));
    EXPECT_FALSE(KivUsb4PortIsLane(nullptr));
    const USB4_SWITCH* second = hub.Adapters[3].Remote->Router;
    const USB4_SWITCH* dock = hub.Adapters[5].Remote->Router;
    EXPECT_TRUE(KivUsb4SwitchRouteMatches(&hub, second));
    EXPECT_TRUE(KivUsb4SwitchRouteMatches(hub.Info.Parent, dock));
    EXPECT_FALSE(KivUsb4SwitchRouteMatches(second, dock));
    EXPECT_FALSE(KivUsb4SwitchRouteMatches(second, &hub));
  });
}

WORLD_TEST(Queries, OnlyTheSecondControllerMarksItsDisplayInputs) {
  for (const auto& [hardwareId, field] : {std::pair{"PCI\\VEN_1F3A&DEV_3A0F&SUBSYS_00000000&REV_00", 1u},
                                          std::pair{"PCI\\VEN_1F3A&DEV_3A0E&SUBSYS_00000000&REV_00", 0u}}) {
    SCOPED_TRACE(hardwareId);
    WorldOptions options;
    options.configure = [id = hardwareId](lab::ControllerConfig& controller) { controller.hardwareId = id; };
    World world("H1", options);
    ASSERT_EQ(world.Start(), 0);
    for (const char* port : {"H1:5", "H1:6"}) {
      EXPECT_EQ(world.fabric().FindAdapter(port)->space().Get(0x3B) >> 16 & 0xF, field) << port;
    }
    EXPECT_EQ(world.InDriver([](USB4_DOMAIN& domain) { return std::string(domain.HostRouter.Peek()->Info.Name); }),
              field == 0 ? "0-0" : "1-0");
  }
}

// The version, bits 15:8 of the type, says nothing about the name.
TEST(Queries, NamesOfAdaptersGoByProtocolAndOfRoutersByGeneration) {
  const struct {
    std::uint32_t type;
    const char* name;
  } kTypes[] = {{0x000000, "Inactive"}, {0x000001, "Port"},     {0x000101, "Port"},  {0x000002, "NHI"},
                {0x000003, "unknown"},  {0x020001, "Ethernet"}, {0x080002, "SATA"},  {0x0E0101, "DP/HDMI"},
                {0x0E0202, "DP/HDMI"},  {0x100100, "PCIe"},     {0x200101, "USB"},   {0x210101, "unknown"},
                {0x010001, "unknown"},  {0xFFFFFF, "unknown"},  {0xAB000001, "Port"}};
  USB4_PORT adapter{};
  for (const auto& test : kTypes) {
    adapter.Header[2] = test.type;
    EXPECT_STREQ(KivUsb4PortTypeName(&adapter), test.name) << std::hex << test.type;
  }
  const char* kGenerations[] = {"Unknown", "Thunderbolt 1", "Thunderbolt 2", "Thunderbolt 3", "USB4", "Unknown"};
  USB4_SWITCH router{};
  for (const char* name : kGenerations) {
    EXPECT_STREQ(KivUsb4SwitchGenerationName(&router), name);
    ++router.Generation;
  }
}

WORLD_TEST(PlugEvents, Usb4RoutersNeedNoSwitching) {
  Bench bench("H1:1 - D1:1, D1:3 - T3:1");
  bench.StartQuietly();
  bench.Requests();
  bench.WithRouter(1, [](USB4_SWITCH& router) { EXPECT_EQ(KivUsb4PlugEventsActive(&router, false), 0); });
  EXPECT_EQ(bench.Requests(), "");
  bench.WithRouter(0x301, [](USB4_SWITCH& router) { EXPECT_EQ(KivUsb4PlugEventsActive(&router, false), 0); });
  EXPECT_EQ(bench.router("T3").space().Get(6) & 0x7C, 0x7Cu);
  bench.WithRouter(0x301, [](USB4_SWITCH& router) { EXPECT_EQ(KivUsb4PlugEventsActive(&router, true), 0); });
  EXPECT_EQ(bench.router("T3").space().Get(6) & 0x7C, 0x04u);
  EXPECT_EQ(bench.router("T3").space().Get(4) & 0xFF, 0xFFu);
}

WORLD_TEST(Unplugged, NothingBehindAnUnpluggedRouterIsAsked) {
  Bench bench("H1:1 - D1:1, D1:3 - D2:1");
  bench.StartQuietly();
  bench.Requests();
  bench.InDriver([](USB4_DOMAIN& domain) {
    const RunGuard guard(domain);
    KivUsb4SwitchSetUnplugged(domain.HostRouter);
    EXPECT_FALSE(domain.HostRouter->Unplugged.IsSet()) << "the host router never is";
    USB4_SWITCH* hub = domain.HostRouter->Adapters[1].Remote->Router;
    KivUsb4SwitchSetUnplugged(hub);
    USB4_SWITCH* behind = hub->Adapters[3].Remote->Router;
    std::uint32_t word = 7;
    for (USB4_SWITCH* router : {hub, behind}) {
      EXPECT_EQ(KivUsb4SwRead(router, &word, {USB4_CFG_SPACE_ROUTER, 0, 1}), -1);
      EXPECT_EQ(KivUsb4SwWrite(router, &word, {USB4_CFG_SPACE_ROUTER, 5, 1}), -1);
      EXPECT_EQ(KivUsb4PortRead(&router->Adapters[3], &word, {USB4_CFG_SPACE_ADAPTER, 0, 1}), -1);
      EXPECT_EQ(KivUsb4PortWrite(&router->Adapters[3], &word, {USB4_CFG_SPACE_ADAPTER, 4, 1}), -1);
      router->Unplugged.Set(false);
    }
    USB4_PORT lost{};
    EXPECT_EQ(KivUsb4PortRead(&lost, &word, {USB4_CFG_SPACE_ADAPTER, 0, 1}), -1);
    EXPECT_EQ(word, 7u);
  });
  EXPECT_EQ(bench.Requests(), "");
}

}  // namespace
}  // namespace tests
