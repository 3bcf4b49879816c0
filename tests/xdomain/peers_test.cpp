// Goal: a host that has several ports, and peers that come and go at them, never loses one and keeps none. Method: two
// or three hosts.
#include <gtest/gtest.h>

#include "tests/support/hand_peer.h"
#include "tunnel/dma_tunnel.h"

namespace tests {
namespace {

using platform::kSecond;

std::string Name(Meeting& meeting) {
  std::string name = "none";
  meeting.InDevice([&name](DEVICE_EXTENSION& context) {
    if (context.XDomain.Peek() != nullptr) name = context.XDomain.Peek()->Info.Name;
  });
  return name;
}

WORLD_TEST(Peers, ASecondOneTakesThePlaceOfTheFirst) {
  Meeting meeting("a/H3, b/H1, c/H2");
  meeting.StartAll();
  meeting.Quiet();
  meeting.Plug("a/H3:1 - b/H1:1");
  meeting.Pass(8 * kSecond);
  EXPECT_EQ(Name(meeting), "0-1");
  meeting.Plug("a/H3:3 - c/H2:1");
  meeting.Pass(8 * kSecond);
  EXPECT_EQ(Name(meeting), "0-3");
  const std::string states = meeting.States();
  EXPECT_NE(states.find("0-1 ENUMERATED"), std::string::npos) << states;
  EXPECT_NE(states.find("0-3 ENUMERATED"), std::string::npos) << states;
  meeting.Unplug("a/H3:1");
  meeting.Pass(8 * kSecond);
  EXPECT_EQ(Name(meeting), "0-3") << "the one in use is not the one that was pulled";
  meeting.Unplug("a/H3:3");
  meeting.Pass(8 * kSecond);
  EXPECT_EQ(Name(meeting), "none");
}

// The first one is still asking when it loses the device.
WORLD_TEST(Peers, ASecondOneLeavesTheWorkOfTheFirstAlone) {
  Meeting meeting("a/H3, b/H1, c/H2");
  meeting.StartAll();
  meeting.Quiet();
  meeting.Plug("a/H3:1 - b/H1:1");
  meeting.Pass(1 * kSecond);
  meeting.Plug("a/H3:3 - c/H2:1");
  meeting.Pass(10 * kSecond);
  const std::string states = meeting.States();
  EXPECT_NE(states.find("0-1 ENUMERATED"), std::string::npos) << states;
  EXPECT_NE(states.find("0-3 ENUMERATED"), std::string::npos) << states;
}

WORLD_TEST(Peers, DoNotHoldADeviceAwakeThatWasStartedWithThem) {
  Meeting meeting;
  meeting.StartAll();
  meeting.Pass(12 * kSecond);
  EXPECT_EQ(Name(meeting), "0-1");
  meeting.Pass(30 * kSecond);
  EXPECT_EQ(Name(meeting), "none");
}

// The unplug is never reported: a newer event of the adapter takes its place.
WORLD_TEST(Peers, AreRemovedWhenARouterAnswersInTheirPlace) {
  HandPeer peer;
  peer.widths = 1;
  peer.Meet();
  peer.Pass(8 * kSecond);
  EXPECT_EQ(Name(peer), "0-1");
  peer.InDevice([](DEVICE_EXTENSION& context) { context.Suspending.Store(1); });  // events are dropped
  peer.Unplug("A:1");
  peer.Pass(1 * kSecond);
  peer.InDevice([](DEVICE_EXTENSION& context) { context.Suspending.Store(0); });
  peer.Plug("A:1 - D1:1");
  peer.Pass(3 * kSecond);
  EXPECT_EQ(Name(peer), "none");
  EXPECT_NE(peer.Tree().find("D1"), std::string::npos) << peer.Tree();
}

// Two lanes up to the hub's port; the hub belongs to the host that it was plugged to.
WORLD_TEST(Peers, BehindAHubAreMetAndGoWithIt) {
  Meeting meeting("a/H1:1 - D1:1, b/H3");
  meeting.StartAll();
  meeting.Quiet();
  meeting.Plug("D1:3 - b/H3:1");
  meeting.Pass(9 * kSecond);
  EXPECT_EQ(Name(meeting), "0-301");
  EXPECT_EQ(meeting.Peer(0).substr(0, 17), "ENUMERATED 20G x2") << meeting.Peer(0);
  EXPECT_EQ(meeting.Peer(1).substr(0, 17), "ENUMERATED 20G x2") << meeting.Peer(1);
  meeting.Unplug("a/H1:1");
  meeting.Pass(4 * kSecond);
  EXPECT_EQ(Name(meeting), "none");
}

// A cable from one port of a host to another: the host meets itself at either, and leaves the lanes alone.
WORLD_TEST(Peers, MayBeTheHostItself) {
  Meeting meeting("H3");
  meeting.StartAll();
  meeting.Quiet();
  meeting.Plug("H3:1 - H3:3");
  meeting.Pass(8 * kSecond);
  const std::string states = meeting.States();
  for (const char* state : {"0-1 PROPERTIES", "0-1 ENUMERATED", "0-3 PROPERTIES", "0-3 ENUMERATED"}) {
    EXPECT_NE(states.find(state), std::string::npos) << state << "\n" << states;
  }
  EXPECT_EQ(states.find("LINK"), std::string::npos) << states;
  meeting.Unplug("H3:1");
  meeting.Pass(5 * kSecond);
  EXPECT_EQ(Name(meeting), "none");
}

WORLD_TEST(Peers, ThatCannotBeKeptAreFoundAtTheNextPlug) {
  Meeting meeting("a/H1, b/H3");
  meeting.StartAll();
  meeting.Quiet();
  meeting.faults().FailNth("WdfWorkItemCreate", 1);
  meeting.Plug("a/H1:1 - b/H3:1");
  meeting.Pass(1 * kSecond);
  EXPECT_TRUE(meeting.faults().Fired());
  meeting.faults().HealAll();
  meeting.Unplug("a/H1:1");
  meeting.Pass(5 * kSecond);
  meeting.Plug("a/H1:1 - b/H3:1");
  meeting.Pass(9 * kSecond);
  const std::string states = meeting.States();
  EXPECT_NE(states.find("0-1 ENUMERATED"), std::string::npos) << states;
  EXPECT_NE(states.find("1/0-1 ENUMERATED"), std::string::npos) << states;
}

// A known peer, and the paths that both hosts have agreed on.
class JoinedPeer : public HandPeer {
 public:
  JoinedPeer() {
    widths = 1;
    Meet();
    Pass(8 * kSecond);
    WithPeer(0, [](USB4_XDOMAIN& peer) { EXPECT_EQ(KivUsb4ApproveXdomainPaths(peer.Domain, &peer, {8, 1, 9, 1}), 0); });
    EXPECT_EQ(Tunnels(), "DMA 0:7 -> 0:1\n");
  }
};

WORLD_TEST(Peers, TakeTheirPathsWithThem) {
  JoinedPeer peer;
  peer.Wire();
  peer.Unplug("A:1");
  peer.Pass(20 * kSecond);
  EXPECT_EQ(peer.Tunnels(), "");
  EXPECT_EQ(Name(peer), "none");
  // The paths first, then the marks of the link, then its second lane.
  const std::string wire = peer.Wire();
  const std::size_t path = wire.find("-> WRITE route=0 adapter=7 space=path offset=0x002");
  const std::size_t mark = wire.find("-> WRITE route=0 adapter=1 space=adapter offset=0x0af");
  const std::size_t lane = wire.find("-> WRITE route=0 adapter=2 space=adapter offset=0x037");
  ASSERT_NE(lane, std::string::npos) << wire;
  EXPECT_LT(path, mark);
  EXPECT_LT(mark, lane);
}

WORLD_TEST(Peers, ThatLeaveAPathWhichNeverDrainsAreLeftByAPowerDown) {
  const struct {
    const char* what;
    void (*act)(World& world);
  } kCases[] = {
      {"stop", [](World& world) { world.Stop(); }},
      {"sleep", [](World& world) { world.Sleep(), world.Resume(); }},
      {"surprise removal", [](World& world) { world.SurpriseRemove(); }},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    JoinedPeer peer;
    peer.ExpectLeftovers();  // who gives the wait up leaves the hops after it
    peer.faults().FailFrom("path.never-drains", 1);
    peer.Unplug("A:1");
    peer.Pass(20 * kSecond);
    EXPECT_EQ(Name(peer), "0-1") << "the unplug waits for the path";
    const platform::Time start = peer.simulation().Now();
    test.act(peer);
    EXPECT_LE((peer.simulation().Now() - start) / kSecond, 8);
    peer.TakeProtocolErrors();
    peer.Finish();
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace
}  // namespace tests
