// Goal: one event at a time, in order of arrival, each acknowledged once after it was handled; none lost, none handled
// during a power-down. Method: hot-plug packets on the wire of a started host; what counts is the wire text and the
// lists afterwards.
#include <gtest/gtest.h>

#include "hostif/abort.h"
#include "hostif/notifications.h"
#include "hostif/work_items.h"
#include "tests/support/step_log.h"
#include "topology/device_list.h"

namespace {

using platform::kMillisecond;
using platform::kSecond;
using sim::ControlWire;
using tests::World;

std::string Acknowledgements(const std::string& wire) {
  std::string found;
  for (std::size_t at = 0; (at = wire.find("-> ACK", at)) != std::string::npos; ++at) {
    found += wire.substr(at + 3, wire.find('\n', at) - at - 2);
  }
  return found;
}

sim::RawPacket HotPlugWord(std::uint32_t word, std::uint64_t route = 0) {
  sim::ControlPacket packet = sim::HotPlugPacket(route, 0, false);
  packet.dwords[2] = word;
  return ControlWire::Raw(packet);
}

WORLD_TEST(WorkLoop, AcknowledgesEveryEventInOrderWhateverBecomesOfIt) {
  World world;
  world.Start();
  world.Quiet();
  world.Wire();
  const std::uint32_t words[] = {
      0x00000002,  // plug, second lane of the first link
      0x80000005,  // unplug, DP IN
      0x00000007,  // the upstream adapter
      0x0000003F,  // an adapter that the router does not have
      0x7FFFFFC3,  // plug, adapter 3: the other bits mean nothing
  };
  for (std::uint32_t word : words) world.wire().Inject(HotPlugWord(word));
  world.wire().Inject(HotPlugWord(0x00000001, 0x301));  // a router that is not there
  world.Quiet();
  EXPECT_EQ(Acknowledgements(world.Wire()),
            "ACK route=0 adapter=2 plug\n"
            "ACK route=0 adapter=5 unplug\n"
            "ACK route=0 adapter=7 plug\n"
            "ACK route=0 adapter=63 plug\n"
            "ACK route=0 adapter=3 plug\n"
            "ACK route=301 adapter=1 plug\n");
  world.TakeProtocolErrors();
}

WORLD_TEST(WorkLoop, AcknowledgesAfterHandling) {
  World world;
  world.Start();
  world.Quiet();
  world.Wire();
  world.Plug("H1:1 - D1:1");
  world.Quiet();
  const std::string wire = world.Wire();
  const std::size_t acknowledged = wire.find("-> ACK route=0 adapter=1 plug");
  ASSERT_NE(acknowledged, std::string::npos);
  EXPECT_EQ(wire.find("-> READ route=1", acknowledged), std::string::npos) << "the router was enumerated first";
  EXPECT_NE(wire.find("-> READ route=1"), std::string::npos);
}

WORLD_TEST(WorkLoop, AFlushWithoutWorkReturnsAtOnce) {
  World world;
  world.Start();
  world.Quiet();
  world.InDevice([&](DEVICE_EXTENSION& context) {
    {
      const MutexGuard guard(context.WorkListMutex);
      context.QueuedEventCount = 3;
    }
    const platform::Time before = world.simulation().Now();
    KivUsb4FlushOrFreeWorkItem(&context, false);
    EXPECT_LT(world.simulation().Now() - before, 100 * kMillisecond);
    EXPECT_EQ(context.QueuedEventCount.Peek(), 0u);
  });
}

WORLD_TEST(WorkLoop, WithoutMemoryAnEventIsDroppedAndTheRouterRepeatsIt) {
  for (std::uint64_t n = 1; n <= 2; ++n) {  // the record, the list node
    World world;
    world.Start();
    world.Quiet();
    world.Wire();
    world.faults().FailNth("pool.allocate", n);
    world.Plug("H1:1 - D1:1");
    world.Quiet();
    EXPECT_TRUE(world.faults().Fired());
    EXPECT_NE(world.Wire().find("-> ACK route=0 adapter=1 plug"), std::string::npos);
    EXPECT_TRUE(world.InDriver([](USB4_DOMAIN& domain) { return KivUsb4DomainGetSwitch(&domain, 1) != nullptr; }));
  }
}

// A storm of notifications for one adapter while the domain starts, and ever after.
WORLD_TEST(WorkLoop, AStormEndsWithAnEmptyListAndAnIdleDevice) {
  World world;
  world.At(1 * kMillisecond, [&world] {
    for (int i = 0; i < 200; ++i) {
      world.At(i * 100 * platform::kMicrosecond,
               [&world, i] { world.wire().Inject(HotPlugWord(i % 2 == 0 ? 0x80000005 : 5)); });
    }
  });
  world.Start();
  world.Quiet(60 * kSecond);
  world.InDevice([](DEVICE_EXTENSION& context) { EXPECT_TRUE(IsListEmpty(&context.EventListHead)); });
  EXPECT_EQ(world.kernel().References(world.machine().device()).held, 0);
  world.TakeProtocolErrors();
}

}  // namespace
