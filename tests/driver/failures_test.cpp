// Goal: every allocation and every platform call that can fail fails once, and the driver comes through: a promised
// status, no crash, nothing reported, nothing left. Method: the whole host run, once for each passage of each site.
#include <algorithm>
#include <set>

#include "tests/support/world.h"

namespace {

using tests::World;

// Start, sleep, resume, removal: the run whose every failing passage is tried. The status of the start.
std::uint32_t HostRun(World& world) {
  const auto status = static_cast<std::uint32_t>(world.Start());
  if (status == 0) {
    world.Sleep();
    world.Resume();
    world.Quiet();
  }
  world.Finish();
  return status;
}

// Sites of the platform; those of the hardware's wire and links have names with a point and are campaigns of their own.
bool IsPlatformSite(const std::string& site) {
  return site == "pool.allocate" || site.find('.') == std::string::npos;
}

std::vector<std::string> SitesOfTheRun() {
  World world;
  EXPECT_EQ(HostRun(world), 0u);
  std::vector<std::string> sites;
  for (const std::string& site : world.faults().Sites())
    if (IsPlatformSite(site)) sites.push_back(site);
  return sites;
}

// The statuses that a start may end with: all well, no memory, no domain, or the failing call's own.
bool Promised(std::uint32_t status) {
  static const std::set<std::uint32_t> kStatuses = {0, 0xC000009A, 0xC00000A0};
  return kStatuses.contains(status);
}

WORLD_TEST(Failures, EveryPassageOfEverySiteOnce) {
  unsigned runs = 0;
  const std::vector<std::string> sites = SitesOfTheRun();
  ASSERT_NE(std::find(sites.begin(), sites.end(), "pool.allocate"), sites.end());
  ASSERT_GT(sites.size(), 8u);
  for (const std::string& site : sites) {
    for (std::uint64_t n = 1;; ++n, ++runs) {
      SCOPED_TRACE(site + " " + std::to_string(n));
      World world;
      world.faults().FailNth(site, n);
      const std::uint32_t status = HostRun(world);
      EXPECT_TRUE(Promised(status)) << std::hex << status;
      if (testing::Test::HasFailure()) return;
      if (!world.faults().Fired()) break;  // n is past the last passage
    }
  }
  EXPECT_GT(runs, sites.size()) << "no site was passed twice";
}

}  // namespace
