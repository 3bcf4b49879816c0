// Goal: Thunderbolt routers of every generation, as hosts and as devices, take part in the topology by their own
// registers. Method: trees of the three generations below a Thunderbolt 3 host and below a USB4 one.
#include <gtest/gtest.h>

#include "tests/support/bench.h"
#include "topology/drom.h"
#include "topology/router_configure.h"
#include "topology/router_queries.h"

namespace tests {
namespace {

WORLD_TEST(Thunderbolt, AHostsUidIsClockedOutOfItsEeprom) {
  Bench bench("HT");
  bench.StartQuietly();
  bench.WithRouter(0, [](USB4_SWITCH& router) {
    EXPECT_EQ(router.Uid, 0x00567FB4BA8CCE00u);
    EXPECT_EQ(router.Generation, 3u);
    EXPECT_EQ(router.Drom, nullptr);
  });
  // Where the DROM lies; selected and let go again; 3 bytes in and 9 out, 3 accesses a bit after the first read.
  const std::string requests = bench.Requests(0);
  EXPECT_EQ(CountLines(requests, "READ adapter=0 space=router offset=0x005 length=13"), 1u);
  EXPECT_EQ(CountLines(requests, "WRITE adapter=0 space=router offset=0x009 length=1"), 2u + 3 * 24 + 9 * 16 + 2);
  EXPECT_EQ(CountLines(requests, "READ adapter=0 space=router offset=0x009 length=1"), 1u + 3 + 9 * 9 + 1);
}

WORLD_TEST(Thunderbolt, AUidWhoseCheckByteDisagreesIsNotTaken) {
  Bench bench("HT");
  sim::Router& host = bench.router("HT");
  // One bit of the part's data line, once: the check byte's own.
  unsigned reads = 0;
  host.space().OnRead(9, [&reads](std::uint32_t word) { return ++reads == 8 ? word ^ 8u : word; });
  bench.StartQuietly();
  bench.WithRouter(0, [](USB4_SWITCH& router) { EXPECT_EQ(router.Uid, 0u); });
  EXPECT_EQ(bench.Routers(), "0 gen3\n") << "and the host is added all the same";
}

WORLD_TEST(Thunderbolt, SixBelowAThunderboltRootIsTheDepthLimit) {
  Bench bench("HT:1 - a=T1:1, a:3 - b=T1:1, b:3 - c=T1:1, c:3 - d=T1:1, d:3 - e=T1:1, e:3 - f=T1:1, f:3 - g=T1:1");
  ASSERT_EQ(bench.Start(), 0);
  bench.Pass(5 * platform::kSecond);  // what is behind the last one counts as a host, and is asked who it is
  EXPECT_EQ(bench.Routers(),
            "0 gen3\n1 gen3 20G bonded\n301 gen3 20G bonded\n30301 gen3 20G bonded\n"
            "3030301 gen3 20G bonded\n303030301 gen3 20G bonded\n30303030301 gen3 20G bonded\n");
}

WORLD_TEST(Thunderbolt, AUsb4RouterIsNotTakenAtTheSixthLevelOfOne) {
  Bench bench("HT:1 - a=T1:1, a:3 - b=T1:1, b:3 - c=T1:1, c:3 - d=T1:1, d:3 - e=T1:1, e:3 - D1:1");
  ASSERT_EQ(bench.Start(), 0);
  bench.Pass(5 * platform::kSecond);  // what is behind the last one counts as a host, and is asked who it is
  const std::string routers = bench.Routers();
  EXPECT_EQ(CountLines(routers, "303030301 gen3"), 1u);
  EXPECT_EQ(CountLines(routers, "30303030301 "), 0u) << routers;
}

WORLD_TEST(Thunderbolt, EveryGenerationHangsBelowEitherKindOfHost) {
  for (const char* host : {"H1", "HT"}) {
    SCOPED_TRACE(host);
    Bench bench(std::string(host) + ":1 - T1:1, T1:3 - G2:1, G2:3 - G1:1");
    bench.StartQuietly();
    const std::string routers = bench.Routers();
    EXPECT_EQ(CountLines(routers, "1 gen3 20G bonded"), 1u) << routers;
    EXPECT_EQ(CountLines(routers, "301 gen2 10G bonded"), 1u) << routers;
    EXPECT_EQ(CountLines(routers, "30301 gen1 10G single"), 1u) << routers;
    bench.WithRouter(0x30301, [](USB4_SWITCH& router) {
      EXPECT_STREQ(KivUsb4SwitchGenerationName(&router), "Thunderbolt 1");
      EXPECT_EQ(router.LinkControllerCapability, 0xFFFFFFFFu);
      const std::uint8_t noUid[16] = {0, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255, 255, 255, 255, 255};
      const std::uint8_t* uuid = router.Uuid;
      EXPECT_EQ(std::vector<std::uint8_t>(uuid, uuid + 16), std::vector<std::uint8_t>(noUid, noUid + 16));
    });
  }
}

WORLD_TEST(Thunderbolt, ARouterWithoutPlugEventsIsNotConfigured) {
  Bench bench("H1:1 - T1:1");
  bench.StartQuietly();
  bench.Requests();
  bench.WithRouter(1, [](USB4_SWITCH& router) {
    const std::uint32_t kept = router.PlugEventsCapability;
    router.PlugEventsCapability = 0;
    EXPECT_EQ(KivUsb4SwitchConfigure(&router), -1);
    std::uint64_t uid = 0;
    EXPECT_EQ(KivUsb4DromReadUidOnly(&router, uid), -1);
    router.PlugEventsCapability = kept;
  });
  EXPECT_EQ(bench.Requests(), "") << "the header is not written";
}

}  // namespace
}  // namespace tests
