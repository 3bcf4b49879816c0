// Goal: what runs inside a router: operations, DROM, time, configuration ready, sleep ready, protocol handshakes.
// Method: a hub behind a host, driven through its registers.
#include <gtest/gtest.h>

#include "sim/router/drom_writer.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

struct Hub : Rig {
  explicit Hub(std::uint64_t seed = 0) : Rig("H1", seed) { Manage("H1:1 D1:1"); }
  std::uint32_t Operation(std::uint64_t route, std::uint32_t opcode, std::uint32_t metadata) {
    Write(route, 0, Space::Router, 25, {metadata});
    Write(route, 0, Space::Router, 26, {0x80000000 | opcode});
    for (int i = 0; i < 200 && Value(route, 0, Space::Router, 26) >> 31 != 0; ++i) Run(1 * kMs);
    return Value(route, 0, Space::Router, 26);
  }
};

TEST(RouterOperations, ReadsTheDromByDwords) {
  Hub rig;
  EXPECT_EQ(rig.Operation(1, 0x24, 16u << 15 | 0), 0x00000024u);
  EXPECT_EQ(rig.Read(1, 0, Space::Router, 9, 4).substr(69), "00000167 d1000000 9dbd5500 0074035e")
      << "CRC-8, UID, CRC-32C, version 3, length 0x74";
  EXPECT_EQ(rig.Operation(1, 0x24, 2u << 15 | 4 << 2), 0x00000024u);
  EXPECT_EQ(rig.Value(1, 0, Space::Router, 9), 0x00000908u) << "the entry with vendor and model";
  EXPECT_EQ(rig.Operation(1, 0x24, 17u << 15), 0x01000024u) << "more than sixteen dwords";
  EXPECT_EQ(rig.Errors(), "D1 (route 1): DROM read with metadata 0x00088000 [drom-metadata]\n");
}

TEST(RouterOperations, UnknownRefusedBusyAndStuck) {
  Hub rig;
  EXPECT_EQ(rig.Operation(1, 0x77, 0), 0x40000077u) << "not supported";
  rig.fabric.Find("D1")->operations().RefuseOpcode(0x24);
  EXPECT_EQ(rig.Operation(1, 0x24, 1u << 15), 0x40000024u);
  rig.Write(1, 0, Space::Router, 26, {0x80000010});
  rig.Write(1, 0, Space::Router, 26, {0x80000010});
  EXPECT_EQ(rig.Errors(), "") << "asked again, perhaps because an answer got lost";
  rig.Write(1, 0, Space::Router, 26, {0x80000011});
  EXPECT_EQ(rig.Errors(), "D1 (route 1): router operation 0x00000011 started while 0x00000010 runs [operation-busy]\n");
  rig.Run(1 * kMs);
  rig.simulation.faults().FailNth("router.operation-stuck", 1);
  EXPECT_EQ(rig.Operation(1, 0x10, 0), 0x80000010u);
}

TEST(Drom, PortEntriesSayWhatIsDisabledAndWhichLanesPair) {
  const std::vector<std::uint8_t> image = BuildDrom(*FindModel("D2"));
  const std::vector<std::uint8_t> lanes(image.begin() + 24, image.begin() + 40);
  EXPECT_EQ(lanes,
            (std::vector<std::uint8_t>{0x08, 0x81, 0x80, 0x02, 0x80, 0, 0, 0, 0x08, 0x82, 0x90, 0x01, 0x80, 0, 0, 0}));
  const std::vector<std::uint8_t> disabled = {0x02, 0xCD, 0x02,
                                              0xCE, 0x02, 0xD0};  // 13, 14, and 16 behind a missing 15
  EXPECT_NE(std::search(image.begin(), image.end(), disabled.begin(), disabled.end()), image.end());
  EXPECT_EQ(image[14] + 13u, image.size());
  EXPECT_TRUE(BuildDrom(*FindModel("T3")).empty());
}

TEST(Configuration, ReadyAndSleepReadyFollowTheirRequests) {
  Rig rig("H1");
  rig.Build("H1:1 D1:1");
  rig.StartControlRing();
  rig.Configure(0, 7);
  rig.Unlock(0, 1);
  rig.Write(1, 0, Space::Router, 1, {0x0314C128 | 1u << 20, 1, 0x80000000, 0x2000100A});
  EXPECT_EQ(rig.Value(1, 0, Space::Router, 6), 0x01000000u) << "nobody asked";
  rig.Write(1, 0, Space::Router, 5, {0x80800000});
  rig.Run(10 * kMs);
  EXPECT_EQ(rig.Value(1, 0, Space::Router, 6), 0x03000000u);
  rig.Write(1, 0, Space::Router, 5, {0x80800001});
  rig.Run(25 * kMs);
  EXPECT_EQ(rig.Value(1, 0, Space::Router, 6), 0x03000001u);
  EXPECT_EQ(rig.Errors(), "");
}

}  // namespace
}  // namespace sim::test
