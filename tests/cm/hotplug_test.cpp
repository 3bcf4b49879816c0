// Goal: routers come and go with their cables, whatever the machine is doing, and the domain always says what is there.
// Method: cables plugged and pulled on a running world; its tree and what is left on the wire compared.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/world.h"
#include "topology/device_list.h"

namespace tests {
namespace {

// Routes in device list order: "0 1 301 ".
std::string Routes(World& world) {
  return world.InDriver([](USB4_DOMAIN& domain) {
    std::string routes;
    DeviceWalk walk(&domain);
    while (USB4_DEV_ENTRY* entry = walk.Next()) {
      char text[20];
      std::snprintf(text, sizeof text, "%llx ", static_cast<unsigned long long>(entry->Route));
      routes += text;
    }
    return routes;
  });
}

WORLD_TEST(Hotplug, RoutersComeAndGoWithTheirCables) {
  World world("H1");
  ASSERT_EQ(world.Start(), 0);
  world.Quiet();
  const struct {
    const char* what;  // a cable to plug, or what to unplug
    const char* routes;
  } kSteps[] = {
      {"H1:1 - D1:1", "0 1 "},
      {"D1:3 - T3:1", "0 1 301 "},
      {"D1:5 - D2:3", "0 1 301 501 "},
      {"T3", "0 1 501 "},
      {"D1:7 - T3:1", "0 1 501 701 "},
      {"D1", "0 "},
      {"D1:5", "0 "},               // while it leads nowhere, the second hub leaves it
      {"H1:1 - D1:5", "0 1 701 "},  // the dock comes with it, behind another way up than before
      {"D1:1 - D2:1", "0 1 701 101 "},
  };
  for (const auto& step : kSteps) {
    SCOPED_TRACE(step.what);
    const std::string what = step.what;
    if (what.find(" - ") != std::string::npos) {
      world.Plug(what);
    } else {
      world.Unplug(what);
    }
    world.Quiet();
    EXPECT_EQ(Routes(world), step.routes);
  }
}

WORLD_TEST(Hotplug, WhatChangedDuringSleepIsSeenAfterwards) {
  World world("H1:1 - D1:1, D1:3 - D2:1");
  ASSERT_EQ(world.Start(), 0);
  world.Quiet();
  ASSERT_EQ(Routes(world), "0 1 301 ");
  world.Sleep();
  world.Unplug("D2");
  world.Plug("D1:5 - T3:1");
  world.Resume();
  world.Quiet();
  EXPECT_EQ(Routes(world), "0 1 501 ");
  world.Hibernate();
  world.Resume();
  world.Quiet();
  EXPECT_EQ(Routes(world), "0 1 501 ");
}

WORLD_TEST(Hotplug, EventsForWhatIsNotThereOrLeadsUpChangeNothing) {
  World world("H1:1 - D1:1");
  ASSERT_EQ(world.Start(), 0);
  world.Quiet();
  const struct {
    std::uint64_t route;
    unsigned adapter;
  } kEvents[] = {{0x301, 3}, {1, 60}, {1, 1}, {1, 2}, {0, 7}, {0, 1}, {0, 2}, {1, 9}};
  for (const auto& event : kEvents) {
    world.wire().Inject(sim::ControlWire::Raw(sim::HotPlugPacket(event.route, event.adapter, false)));
  }
  world.Quiet();
  EXPECT_EQ(Routes(world), "0 1 ");
  // Unplugs of adapters that lead nowhere, of the way up, and of the second lane of a link.
  for (const auto& event : kEvents) {
    if (event.route != 0 || event.adapter != 1) {
      world.wire().Inject(sim::ControlWire::Raw(sim::HotPlugPacket(event.route, event.adapter, true)));
    }
  }
  world.Quiet();
  EXPECT_EQ(Routes(world), "0 1 ");
}

}  // namespace
}  // namespace tests
