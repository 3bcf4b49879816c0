// Goal: the domain's one power reference pairs what is taken with what is given back, however takers and givers meet.
// Method: several tasks take and give back at once under seeded schedules; the framework's own count is what matters.
#include <gtest/gtest.h>

#include "hostif/power.h"
#include "tests/support/world.h"

namespace {

using tests::World;

WORLD_TEST(PowerReference, IsHeldOnceWhoeverTakesIt) {
  World world;
  world.Start();
  world.Quiet();
  const auto held = [&world] { return world.kernel().References(world.machine().device()).held; };
  world.InDriver([](USB4_DOMAIN& domain) {
    TakePowerReference(&domain, {.WaitForD0 = false, .OnlyIfGranted = false});
    TakePowerReference(&domain, {.WaitForD0 = true, .OnlyIfGranted = true});
  });
  EXPECT_EQ(held(), 1);
  world.InDriver([](USB4_DOMAIN& domain) {
    EXPECT_TRUE(GiveBackPowerReference(&domain));
    EXPECT_FALSE(GiveBackPowerReference(&domain));
  });
  EXPECT_EQ(held(), 0);
}

WORLD_TEST(PowerReference, BalancesWhenTakersAndGiversMeet) {
  World world;
  world.Start();
  world.Quiet();
  USB4_DOMAIN* domain = world.InDriver([](USB4_DOMAIN& found) { return &found; });
  int running = 4;
  for (int task = 0; task < 4; ++task) {
    world.simulation().Spawn(&world.kernel(), "taker and giver", [&] {
      for (int i = 0; i < 20; ++i) {
        TakePowerReference(domain, {.WaitForD0 = false, .OnlyIfGranted = i % 2 == 0});
        GiveBackPowerReference(domain);
      }
      --running;
    });
  }
  world.simulation().RunUntil([&] { return running == 0; }, world.simulation().Now() + platform::kSecond);
  EXPECT_EQ(running, 0);
  EXPECT_EQ(world.kernel().References(world.machine().device()).held, 0);
  EXPECT_EQ(domain->IdleStopped.Value, 0) << "none is held";
}

// Whoever takes last, and nobody gives back afterwards, the domain says that it holds a reference exactly when it does.
WORLD_TEST(PowerReference, SaysWhatItHolds) {
  World world;
  world.Start();
  world.Quiet();
  USB4_DOMAIN* domain = world.InDriver([](USB4_DOMAIN& found) { return &found; });
  int running = 4;
  for (int task = 0; task < 4; ++task) {
    world.simulation().Spawn(&world.kernel(), "taker or giver", [&, task] {
      for (int i = 0; i < 5; ++i) {
        if (task < 2) TakePowerReference(domain, {.WaitForD0 = false, .OnlyIfGranted = false});
        if (task >= 2) GiveBackPowerReference(domain);
      }
      --running;
    });
  }
  world.simulation().RunUntil([&] { return running == 0; }, world.simulation().Now() + platform::kSecond);
  EXPECT_EQ(running, 0);
  EXPECT_EQ(world.kernel().References(world.machine().device()).held, domain->IdleStopped.Value != 0 ? 1 : 0);
  world.InDriver([](USB4_DOMAIN& found) { GiveBackPowerReference(&found); });
}

WORLD_TEST(PowerReference, ARefusedOneIsNeverGivenBack) {
  for (const bool onlyIfGranted : {false, true}) {
    World world;
    world.Start();
    world.Quiet();
    world.faults().FailNth("WdfDeviceStopIdle", 1);
    world.InDriver([&](USB4_DOMAIN& domain) {
      TakePowerReference(&domain, {.WaitForD0 = false, .OnlyIfGranted = onlyIfGranted});
      EXPECT_EQ(PowerReferenceIsHeld(&domain), !onlyIfGranted);
      EXPECT_EQ(GiveBackPowerReference(&domain), !onlyIfGranted);
    });
    EXPECT_TRUE(world.faults().Fired());
    EXPECT_EQ(world.kernel().References(world.machine().device()).held, 0);
  }
}

}  // namespace
