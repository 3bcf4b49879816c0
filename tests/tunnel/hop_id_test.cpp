// Goal: no two paths get the same hop ID, and none gets one that the hardware does not have. Method: reservations on
// records of a wired domain.
#include "tunnel/hop_id.h"

#include <gtest/gtest.h>

#include "tests/support/tunnel_bench.h"

namespace tests {
namespace {

constexpr std::uint32_t Limits(std::uint32_t input, std::uint32_t output) {
  return output << 11 | input;
}

WORLD_TEST(HopIds, AreReservedWithinTheLimitsOfTheAdapter) {
  TunnelBench bench("H1:1 - D1:1");
  bench.ExpectLeftovers();
  bench.StartQuietly();
  bench.InRun([&](USB4_DOMAIN& domain) {
    const struct {
      const char* what;
      const char* port;
      bool input;
      USB4_HOP_ID_RANGE range;
      std::vector<int> given;  // one reservation after the other
    } kCases[] = {
        {"the first IDs of a lane are not handed out", "H1:1", true, {3, 3}, {-1}},
        {"a low minimum is raised", "H1:1", true, {0, 9}, {8, 9, -1}},
        {"the other direction is free", "H1:1", false, {8, 9}, {8, 9, -1}},
        {"exactly one", "H1:1", true, {15, 15}, {15, -1}},
        {"above the adapter's own limit of 22", "H1:1", true, {21, 40}, {21, 22, -1}},
        {"a protocol adapter has one", "D1:9", true, {-1, -1}, {8, -1}},
        {"the host interface hands out ring numbers", "H1:7", true, {3, 3}, {3, -1}},
        {"from 0", "H1:7", true, {-1, -1}, {0, 1, 2, 4, 5, 6, 7, 8, 9, 10, 11, -1}},
        {"the control adapter's output", "H1:7", false, {11, 40}, {11, -1}},
    };
    for (const auto& test : kCases) {
      SCOPED_TRACE(test.what);
      for (const int given : test.given) {
        EXPECT_EQ(KivUsb4PortAllocHopid(bench.Port(domain, test.port), test.input, test.range), given);
      }
    }
  });
}

WORLD_TEST(HopIds, EndWithTheLowerOfHardwareLimitAndMap) {
  TunnelBench bench("H1:1 - D1:1");
  bench.StartQuietly();
  bench.InRun([&](USB4_DOMAIN& domain) {
    USB4_PORT& lane = *bench.Port(domain, "D1:3");
    const std::uint32_t before = lane.Header[5];
    lane.Header[5] = Limits(12, 60);
    for (const int given : {8, 9, 10, 11, 12, -1}) EXPECT_EQ(KivUsb4PortAllocInHopid(&lane, kAnyHopId), given);
    for (int given = 8; given <= 43; ++given) EXPECT_EQ(KivUsb4PortAllocOutHopid(&lane, kAnyHopId), given);
    EXPECT_EQ(KivUsb4PortAllocOutHopid(&lane, kAnyHopId), -1);
    KivUsb4PortReleaseInHopid(&lane, 10);
    KivUsb4PortReleaseInHopid(&lane, 10);
    KivUsb4PortReleaseInHopid(&lane, 44);
    EXPECT_EQ(KivUsb4PortAllocInHopid(&lane, kAnyHopId), 10) << "the lowest that is free again";
    EXPECT_EQ(KivUsb4PortAllocInHopid(&lane, kAnyHopId), -1);
    for (unsigned hop = 0; hop < 44; ++hop) {
      KivUsb4PortReleaseInHopid(&lane, hop);
      KivUsb4PortReleaseOutHopid(&lane, hop);
    }
    lane.Header[5] = before;
  });
  EXPECT_EQ(bench.HopIds(), "");
}

}  // namespace
}  // namespace tests
