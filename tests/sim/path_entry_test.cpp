// Goal: path entries hold what the manager may write, complain about what no manager should, and drain.
// Method: entries of a host and a hub written over the wire, one mistake per row.
#include <gtest/gtest.h>

#include "tests/sim/rig.h"

namespace sim::test {
namespace {

struct EntryBench : Rig {
  explicit EntryBench(std::uint64_t seed = 0) : Rig("H1", seed) {
    Manage("H1:1 D1:1");
    Wire();
  }
  void WriteEntry(std::uint64_t route, unsigned number, unsigned hop, std::uint32_t word0, std::uint32_t word1) {
    Write(route, number, Space::Path, 2 * hop, {word0, word1});
  }
  // Reads until the pending bit of PCIe entry 8 of the host is clear.
  unsigned ReadsUntilDrained() {
    unsigned reads = 1;
    while ((Value(0, 3, Space::Path, 17) & 0x10000000) != 0) {
      ++reads;
      Run(100 * kMs);
    }
    return reads;
  }
};

TEST(PathEntry, ComplainsAboutWhatNoManagerShouldWrite) {
  struct Case {
    std::uint64_t route;
    unsigned adapter, hop;
    std::uint32_t word0, word1;
    const char* complaint;
  };
  const Case cases[] = {
      {0, 3, 8, 0x800E0809, 0x03000301, ""},
      {1, 1, 9, 0x80204808, 0x01000301, ""},
      {0, 3, 8, 0x820E0809, 0x03000301,
       "H1:3 (route 0): write of 0x820e0809 sets reserved bits 0x02000000 of path dword 16 [reserved-bits]\n"},
      {0, 3, 8, 0x800E0809, 0x23000301,
       "H1:3 (route 0): write of 0x23000301 sets reserved bits 0x20000000 of path dword 17 [reserved-bits]\n"},
      {0, 3, 8, 0x800E0809, 0x03000311,
       "H1:3 (route 0): write of 0x03000311 sets reserved bits 0x00000010 of path dword 17 [reserved-bits]\n"},
      {0, 3, 8, 0x800E4009, 0x03000301,
       "H1:3 (route 0): path entry 8 leads to adapter 8, which is none [entry-adapter]\n"},
      {0, 3, 8, 0x000E4009, 0x03000301, ""},
      {0, 3, 8, 0x800E0817, 0x03000301,
       "H1:3 (route 0): path entry 8 leaves by H1:1 with hop ID 23; its limit is 22 [entry-hop-limit]\n"},
      {0, 3, 8, 0x800E0807, 0x03000301,
       "H1:3 (route 0): path entry 8 leaves by H1:1 with hop ID 7, which is not for paths [entry-hop-reserved]\n"},
      {0, 7, 1, 0x801A0808, 0x03000301, ""},
      {0, 1, 9, 0x80203801, 0x01000301, ""},
      {1, 1, 7, 0x80204808, 0x01000301,
       "D1:1 (route 1): path entry 7 made valid; hop IDs below 8 are not for paths [entry-reserved]\n"},
      {1, 1, 9, 0x80204808, 0x01804301, "D1:1 (route 1): path entry 9 counts into set 4 of 4 [entry-counter]\n"},
      {1, 1, 9, 0x80204808, 0x01803301, ""},
      {1, 1, 20, 0x80204808, 0x01000301,
       "D1:1 (route 1): write of 0x80204808 to path dword 40, which does not exist [unknown-dword]\n"},
      {0, 3, 9, 0x800E0809, 0x03000301,
       "H1:3 (route 0): write of 0x800e0809 to path dword 18, which does not exist [unknown-dword]\n"},
      {0, 1, 0, 0x00000000, 0x21000001,
       "H1:1 (route 0): write of 0x00000000 changes preserved bits 0x80040001 of path dword 0 [preserved-bits]\n"},
  };
  for (const Case& c : cases) {
    EntryBench rig;
    rig.WriteEntry(c.route, c.adapter, c.hop, c.word0, c.word1);
    EXPECT_EQ(rig.Errors(), c.complaint) << c.route << ":" << c.adapter << " " << c.hop;
  }
}

TEST(PathEntry, StaysPendingForZeroToTwentyReads) {
  std::set<unsigned> seen;
  for (std::uint64_t seed = 1; seed <= 60; ++seed) {
    EntryBench rig(seed);
    rig.WriteEntry(0, 3, 8, 0x800E0809, 0x03000301);
    rig.WriteEntry(0, 3, 8, 0x000E0809, 0x03000301);
    seen.insert(rig.ReadsUntilDrained());
    rig.WriteEntry(0, 3, 8, 0x000E0809, 0x00000301);
    EXPECT_EQ(rig.adapter("H1:3").pathEntry(8).word1, 0x00000301u);
    EXPECT_EQ(rig.Errors(), "");
  }
  EXPECT_EQ(*seen.begin(), 1u);
  EXPECT_EQ(*seen.rbegin(), 21u);
}

TEST(PathEntry, AnEntryThatWasNotValidDoesNotBecomePending) {
  EntryBench rig;
  rig.WriteEntry(0, 3, 8, 0x000E0809, 0x03000301);
  EXPECT_EQ(rig.Value(0, 3, Space::Path, 17), 0x03000301u);
}

TEST(PathEntry, MustNotBeMadeValidBeforeItHasDrained) {
  for (bool wait : {true, false}) {
    EntryBench rig;
    rig.WriteEntry(0, 3, 8, 0x800E0809, 0x03000301);
    rig.WriteEntry(0, 3, 8, 0x000E0809, 0x03000301);
    EXPECT_TRUE(rig.adapter("H1:3").pathPending(8));
    if (wait) rig.ReadsUntilDrained();
    rig.WriteEntry(0, 3, 8, 0x800E0809, 0x03000301);
    EXPECT_EQ(rig.Errors(),
              wait ? "" : "H1:3 (route 0): path entry 8 made valid before it has drained [entry-pending]\n");
    EXPECT_EQ(rig.adapter("H1:3").pathEntry(8).word1, 0x03000301u);
  }
}

TEST(PathEntry, SetAsideBuffersSpillIntoIgnoredBitsWhenTooManyAreTakenBack) {
  EntryBench rig;
  const std::uint32_t before = rig.Value(0, 1, Space::Adapter, 4);
  rig.Write(0, 1, Space::Adapter, 4, {0xFFFFFFFF});
  EXPECT_EQ(rig.Errors(), "");
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, 4), before | 0x3FF);
}

}  // namespace
}  // namespace sim::test
