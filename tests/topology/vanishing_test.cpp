// Goal: no moment of an enumeration is one at which the router may not go away or an access may not fail. Method: one
// run for each packet, and one for each access.
#include <gtest/gtest.h>

#include "tests/support/bench.h"
#include "topology/device_list.h"

namespace tests {
namespace {

// Whatever had been enumerated is gone once the event has been handled.
TEST(Vanishing, ARouterThatGoesAtAnyPacketOfItsEnumerationIsGoneAfterwards) {
  std::uint64_t last = 0;
  {
    Bench whole("H1:1 - D1:1");
    whole.StartQuietly();
    last = whole.wire().log().count();
  }
  ASSERT_GT(last, 2 * 267u);
  for (std::uint64_t packet = 1; packet <= last; ++packet) {
    SCOPED_TRACE("unplugged at packet " + std::to_string(packet));
    Bench bench("H1:1 - D1:1");
    bench.AtPacket(packet, [&bench] { bench.Unplug("D1"); });
    bench.StartQuietly();
    EXPECT_EQ(bench.Routers(), "0 gen4\n");
    bench.Finish();
    if (testing::Test::HasFailure()) return;
  }
}

void FailAnswer(Bench& bench, std::uint64_t answer) {
  bench.wire().ReplaceAnswer(answer, [](const sim::ControlPacket& packet) {
    return sim::ControlWire::Raw(sim::ErrorPacket(packet.Route(), 0, sim::ErrorCode::NoSuchAddress));
  });
}

// An error packet in place of the n-th answer: the enumeration goes on, or ends for that router, but a router is either
// listed or forgotten.
void ExpectStartsWithoutEachAnswer(const char* topology, std::uint64_t answers, std::uint64_t step) {
  for (std::uint64_t answer = 1; answer <= answers; answer += step) {
    SCOPED_TRACE(std::string(topology) + ", answer " + std::to_string(answer));
    Bench bench(topology);
    FailAnswer(bench, answer);
    static_cast<void>(bench.Start());
    bench.Quiet(60 * platform::kSecond);
    bench.InDriver([](USB4_DOMAIN& domain) {
      unsigned listed = 0;
      DeviceWalk walk(&domain);
      while (USB4_DEV_ENTRY* entry = walk.Next()) {
        ++listed;
        EXPECT_EQ(entry->Router->Unplugged.IsSet(), false);
      }
      EXPECT_LE(listed, 2u);
      EXPECT_TRUE(listed == 0 || domain.HostRouter.Peek() != nullptr);
    });
    // The driver was lied to: an operation is repeated while it runs, a lone second lane is taken for a link.
    bench.ForgiveProtocolErrors(" (route ");
    bench.Finish();
    if (testing::Test::HasFailure()) return;
  }
}

TEST(Vanishing, EachAnswerInTurnIsAnErrorPacket) {
  ExpectStartsWithoutEachAnswer("H1:1 - D1:1", 330, 1);
}

// More than half of these are the bits of the host's EEPROM.
TEST(Vanishing, EachAnswerToAThunderboltHostInTurnIsAnErrorPacket) {
  std::uint64_t answers = 0;
  {
    Bench whole("HT:1 - T1:1");
    whole.StartQuietly();
    answers = whole.wire().log().count() / 2;
  }
  ASSERT_GT(answers, 400u);
  ExpectStartsWithoutEachAnswer("HT:1 - T1:1", answers, 3);
}

// Whatever fails on the way to sleep costs a router its sleep, not its place: it starts from reset and is found again.
TEST(Vanishing, EachAnswerOnTheWayToSleepInTurnIsAnErrorPacket) {
  unsigned answers = 0;  // counted in the first round, in which none is replaced
  for (unsigned answer = 0; answer <= answers; ++answer) {
    SCOPED_TRACE("answer " + std::to_string(answer));
    Bench bench("H1:1 - D1:1, D1:3 - T1:1, T1:3 - G2:1");
    bench.StartQuietly();
    bench.RequestCounts();
    if (answer != 0) FailAnswer(bench, answer);
    bench.Sleep();
    if (answer == 0) {
      for (const auto& [route, count] : bench.RequestCounts()) answers += count;
      EXPECT_GT(answers, 50u);
    }
    bench.Resume();
    bench.Quiet();
    EXPECT_EQ(bench.Routers(), "0 gen4\n1 gen4 20G bonded\n301 gen3 20G bonded\n30301 gen2 10G bonded\n");
    if (testing::Test::HasFailure()) return;
  }
}

// All of the first 250; after them, request after request of the same two kinds, one in seven.
TEST(Vanishing, EachAllocationInTurnFails) {
  unsigned allocation = 1;
  for (bool fired = true; fired && !testing::Test::HasFailure(); allocation += allocation < 250 ? 1 : 7) {
    SCOPED_TRACE("allocation " + std::to_string(allocation));
    Bench bench("H1:1 - D1:1");
    bench.faults().FailNth("pool.allocate", allocation);
    static_cast<void>(bench.Start());
    bench.Quiet(60 * platform::kSecond);
    fired = bench.faults().Fired();
    // An adapter whose header could not be read for want of memory leaves its second lane alone with the link.
    bench.ForgiveProtocolErrors(" (route ");
    bench.Finish();
  }
  EXPECT_GT(allocation, 267u) << "each request to the hub allocates";
}

}  // namespace
}  // namespace tests
