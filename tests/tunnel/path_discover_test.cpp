// Goal: a programmed path is read as it stands, whoever wrote it and however wrong. Method: entries written into the
// hardware by hand; the walks' results, and what they ask of the routers.
#include <gtest/gtest.h>

#include "tests/support/step_log.h"
#include "tests/support/tunnel_bench.h"
#include "tunnel/path.h"
#include "tunnel/path_discover.h"

namespace tests {
namespace {

struct EntryText {
  const char* port;
  unsigned hop;
  unsigned out, outHop;
};

struct Walks : TunnelBench {
  Walks() : TunnelBench("H1:1 - D1:1, D1:3 - D2:1") { StartQuietly(); }
  void Program(const std::vector<EntryText>& entries) {
    for (const char* port : {"H1:3", "H1:1", "D1:1", "D1:3", "D1:9", "D1:10", "D2:1", "D2:9"}) {
      for (unsigned hop = 8; 2 * hop + 1 < adapter(port).paths().size(); ++hop) adapter(port).paths().Set(2 * hop, 0);
    }
    for (const EntryText& entry : entries) {
      adapter(entry.port).paths().Set(2 * entry.hop, 0x80000000 | entry.out << 11 | entry.outHop);
    }
  }
  struct Found {
    std::string path, last, incomplete, destination;
    int sourceHop;
  };
  // From H1:3 hop 8: the path, its last output; whether it breaks off; where it ends with hop 8; the source hop ID to
  // D2:9 hop 8.
  Found Look() {
    Found found;
    InRun([&](USB4_DOMAIN& domain) {
      USB4_PORT* from = Port(domain, "H1:3");
      USB4_PORT* last = nullptr;
      USB4_PATH* path = KivUsb4PathDiscover({{from, 8}, {nullptr, -1}, "test"}, &last);
      found.path = TextOf(path);
      found.last = NameOf(last);
      if (path != nullptr) {
        EXPECT_EQ(path->Active, 1);
        EXPECT_EQ(path->NfcCredits, 0);
        EXPECT_EQ(path->PriorityWeight, 0u);
      }
      KivUsb4PathFree(path);
      found.incomplete = KivUsb4DiscoverInCompletePath({{from, 8}, {nullptr, -1}, "test"}, nullptr) ? "yes" : "no";
      found.destination = NameOf(KivUsb4PathFindDstPort({from, 8}, 8));
      found.sourceHop = KivUsb4PathFindSrcHopid(from, {Port(domain, "D2:9"), 8});
    });
    return found;
  }
};

WORLD_TEST(PathDiscovery, ReadsWhatStandsThere) {
  const struct {
    const char* what;
    std::vector<EntryText> entries;
    Walks::Found found;
  } kCases[] = {
      {"nothing", {}, {"none", "none", "yes", "none", 0}},
      {"whole",
       {{"H1:3", 8, 1, 9}, {"D1:1", 9, 3, 12}, {"D2:1", 12, 9, 8}},
       {"H1:3 8 -> H1:1 9 | D1:1 9 -> D1:3 12 | D2:1 12 -> D2:9 8", "D2:9", "no", "D2:9", 8}},
      {"cut short",
       {{"H1:3", 8, 1, 9}, {"D1:1", 9, 3, 12}},
       {"H1:3 8 -> H1:1 9 | D1:1 9 -> D1:3 12", "D1:3", "yes", "none", 0}},
      {"another end",
       {{"H1:3", 8, 1, 9}, {"D1:1", 9, 13, 8}},
       {"H1:3 8 -> H1:1 9 | D1:1 9 -> D1:13 8", "D1:13", "no", "D1:13", 0}},
      {"another hop ID at the end",
       {{"H1:3", 8, 1, 9}, {"D1:1", 9, 13, 9}},
       {"H1:3 8 -> H1:1 9 | D1:1 9 -> D1:13 9", "D1:13", "no", "none", 0}},
      {"an adapter that there is not", {{"H1:3", 8, 1, 9}, {"D1:1", 9, 20, 8}}, {"none", "H1:1", "no", "none", 0}},
      {"a lane that leads nowhere",
       {{"H1:3", 8, 1, 9}, {"D1:1", 9, 5, 8}},
       {"H1:3 8 -> H1:1 9 | D1:1 9 -> D1:5 8", "D1:5", "no", "D1:5", 0}},
      // The walk of 14 hops goes round; what it has passed once cannot be reserved again.
      {"a circle", {{"H1:3", 8, 1, 9}, {"D1:1", 9, 1, 9}, {"H1:1", 9, 1, 9}}, {"none", "D1:1", "no", "none", 0}},
  };
  Walks walks;
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    walks.Program(test.entries);
    const Walks::Found found = walks.Look();
    EXPECT_EQ(found.path, test.found.path);
    EXPECT_EQ(found.last, test.found.last);
    EXPECT_EQ(found.incomplete, test.found.incomplete);
    EXPECT_EQ(found.destination, test.found.destination);
    EXPECT_EQ(found.sourceHop, test.found.sourceHop);
    EXPECT_EQ(walks.HopIds(), "");
  }
  walks.Program({});
}

// There and back over one link with another hop ID each time: 16 hops, of which 14 are read.
WORLD_TEST(PathDiscovery, CutsWhatIsLongerThan14Hops) {
  Walks walks;
  std::vector<EntryText> entries = {{"H1:3", 8, 1, 8}};
  for (unsigned hop = 8; hop < 15; ++hop) {
    entries.push_back({"D1:1", hop, 1, hop});
    entries.push_back({"H1:1", hop, 1, hop + 1});
  }
  entries.push_back({"D1:1", 15, 9, 8});
  walks.Program(entries);
  walks.InRun([&](USB4_DOMAIN& domain) {
    USB4_PORT* from = walks.Port(domain, "H1:3");
    USB4_PORT* last = nullptr;
    walks.Requests();
    USB4_PATH* path = KivUsb4PathDiscover({{from, 8}, {nullptr, -1}, "test"}, &last);
    EXPECT_EQ(Count(walks.Requests(), "READ"), 28u) << "two walks";
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(path->HopCount, 14u);
    EXPECT_EQ(walks.NameOf(last), "D1:1");
    EXPECT_EQ(path->Hops[13].OutputHopId, 14u);
    EXPECT_EQ(KivUsb4PathDiscover({{from, 8}, {nullptr, -1}, "test"}, nullptr), nullptr) << "its hop IDs are taken";
    KivUsb4PathFree(path);
    EXPECT_FALSE(KivUsb4DiscoverInCompletePath({{from, 8}, {nullptr, -1}, "test"}, nullptr));
  });
  EXPECT_EQ(walks.HopIds(), "");
  walks.Program({});
}

WORLD_TEST(PathDiscovery, LooksUpTheHopIdAtWhichAPathStarts) {
  Walks walks;
  walks.Program({{"D1:3", 8, 1, 9}, {"D1:3", 9, 10, 8}, {"D1:3", 11, 9, 8}, {"D1:3", 13, 9, 8}});
  walks.InRun([&](USB4_DOMAIN& domain) {
    USB4_PORT* from = walks.Port(domain, "D1:3");
    USB4_PORT* to = walks.Port(domain, "D1:9");
    EXPECT_EQ(KivUsb4PathFindSrcHopid(from, {to, 8}), 11) << "the lowest";
    EXPECT_EQ(KivUsb4PathFindSrcHopid(from, {to, 9}), 0);
    USB4_PATH* path = KivUsb4PathDiscover({{from, -1}, {to, 8}, "test"}, nullptr);
    EXPECT_EQ(walks.TextOf(path), "D1:3 11 -> D1:9 8");
    KivUsb4PathFree(path);
    EXPECT_EQ(KivUsb4PathDiscover({{from, -1}, {nullptr, 8}, "test"}, nullptr), nullptr) << "no known end";
    EXPECT_EQ(KivUsb4PathDiscover({{from, -1}, {walks.Port(domain, "D1:13"), 8}, "test"}, nullptr), nullptr);
    EXPECT_FALSE(KivUsb4DiscoverInCompletePath({{from, -1}, {walks.Port(domain, "D1:13"), 8}, "test"}, nullptr));
    // Each access that fails ends the walk that it belongs to.
    for (unsigned access = 1; access <= 2; ++access) {
      walks.FailAnswer(access);
      EXPECT_EQ(KivUsb4PathDiscover({{from, 11}, {to, 8}, "test"}, nullptr), nullptr);
    }
  });
  EXPECT_EQ(walks.HopIds(), "");
  walks.Program({});
}

}  // namespace
}  // namespace tests
