// Goal: two hosts on one cable run side by side, each with its own driver and its own domain.
// Method: the whole driver twice on one clock.
#include "tests/support/world.h"

namespace {

using tests::World;

constexpr lab::Place kFirstHost{0, 0}, kSecondHost{1, 0};

WORLD_TEST(TwoHosts, StartSideBySideAndRefuseEachOthersAccesses) {
  World world("a/H1:1 - b/H3:1");
  ASSERT_EQ(world.Start(), 0);
  ASSERT_EQ(world.machine().StartStatus(kSecondHost), 0);
  const auto& first = world.wire(kFirstHost).log().entries();
  const auto& second = world.wire(kSecondHost).log().entries();
  EXPECT_LT(second.front().when, first.back().when) << "one after the other";
  world.Quiet(120 * platform::kSecond);
  EXPECT_NE(world.Wire(kFirstHost).find("<- ERROR route=1 adapter=1 code=8 (router not enumerated)"),
            std::string::npos);
  EXPECT_NE(world.Wire(kSecondHost).find("<- ERROR route=1 adapter=1 code=8 (router not enumerated)"),
            std::string::npos);
}

WORLD_TEST(TwoHosts, EachVerbReachesItsOwnHost) {
  World world("a/H1:1 - b/H3:1, b/H3:3 - D1:1");
  ASSERT_EQ(world.Start(), 0);
  world.Quiet(120 * platform::kSecond);
  const auto routers = [&](lab::Place place) { return world.machine().Domain(place).routers.size(); };
  EXPECT_EQ(routers(kFirstHost), 1u);
  EXPECT_EQ(routers(kSecondHost), 2u);
  world.Hibernate(0);
  EXPECT_TRUE(world.kernel(0).SystemAsleep());
  EXPECT_FALSE(world.kernel(1).SystemAsleep());
  world.Pass(1 * platform::kSecond);
  EXPECT_EQ(routers(kSecondHost), 2u);
  world.Resume(0);
  world.SurpriseRemove(0, 1);
  world.Quiet(120 * platform::kSecond);
}

}  // namespace
