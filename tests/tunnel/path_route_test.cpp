// Goal: a path takes the way through the tree, and on each link the lane that carries it. Method: ways and paths over
// links that are bonded, not bonded, and both in one domain, as text.
#include <gtest/gtest.h>

#include "include/locks.h"
#include "tests/support/tunnel_bench.h"
#include "topology/link.h"
#include "tunnel/path.h"

namespace tests {
namespace {

struct BondedChain : TunnelBench {
  // H1:1 - D1:1, D1:3 - D2:1, D1:5 - T3:1; which of the first two links are bonded.
  BondedChain(bool first, bool second) : TunnelBench("H1") {
    Wire("H1:1", "D1:1");
    Wire("D1:3", "D2:1");
    Wire("D1:5", "T3:1");
    StartQuietly();
    if (!first) WithRouter(1, [](USB4_SWITCH& router) { KivUsb4SwitchLaneBondingDisable(&router); });
    if (!second) WithRouter(0x301, [](USB4_SWITCH& router) { KivUsb4SwitchLaneBondingDisable(&router); });
    Pass(platform::kSecond);
  }
  std::string Way(const char* from, const char* to) {
    std::string text;
    InRun([&](USB4_DOMAIN& domain) {
      const USB4_ENDS ends = Ends(domain, from, to);
      for (USB4_PORT* next = KivUsb4NextPortOnPath(ends, nullptr); next != nullptr;
           next = KivUsb4NextPortOnPath(ends, next)) {
        text += NameOf(next) + " ";
      }
    });
    return text;
  }
  std::string Path(const char* from, int fromHop, const char* to, int toHop, unsigned link) {
    std::string text;
    InRun([&](USB4_DOMAIN& domain) {
      USB4_PATH* path =
          KivUsb4PathAlloc(&domain, {{Port(domain, from), fromHop}, {Port(domain, to), toHop}, link, "test"});
      text = TextOf(path);
      KivUsb4PathFree(path);
    });
    return text;
  }
};

WORLD_TEST(PathRoutes, WalkInAndOutOfEachRouterOfTheWay) {
  BondedChain chain(true, true);
  const struct {
    const char *from, *to, *way;
  } kCases[] = {
      {"H1:3", "D1:9", "H1:3 H1:1 D1:1 D1:9 "},
      {"D1:9", "H1:3", "D1:9 D1:1 H1:1 H1:3 "},
      {"H1:3", "D2:9", "H1:3 H1:1 D1:1 D1:3 D2:1 D2:9 "},
      {"D2:9", "H1:3", "D2:9 D2:1 D1:3 D1:1 H1:1 H1:3 "},
      {"D1:10", "D2:9", "D1:10 D1:3 D2:1 D2:9 "},
      {"D2:9", "T3:8", "D2:9 D2:1 D1:3 D1:5 T3:1 T3:8 "},
      {"D1:10", "D1:9", "D1:10 D1:9 "},
      {"D1:9", "D1:9", "D1:9 "},
      {"H1:7", "D1:1", "H1:7 H1:1 D1:1 "},
  };
  for (const auto& test : kCases) EXPECT_EQ(chain.Way(test.from, test.to), test.way);
}

WORLD_TEST(PathRoutes, TakeTheLaneOfTheirLinkNumberUnlessLanesAreBonded) {
  struct Case {
    const char *from, *to;
    unsigned link;
    const char* path;
  };
  const struct {
    bool first, second;  // bonded
    std::vector<Case> cases;
  } kDomains[] = {
      {true,
       true,
       {
           {"H1:3", "D2:9", 0, "H1:3 8 -> H1:1 8 | D1:1 8 -> D1:3 8 | D2:1 8 -> D2:9 8"},
           {"H1:3", "D2:9", 1, "H1:3 8 -> H1:1 8 | D1:1 8 -> D1:3 8 | D2:1 8 -> D2:9 8"},
           {"D2:9", "H1:3", 1, "D2:9 8 -> D2:1 8 | D1:3 8 -> D1:1 8 | H1:1 8 -> H1:3 8"},
       }},
      {false,
       false,
       {
           {"H1:3", "D2:9", 0, "H1:3 8 -> H1:1 8 | D1:1 8 -> D1:3 8 | D2:1 8 -> D2:9 8"},
           {"H1:3", "D2:9", 1, "H1:3 8 -> H1:2 8 | D1:2 8 -> D1:4 8 | D2:2 8 -> D2:9 8"},
           {"D2:9", "H1:3", 0, "D2:9 8 -> D2:1 8 | D1:3 8 -> D1:1 8 | H1:1 8 -> H1:3 8"},
           {"D2:9", "H1:3", 1, "D2:9 8 -> D2:2 8 | D1:4 8 -> D1:2 8 | H1:2 8 -> H1:3 8"},
       }},
      {true,
       false,
       {
           {"H1:3", "D2:9", 1, "H1:3 8 -> H1:1 8 | D1:1 8 -> D1:4 8 | D2:2 8 -> D2:9 8"},
           {"D2:9", "H1:3", 1, "D2:9 8 -> D2:2 8 | D1:4 8 -> D1:1 8 | H1:1 8 -> H1:3 8"},
       }},
      {false,
       true,
       {
           {"H1:3", "D2:9", 1, "H1:3 8 -> H1:2 8 | D1:2 8 -> D1:3 8 | D2:1 8 -> D2:9 8"},
           {"D2:9", "H1:3", 1, "D2:9 8 -> D2:1 8 | D1:3 8 -> D1:2 8 | H1:2 8 -> H1:3 8"},
       }},
  };
  for (const auto& wired : kDomains) {
    BondedChain chain(wired.first, wired.second);
    for (const Case& test : wired.cases) {
      EXPECT_EQ(chain.Path(test.from, 8, test.to, 8, test.link), test.path) << wired.first << wired.second;
    }
    EXPECT_EQ(chain.HopIds(), "");
  }
}

void SetRemote(USB4_PORT* adapter, USB4_PORT* remote) {
  const SpinLockGuard guard(adapter->Router->Domain->TopologyLock);
  adapter->Remote = remote;
}

WORLD_TEST(PathRoutes, AreRefusedWithNothingReserved) {
  BondedChain chain(true, true);
  EXPECT_EQ(chain.Path("H1:3", 7, "D1:9", 8, 0), "none") << "a source hop ID that is never handed out";
  EXPECT_EQ(chain.Path("H1:3", 8, "D1:9", 9, 0), "none") << "above the destination's limit";
  EXPECT_EQ(chain.Path("D1:9", 8, "D1:9", 8, 0), "none") << "no hop between an adapter and itself";
  chain.InRun([&](USB4_DOMAIN& domain) {
    USB4_PORT* lane = chain.Port(domain, "D1:3");
    USB4_PORT* remote = lane->Remote;
    SetRemote(lane, nullptr);
    EXPECT_EQ(KivUsb4PathAlloc(&domain, {{chain.Port(domain, "H1:3"), 8}, {chain.Port(domain, "D2:9"), 8}, 0, "test"}),
              nullptr)
        << "the way breaks off";
    SetRemote(lane, remote);
    // A second path over the same links takes the next hop IDs; a third from the same adapter is refused.
    USB4_PATH* first =
        KivUsb4PathAlloc(&domain, {{chain.Port(domain, "H1:3"), 8}, {chain.Port(domain, "D1:9"), 8}, 0, "test"});
    USB4_PATH* second =
        KivUsb4PathAlloc(&domain, {{chain.Port(domain, "H1:4"), 8}, {chain.Port(domain, "D1:16"), 8}, 0, "test"});
    EXPECT_EQ(chain.TextOf(second), "H1:4 8 -> H1:1 9 | D1:1 9 -> D1:16 8");
    EXPECT_EQ(KivUsb4PathAlloc(&domain, {{chain.Port(domain, "H1:3"), 8}, {chain.Port(domain, "D2:9"), 8}, 0, "test"}),
              nullptr);
    KivUsb4PathFree(first);
    KivUsb4PathFree(second);
  });
  EXPECT_EQ(chain.HopIds(), "");
  EXPECT_EQ(chain.Requests(1).find("space=path"), std::string::npos) << "allocation writes nothing";
}

}  // namespace
}  // namespace tests
