// Goal: the parts of a peer's record that need no peer to answer. Method: records of a host without a cable; values
// worked out by hand.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/bench.h"
#include "xdomain/mac_address.h"
#include "xdomain/peer_hop_ids.h"

namespace tests {
namespace {

WORLD_TEST(PeerHopIds, AreGivenFromTheFirstFreeUpAndReleasedWithAllAboveThem) {
  Bench bench("H1");
  bench.StartQuietly();
  bench.InDriver([](USB4_DOMAIN& domain) {
    USB4_XDOMAIN peer = {};
    peer.Domain = &domain;
    peer.InputHopLimit = 11;
    peer.OutputHopLimit = 15;
    EXPECT_EQ(KivUsb4XdomainAllocInHopid(&peer, 8), 8);
    EXPECT_EQ(KivUsb4XdomainAllocInHopid(&peer, 8), 9);
    EXPECT_EQ(KivUsb4XdomainAllocInHopid(&peer, -1), 10);
    EXPECT_EQ(KivUsb4XdomainAllocInHopid(&peer, 12), -22) << "above the limit";
    EXPECT_EQ(KivUsb4XdomainAllocInHopid(&peer, 7), -22);
    EXPECT_EQ(KivUsb4XdomainAllocInHopid(&peer, 0), -22);
    EXPECT_EQ(KivUsb4XdomainAllocInHopid(&peer, 11), 11);
    EXPECT_EQ(KivUsb4XdomainAllocInHopid(&peer, 8), -1) << "none is left";
    EXPECT_EQ(KivUsb4XdomainAllocOutHopid(&peer, 15), 15) << "the other table";
    KivUsb4XdomainReleaseInHopid(&peer, 9);
    EXPECT_EQ(KivUsb4XdomainAllocInHopid(&peer, 8), 9);
    EXPECT_EQ(KivUsb4XdomainAllocInHopid(&peer, 8), 10) << "it went with 9";
    KivUsb4XdomainReleaseInHopid(&peer, -1);
    EXPECT_EQ(KivUsb4XdomainAllocInHopid(&peer, -1), 8);
  });
}

WORLD_TEST(PeerHopIds, EndAtTheTableWhateverThePeerSays) {
  Bench bench("H1");
  bench.StartQuietly();
  bench.InDriver([](USB4_DOMAIN& domain) {
    USB4_XDOMAIN peer = {};
    peer.Domain = &domain;
    peer.OutputHopLimit = 0xFFFFFFFF;
    EXPECT_EQ(KivUsb4XdomainAllocOutHopid(&peer, 43), 43);
    EXPECT_EQ(KivUsb4XdomainAllocOutHopid(&peer, 43), -1);
    EXPECT_EQ(KivUsb4XdomainAllocOutHopid(&peer, 0x7FFFFFFF), -1);
    KivUsb4XdomainReleaseOutHopid(&peer, 0x7FFFFFFF);
    KivUsb4XdomainReleaseOutHopid(&peer, 43);
    EXPECT_EQ(KivUsb4XdomainAllocOutHopid(&peer, 43), 43);
    peer.OutputHopLimit = 0;
    EXPECT_EQ(KivUsb4XdomainAllocOutHopid(&peer, -1), -22);
  });
}

WORLD_TEST(MacAddress, FollowsFromTheUuidAndThePort) {
  const struct {
    std::uint64_t route;
    std::uint32_t uuid[4];
    std::uint8_t mac[6];
  } kCases[] = {
      {0x1, {0x00000000, 0x00000000, 0x00000000, 0x00000000}, {0x02, 0x5b, 0xc7, 0x67, 0x3d, 0x33}},
      {0x2, {0x00000901, 0x00000000, 0xffffffff, 0xffffffff}, {0x02, 0xbf, 0x02, 0x2e, 0xb0, 0x61}},
      {0x3, {0x00000901, 0x00000000, 0xffffffff, 0xffffffff}, {0x12, 0xbf, 0x02, 0x2e, 0xb0, 0x61}},
      {0x4, {0x12345678, 0x9abcdef0, 0xffffffff, 0xffffffff}, {0x12, 0xd8, 0x10, 0x86, 0x9d, 0x38}},
      {0x301, {0x12345679, 0x9abcdef0, 0xffffffff, 0xffffffff}, {0x02, 0x4c, 0x9f, 0x9c, 0x52, 0x79}},
  };
  Bench bench("H1");
  bench.StartQuietly();
  bench.InDriver([&](USB4_DOMAIN& domain) {
    for (const auto& test : kCases) {
      std::uint8_t uuid[16];
      std::memcpy(uuid, test.uuid, sizeof uuid);
      USB4_XDOMAIN peer = {};
      peer.Domain = &domain;
      peer.Route = test.route;
      peer.OwnUuid = uuid;
      KivUsb4XdomainMacAddress(&peer);
      EXPECT_TRUE(std::equal(peer.MacAddress, peer.MacAddress + 6, test.mac)) << test.route << " " << test.uuid[0];
    }
  });
}

}  // namespace
}  // namespace tests
