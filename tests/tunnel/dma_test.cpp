// Goal: a ring of the host and the link to a peer are joined by exactly the two paths that both hosts have agreed on,
// and nothing of them stays behind. Method: a host router; its path entries word by word, and the driver's records.
#include "tunnel/dma_tunnel.h"

#include <gtest/gtest.h>

#include "hostif/abort.h"
#include "tests/support/tunnel_bench.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_list.h"

namespace tests {
namespace {

// A peer behind an adapter of the host router, as far as tunnels are concerned.
struct Peer {
  explicit Peer(USB4_DOMAIN& domain, std::uint64_t route) {
    record.Domain = &domain;
    record.Route = route;
    record.Lock.Initialise();
  }
  USB4_XDOMAIN record = {};
};

struct DmaBench : TunnelBench {
  explicit DmaBench(const std::string& topology = "H1", TunnelPolicy policy = {}) : TunnelBench(topology, policy) {
    StartQuietly();
  }
  KIV_RESULT Approve(const USB4_DMA_HOPS& hops, std::uint64_t route = 1) {
    KIV_RESULT result = -99;
    InDriver([&](USB4_DOMAIN& domain) {
      const RunGuard run(domain);
      Peer peer(domain, route);
      result = KivUsb4ApproveXdomainPaths(&domain, &peer.record, hops);
    });
    return result;
  }
  void Disconnect(const USB4_DMA_HOPS& hops, std::uint64_t route = 1) {
    InDriver([&](USB4_DOMAIN& domain) {
      const RunGuard run(domain);
      Peer peer(domain, route);
      KivUsb4DisconnectXdomainPaths(&domain, &peer.record, hops);
    });
  }
  // "listed 1, orphans 2"
  std::string Records() {
    unsigned listed = 0, orphans = 0;
    InRun([&](USB4_DOMAIN& domain) {
      for (USB4_TUNNEL& tunnel : TunnelsOf(&domain)) listed += tunnel.PathCount != 0;
      for (USB4_TUNNEL& tunnel : OrphanTunnelList(domain.OrphanTunnelListHead)) orphans += tunnel.PathCount != 0;
    });
    return "listed " + std::to_string(listed) + ", orphans " + std::to_string(orphans);
  }
  unsigned LinkCredits() { return adapter("H1:7").space().Get(5) >> 22 & 0x7F; }
};

WORLD_TEST(DmaTunnels, JoinARingAndTheLinkByOneHopEachWay) {
  DmaBench bench;
  EXPECT_EQ(bench.LinkCredits(), 0u);
  EXPECT_EQ(bench.Approve({8, 1, 9, 1}), 0);
  // Hop 8 of adapter 1, 13 credits; priority 5, weight 1, flow control both ways, shared buffering on the way in.
  EXPECT_EQ(bench.Entry("H1:7", 1), "801a0808 077ff501");
  // Hop 1 of adapter 7, 14 credits; no flow control on the way out.
  EXPECT_EQ(bench.Entry("H1:1", 9), "801c3801 017ff501");
  EXPECT_EQ(bench.LinkCredits(), 13u);
  EXPECT_EQ(bench.HopIds(), "H1:1 in 9 out 8\nH1:7 in 1 out 1\n");
  EXPECT_EQ(bench.Counts(), "total 0, USB3 0, PCIe 0, DP 0");
  EXPECT_EQ(bench.Records(), "listed 1, orphans 0");
  bench.Disconnect({8, 1, 9, 1});
  EXPECT_EQ(bench.Programmed(), "");
  EXPECT_EQ(bench.HopIds(), "");
  EXPECT_EQ(bench.LinkCredits(), 0u);
  EXPECT_EQ(bench.Records(), "listed 0, orphans 0");
}

WORLD_TEST(DmaTunnels, ToAPeerBehindAHubEndAtTheHostRouter) {
  DmaBench bench("H1:1 - D1:1");
  EXPECT_EQ(bench.Approve({8, 1, 9, 1}, 0x301), 0);
  EXPECT_EQ(bench.HopIds(), "H1:1 in 9 out 8\nH1:7 in 1 out 1\n") << "none at the hub";
  bench.Disconnect({8, 1, 9, 1}, 0x301);
  EXPECT_EQ(bench.Programmed(), "");
}

WORLD_TEST(DmaTunnels, EndWithTheirFlowControlCleared) {
  DmaBench bench;
  EXPECT_EQ(bench.Approve({8, 1, 9, 1}), 0);
  bench.Disconnect(kEveryDmaTunnel);
  EXPECT_EQ(bench.adapter("H1:7").paths().Get(3), 0x007ff501u);
  EXPECT_EQ(bench.adapter("H1:1").paths().Get(19), 0x007ff501u);
}

WORLD_TEST(DmaTunnels, TakeNoMoreCreditsThanTheHostInterfaceHasBuffersFor) {
  DmaBench bench;
  bench.InRun([&bench](USB4_DOMAIN& domain) {
    USB4_PORT& host = *bench.Port(domain, "H1:7");
    const std::uint32_t before = host.Header[4];
    for (const std::uint32_t buffers : {0u, 1u, 12u, 13u, 14u, 1023u}) {
      host.Header[4] = buffers << 20;
      EXPECT_EQ(KivUsb4DmaHopCredits(&host), std::min(buffers, 13u));
    }
    host.Header[4] = before;
  });
}

WORLD_TEST(DmaTunnels, LeaveNothingBehindWhenAnyAccessFails) {
  DmaBench bench;
  // Counters are not used. Two entries, each read for nothing and then written; the credits read and written.
  unsigned failing = 0;
  for (;; ++failing) {
    SCOPED_TRACE("access " + std::to_string(failing + 1));
    bench.FailAnswer(failing + 1);
    const KIV_RESULT result = bench.Approve({8, 1, 9, 1});
    if (result == 0) break;
    EXPECT_EQ(result, -5);
    EXPECT_EQ(bench.Programmed(), "");
    EXPECT_EQ(bench.HopIds(), "");
    EXPECT_EQ(bench.Records(), "listed 0, orphans 0");
    ASSERT_LT(failing, 20u);
  }
  EXPECT_EQ(failing, 4u);
  bench.Disconnect(kEveryDmaTunnel);
  EXPECT_EQ(bench.Programmed(), "");
}

WORLD_TEST(DmaTunnels, AreRefusedWhenAHopIdIsTakenOrThereIsNoWay) {
  DmaBench bench;
  EXPECT_EQ(bench.Approve({8, 1, 8, 1}), 0);
  const struct {
    const char* what;
    USB4_DMA_HOPS hops;
    std::uint64_t route;
  } kCases[] = {{"the same again", {8, 1, 8, 1}, 1},
                {"far hop ID taken", {8, 2, 9, 2}, 1},
                {"ring taken", {9, 1, 9, 1}, 1},
                {"above the limit of the lane", {23, 2, 9, 2}, 1},
                {"above the number of rings", {9, 12, 9, 2}, 1},
                {"no such adapter", {9, 2, 9, 2}, 12}};
  for (const auto& test : kCases) {
    EXPECT_EQ(bench.Approve(test.hops, test.route), -12) << test.what;
    EXPECT_EQ(bench.Records(), "listed 1, orphans 0") << test.what;
  }
  EXPECT_EQ(bench.HopIds(), "H1:1 in 8 out 8\nH1:7 in 1 out 1\n");
  bench.Disconnect(kEveryDmaTunnel);
}

WORLD_TEST(DmaTunnels, MatchByTheTable) {
  DmaBench bench;
  bench.InRun([&bench](USB4_DOMAIN& domain) {
    USB4_TUNNEL* tunnel =
        KivUsb4TunnelAllocDma(&domain, bench.Port(domain, "H1:7"), bench.Port(domain, "H1:1"), {9, 2, 10, 3});
    ASSERT_NE(tunnel, nullptr);
    const struct {
      USB4_DMA_HOPS hops;
      bool matches;
    } kCases[] = {
        {{9, 2, 10, 3}, true},
        {{-1, -1, -1, -1}, true},
        {{0, -1, 0, -1}, true},
        {{-1, 0, -1, -1}, false},
        {{-1, -1, -1, 0}, false},
        {{9, 0, 10, 3}, false},
        {{9, 1, 10, 3}, false},
        {{8, 2, 10, 3}, false},
        // With a ring the far hop ID is compared whatever it is; without one it is not looked at.
        {{-1, 2, -1, -1}, false},
        {{8, -1, -1, -1}, true},
        {{9, 2, -1, -1}, true},
        {{-1, -1, 10, -1}, true},
        {{-1, -1, 9, -1}, false},
        {{-1, -1, -1, 3}, true},
        {{-1, -1, -1, 2}, false},
        {{-1, -1, 10, 2}, false},
        {{-1, -1, 9, 3}, false},
        {{-1, -1, 0, 3}, true},
    };
    for (const auto& test : kCases) {
      EXPECT_EQ(KivUsb4TunnelMatchDma(tunnel, test.hops), test.matches)
          << test.hops.TransmitFar << " " << test.hops.TransmitHost << " " << test.hops.ReceiveFar << " "
          << test.hops.ReceiveHost;
    }
    KivUsb4TunnelFree(tunnel);
  });
}

WORLD_TEST(DmaTunnels, ThatDoNotMatchLeaveTheListAllTheSameAndStayActive) {
  DmaBench bench("H1");
  EXPECT_EQ(bench.Approve({8, 1, 8, 1}), 0);
  EXPECT_EQ(bench.Approve({9, 2, 9, 2}), 0);
  bench.Disconnect({8, 0, 8, 1});
  EXPECT_EQ(bench.Records(), "listed 0, orphans 2") << "ring 0 matches no tunnel";
  EXPECT_NE(bench.Entry("H1:7", 1), "invalid");
  EXPECT_NE(bench.Entry("H1:7", 2), "invalid");
  EXPECT_EQ(bench.Approve({8, 1, 8, 1}), -12) << "its hop IDs are held";
  EXPECT_EQ(bench.Approve({10, 3, 10, 3}), 0);
  bench.Disconnect(kEveryDmaTunnel);
  EXPECT_EQ(bench.Records(), "listed 0, orphans 2");
  bench.ExpectLeftovers();
  bench.Stop();
}

WORLD_TEST(DmaTunnels, TakeTunnelsOfEveryKindOffTheListWhenTheyGo) {
  DmaBench bench("H3:1 - D1:1", {.usb3 = true, .pcie = true});
  EXPECT_EQ(bench.Tunnels(), "USB3 0:21 -> 1:16\nPCIe 0:9 -> 1:9\n");
  EXPECT_EQ(bench.Approve({8, 1, 8, 1}, 3), 0);
  bench.Disconnect(kEveryDmaTunnel, 3);
  EXPECT_EQ(bench.Tunnels(), "");
  EXPECT_EQ(bench.Counts(), "total 2, USB3 1, PCIe 1, DP 0");
  EXPECT_EQ(bench.Paths().find("lost"), std::string::npos) << "they carry on";
  bench.ExpectLeftovers();
  bench.Stop();
}

}  // namespace
}  // namespace tests
