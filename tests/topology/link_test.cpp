// Goal: the small operations on links say what the registers say, write what they should and nothing else. Method: one
// hub; registers preset on either side, operations called, requests and registers compared.
#include "topology/link.h"

#include <gtest/gtest.h>

#include "tests/support/bench.h"
#include "topology/adapter_state.h"
#include "topology/router_operation.h"
#include "topology/router_queries.h"

namespace tests {
namespace {

struct Hub {
  Hub() { bench.StartQuietly(), bench.Requests(); }
  // Dword 1 of the lane capability of D1's adapter 3, behind which nothing is.
  void Preset(std::uint32_t word) { bench.adapter("D1:3").space().Set(0x37, word); }
  template <class Look>
  void WithAdapter(unsigned number, Look look) {
    bench.WithRouter(1, [&](USB4_SWITCH& router) { look(router.Adapters[number]); });
  }
  Bench bench{"H1:1 - D1:1"};
};

WORLD_TEST(Link, SpeedWidthAndStateAreFieldsOfOneWord) {
  Hub hub;
  const struct {
    std::uint32_t word;
    KIV_RESULT speed, width, state;
  } kCases[] = {
      {0x5C18001C, 10, 1, 7}, {0x0828003C, 10, 2, 2}, {0x4814001C, 20, 1, 2},
      {0x08240000, 20, 2, 2}, {0x001F0000, 10, 1, 0}, {0x3FF70000, 10, 63, 15},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.word);
    hub.Preset(test.word);
    hub.WithAdapter(3, [&test](USB4_PORT& adapter) {
      EXPECT_EQ(KivUsb4PortGetLinkSpeed(&adapter), test.speed);
      EXPECT_EQ(KivUsb4PortGetLinkWidth(&adapter), test.width);
      EXPECT_EQ(KivUsb4PortState(&adapter), test.state);
    });
  }
}

WORLD_TEST(Link, AdaptersThatAreNoLanesAreRefusedWithoutAnAccess) {
  Hub hub;
  hub.WithAdapter(9, [](USB4_PORT& adapter) {
    EXPECT_EQ(KivUsb4PortGetLinkSpeed(&adapter), -1);
    EXPECT_EQ(KivUsb4PortGetLinkWidth(&adapter), -1);
    EXPECT_EQ(KivUsb4PortState(&adapter), -1);
    EXPECT_FALSE(KivUsb4PortIsWidthSupported(&adapter, 1));
    EXPECT_EQ(KivUsb4PortSetLinkWidth(&adapter, 1), -1);
    EXPECT_EQ(KivUsb4PortLaneDisable(&adapter), -22);
    EXPECT_EQ(KivUsb4WaitForPort(&adapter, false), -1);
    EXPECT_EQ(KivUsb4PortUnlock(&adapter), -1);
    EXPECT_EQ(Usb4SetXdomainConfigured(&adapter, true), -22);
    EXPECT_FALSE(KivUsb4LinkIsUsb4(&adapter));
  });
  hub.WithAdapter(3, [](USB4_PORT& adapter) {
    EXPECT_EQ(KivUsb4PortSetLinkWidth(&adapter, 3), -1);
    EXPECT_EQ(KivUsb4PortSetLinkWidth(&adapter, 0), -1);
  });
  hub.WithAdapter(1, [](USB4_PORT& adapter) { EXPECT_EQ(KivUsb4WaitForPort(&adapter, false), -1) << "it leads up"; });
  hub.WithAdapter(2,
                  [](USB4_PORT& adapter) { EXPECT_EQ(KivUsb4WaitForPort(&adapter, false), -1) << "and its partner"; });
  EXPECT_EQ(hub.bench.Requests(), "");
}

WORLD_TEST(Link, EachChangeTouchesItsOwnBits) {
  Hub hub;
  const struct {
    const char* what;
    std::function<KIV_RESULT(USB4_PORT&)> change;
    unsigned offset;
    std::uint32_t before;
    const char* written;
  } kCases[] = {
      {"width 1", [](USB4_PORT& a) { return KivUsb4PortSetLinkWidth(&a, 1); }, 0x37, 0x481400FC, "4814801c"},
      {"width 2", [](USB4_PORT& a) { return KivUsb4PortSetLinkWidth(&a, 2); }, 0x37, 0x481400FC, "4814803c"},
      {"lane off", [](USB4_PORT& a) { return KivUsb4PortLaneDisable(&a); }, 0x37, 0x5C18001C, "5c18401c"},
      {"lane on", [](USB4_PORT& a) { return KivUsb4PortLaneEnable(&a); }, 0x37, 0x5C18401C, "5c18001c"},
      {"configured", [](USB4_PORT& a) { return KivUsb4SetPortConfigured(&a, true); }, 0xAF, 0x6, "0000000e"},
      {"not configured", [](USB4_PORT& a) { return KivUsb4SetPortConfigured(&a, false); }, 0xAF, 0x1E, "00000016"},
      {"peer", [](USB4_PORT& a) { return KivUsb4SetXdomainConfiguredAny(&a, true); }, 0xAF, 0xE, "0000001e"},
      {"no peer", [](USB4_PORT& a) { return KivUsb4SetXdomainConfiguredAny(&a, false); }, 0xAF, 0x1E, "0000000e"},
      {"unlocked", [](USB4_PORT& a) { return KivUsb4PortUnlock(&a); }, 0x04, 0x83C00000, "03c00000"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    hub.bench.adapter("D1:3").space().Set(test.offset, test.before);
    hub.WithAdapter(3, [&test](USB4_PORT& adapter) { EXPECT_EQ(test.change(adapter), 0); });
    const std::string requests = hub.bench.Requests(1);
    EXPECT_NE(requests.find(std::string(" data=") + test.written + "\n"), std::string::npos) << requests;
    EXPECT_EQ(std::count(requests.begin(), requests.end(), '\n'), 2) << requests;
  }
}

// The mark, bit 3, goes at both ends, and at the one that can be reached when the other cannot.
WORLD_TEST(Link, ALinkThatGoesLosesItsMarkAtBothEnds) {
  for (const std::uint64_t failing : {0u, 1u, 3u}) {  // the access that fails: none, and the first one of either end
    SCOPED_TRACE(failing);
    Bench bench("H1:1 - D1:1");
    bench.StartQuietly();
    const auto marked = [&bench](const char* port) { return (bench.adapter(port).space().Get(0xAF) & 8) != 0; };
    EXPECT_TRUE(marked("H1:1"));
    EXPECT_TRUE(marked("D1:1"));
    bench.WithRouter(1, [&bench, failing](USB4_SWITCH& router) {
      if (failing != 0) {
        bench.wire().ReplaceAnswer(failing, [](const sim::ControlPacket& packet) {
          return std::optional(
              sim::ControlWire::Raw(sim::ErrorPacket(packet.Route(), 0, sim::ErrorCode::NoSuchAddress)));
        });
      }
      EXPECT_EQ(KivUsb4SwitchUnconfigureLink(&router), 0);
    });
    EXPECT_EQ(marked("D1:1"), failing == 1);
    EXPECT_EQ(marked("H1:1"), failing == 3);
  }
}

TEST(Link, AnAdapterThatDoesNotSettleIsGivenTenPolls) {
  Hub hub;
  const struct {
    std::uint32_t word;
    bool whileDisconnected;
    KIV_RESULT result;
    unsigned polls;
  } kCases[] = {
      {0x04180000, false, 0, 10}, {0x5C180000, true, 0, 10}, {0x5C180000, false, 0, 1},
      {0x00180000, true, 0, 1},   {0x08180000, false, 1, 1},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.word);
    hub.Preset(test.word);
    const platform::Time before = hub.bench.simulation().Now();
    hub.WithAdapter(3, [&test](USB4_PORT& adapter) {
      EXPECT_EQ(KivUsb4WaitForPort(&adapter, test.whileDisconnected), test.result);
    });
    const platform::Time passed = hub.bench.simulation().Now() - before;
    EXPECT_EQ(hub.bench.RequestCounts()[1], test.polls);
    EXPECT_EQ(passed / platform::kMillisecond / 100, test.polls == 10 ? 10 : 0);
  }
}

WORLD_TEST(Link, WaitingForAWidthPollsOnceASecond) {
  Hub hub;
  const struct {
    std::uint32_t timeoutMs;
    unsigned polls;
  } kCases[] = {{999, 1}, {1000, 2}, {2500, 3}};
  for (const auto& test : kCases) {
    hub.Preset(0x4814001C);
    hub.WithAdapter(
        3, [&test](USB4_PORT& adapter) { EXPECT_EQ(KivUsb4PortWaitForLinkWidth(&adapter, 2, test.timeoutMs), -60); });
    EXPECT_EQ(hub.bench.RequestCounts()[1], test.polls);
    hub.WithAdapter(3, [](USB4_PORT& adapter) { EXPECT_EQ(KivUsb4PortWaitForLinkWidth(&adapter, 1, 0), 0); });
    EXPECT_EQ(hub.bench.RequestCounts()[1], 1u);
  }
}

TEST(Link, APollForABitEndsAfterElevenReads) {
  Hub hub;
  const platform::Time before = hub.bench.simulation().Now();
  hub.WithAdapter(3, [](USB4_PORT& adapter) {
    EXPECT_EQ(Usb4PortWaitForBit(&adapter, {0x37, 1u << 14, 1u << 14}, 1500), -1);
  });
  const platform::Time between = hub.bench.simulation().Now();
  hub.bench.WithRouter(1, [](USB4_SWITCH& router) { EXPECT_EQ(Usb4SwitchWaitForBit(&router, {6, 1, 1}, 5), -1); });
  const platform::Time after = hub.bench.simulation().Now();
  EXPECT_EQ(hub.bench.RequestCounts()[1], 22u);
  EXPECT_EQ((between - before) / platform::kMillisecond / 100, 10) << "none after the last read";
  EXPECT_EQ((after - between) / platform::kMillisecond / 100, 11) << "one after each read";
}

WORLD_TEST(LaneBonding, AFailingSecondLaneTakesTheFirstBackToSingle) {
  Bench bench("H1:1 - D1:1", {1, 0, true});
  bench.StartQuietly();
  bench.WithRouter(1, [&bench](USB4_SWITCH& router) {
    bench.Requests();
    USB4_PORT& adapter = router.Adapters[1];
    // Reads of both widths and the change of lane 0 succeed; the change of lane 1 is refused at its write.
    bench.wire().ReplaceAnswer(6, [](const sim::ControlPacket& packet) {
      return sim::ControlWire::Raw(sim::ErrorPacket(packet.Route(), 2, sim::ErrorCode::NoSuchAddress));
    });
    EXPECT_EQ(KivUsb4PortLaneBondingEnable(&adapter), -1);
    EXPECT_EQ(adapter.Bonded, 0);
    EXPECT_EQ(adapter.DualLinkPartner->Bonded, 0);
  });
  EXPECT_EQ(bench.adapter("D1:1").targetWidth(), 1u);
}

TEST(LaneBonding, AFailingParentSideTakesTheRoutersSideBack) {
  Bench bench("H1:1 - D1:1");
  bench.StartQuietly();
  bench.WithRouter(1, [](USB4_SWITCH& router) { KivUsb4SwitchLaneBondingDisable(&router); });
  bench.Pass(platform::kSecond);
  EXPECT_EQ(bench.adapter("D1:1").negotiatedWidth(), 1u);
  EXPECT_EQ(bench.Routers(), "0 gen4\n1 gen4 20G single\n");
  bench.WithRouter(1, [&bench](USB4_SWITCH& router) {
    // Possible, two widths, lane 1 up; the router's two lanes asked and changed, 3 accesses each; the parent's change
    // is refused at its write.
    bench.wire().ReplaceAnswer(13, [](const sim::ControlPacket& packet) {
      return sim::ControlWire::Raw(sim::ErrorPacket(packet.Route(), 1, sim::ErrorCode::NoSuchAddress));
    });
    EXPECT_EQ(KivUsb4SwitchLaneBondingEnable(&router), -1);
    EXPECT_EQ(router.Adapters[1].Bonded, 0);
    EXPECT_EQ(router.Adapters[1].Remote->Bonded, 0);
  });
  EXPECT_EQ(bench.adapter("D1:1").targetWidth(), 1u);
  EXPECT_EQ(bench.adapter("D1:2").targetWidth(), 1u);
}

}  // namespace
}  // namespace tests
