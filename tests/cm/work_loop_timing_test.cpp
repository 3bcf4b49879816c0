// Goal: the work loop loses no event whenever it comes, runs once for what is queued together, keeps the device awake
// only while it works, and is waited for. Method: events placed by time or by packet; the order of callbacks, packets
// and the driver's own trace.
#include <gtest/gtest.h>

#include "hostif/abort.h"
#include "hostif/notifications.h"
#include "hostif/work_items.h"
#include "tests/support/step_log.h"
#include "topology/device_list.h"

namespace {

using platform::kMicrosecond;
using platform::kMillisecond;
using platform::kSecond;
using sim::ControlWire;
using tests::Count;
using tests::StepLog;
using tests::World;

sim::RawPacket Event(unsigned adapter, bool unplug, std::uint64_t route = 0) {
  return ControlWire::Raw(sim::HotPlugPacket(route, adapter, unplug));
}

// The second of two events comes at every moment of the first one's run, its very end included. Nobody repeats them, so
// one that is lost stays without its acknowledgement.
WORLD_TEST(WorkLoopTiming, AnEventAtTheEndOfARunIsHandledToo) {
  World world;
  world.Start();
  world.Quiet();
  for (int offset = 0; offset < 120; ++offset) {
    world.Wire();
    world.wire().Inject(Event(3, false));
    world.At(offset * kMicrosecond, [&world] { world.wire().Inject(Event(4, true)); });
    world.Quiet();
    const std::string wire = world.Wire();
    EXPECT_EQ(Count(wire, "-> ACK route=0 adapter=3 plug"), 1u) << offset << " us";
    EXPECT_EQ(Count(wire, "-> ACK route=0 adapter=4 unplug"), 1u) << offset << " us";
  }
}

// The same between any two steps of the run, without time passing: the producer counts steps instead.
WORLD_TEST(WorkLoopTiming, AnEventBetweenTheLastLookAndTheEndIsHandledToo) {
  World world;
  world.Start();
  world.Quiet();
  platform::RandomStream& random = world.simulation().Random("test.steps");
  int leftBehind = 0;
  world.InDevice([&](DEVICE_EXTENSION& context) {
    for (int round = 0; round < 200 && leftBehind == 0; ++round) {
      KivUsb4QueueHotplug(context.Domain, {.Route = 0, .Adapter = 3, .Unplug = false});
      // Each look is a step; the run goes on beside them, first to take the event, then to its end.
      for (unsigned looks = 0; context.QueuedEventCount.Peek() != 0 && looks < 2000; ++looks) {
        context.WorkItemQueued.Load();
      }
      for (std::uint64_t steps = random.Below(28); steps > 0; --steps) context.WorkItemQueued.Load();
      KivUsb4QueueHotplug(context.Domain, {.Route = 0, .Adapter = 4, .Unplug = true});
      SleepMs(context.Domain, 30);
      if (!IsListEmpty(&context.EventListHead)) ++leftBehind;
    }
  });
  EXPECT_EQ(leftBehind, 0) << "an event stayed on the list after the run";
}

WORLD_TEST(WorkLoopTiming, EventsOfOneBurstAreOneRunInOrder) {
  World world;
  world.Start();
  world.Quiet();
  StepLog log(world, {"begin EvtWorkItem", "driver: hot-plug event queued", "driver: event handled"});
  // A hub takes long to handle: what comes meanwhile waits.
  world.AtPacket(30, [&world] {
    for (const unsigned adapter : {3u, 4u, 5u}) world.wire().Inject(Event(adapter, true));
  });
  world.Plug("H1:1 - D1:1");
  world.Quiet();
  const std::string steps = log.Take();
  std::size_t at = steps.find("driver: event handled route=0 adapter=1 unplug=no");
  for (const char* handled : {"adapter=3", "adapter=4", "adapter=5"}) {
    const std::size_t next = steps.find(std::string("driver: event handled route=0 ") + handled, at);
    ASSERT_NE(next, std::string::npos) << handled;
    at = next;
  }
  EXPECT_EQ(Count(steps.substr(0, at), "begin EvtWorkItem"), 1u);
}

// Pulled at different moments of its enumeration; afterwards both notifications come once more, too late.
WORLD_TEST(WorkLoopTiming, AnUnplugDuringThePlugAndStaleCopiesOfBoth) {
  for (std::uint64_t packet = 4; packet <= 340; packet += 24) {
    World world;
    world.Start();
    world.Quiet();
    world.AtPacket(packet, [&world] { world.Unplug("H1:1"); });
    world.Plug("H1:1 - D1:1");
    world.Quiet(60 * kSecond);
    world.wire().Inject(Event(1, false));
    world.wire().Inject(Event(1, true));
    world.wire().Inject(Event(1, true));
    world.Quiet(60 * kSecond);
    EXPECT_FALSE(world.InDriver([](USB4_DOMAIN& domain) { return KivUsb4DomainGetSwitch(&domain, 1) != nullptr; }))
        << packet;
    world.Plug("H1:1 - D1:1");
    world.Quiet(60 * kSecond);
    EXPECT_TRUE(world.InDriver([](USB4_DOMAIN& domain) { return KivUsb4DomainGetSwitch(&domain, 1) != nullptr; }))
        << packet;
    world.TakeProtocolErrors();  // writes to a router that is just being pulled
  }
}

WORLD_TEST(WorkLoopTiming, TheDeviceStaysAwakeForTheRunAndIdlesFifteenSecondsAfterIt) {
  World world;
  world.Start();
  world.Quiet();
  world.Pass(14 * kSecond);
  std::int64_t heldDuringTheRun = -1;
  world.AtPacket(30, [&] { heldDuringTheRun = world.kernel().References(world.machine().device()).held; });
  world.Plug("H1:1 - D1:1");
  world.Pass(8 * kSecond);
  EXPECT_EQ(heldDuringTheRun, 1);
  EXPECT_EQ(world.kernel().References(world.machine().device()).held, 0) << "no tunnel needs the device";
  EXPECT_EQ(world.kernel().Power(world.machine().device()), platform::DevicePower::D0);
  StepLog log(world, {"power D3"});
  world.Pass(6 * kSecond);
  EXPECT_EQ(log.Take(), "") << "fifteen seconds from the end of the run";
  world.Pass(4 * kSecond);
  EXPECT_EQ(log.Take(), "power D3\n");
}

// The start signals once that it has failed. The first run goes on at once, the next ones wait for a start in vain.
WORLD_TEST(WorkLoopTiming, AfterAFailedStartLaterRunsWaitFiveSeconds) {
  World world;
  for (unsigned n = 1; n <= 4; ++n) {
    world.wire().ReplaceAnswer(n, [](const sim::ControlPacket&) { return std::nullopt; });
  }
  EXPECT_EQ(world.Start(), 0);
  StepLog log(world, {"-> ACK", "-> READ", "-> WRITE"});
  world.wire().Inject(Event(1, false));
  world.Pass(100 * kMillisecond);
  EXPECT_EQ(log.Take(), "-> ACK route=0 adapter=1 plug\n") << "nothing is handled in a domain that has not started";
  world.wire().Inject(Event(2, false));
  world.Pass(4900 * kMillisecond);
  EXPECT_EQ(log.Take(), "");
  world.Pass(300 * kMillisecond);
  EXPECT_EQ(log.Take(), "-> ACK route=0 adapter=2 plug\n");
}

// A run that ends within five seconds is waited for; what is still queued goes unhandled, and the routers are put to
// sleep only then.
WORLD_TEST(WorkLoopTiming, APowerDownWaitsForTheEventInProgressAndDropsTheRest) {
  World world;
  world.Start();
  world.Quiet();
  StepLog log(world, {"driver: event", "driver: the work loop did not end in time", "begin EvtDeviceD0Exit", "-> ACK",
                      "-> WRITE route=0 adapter=0 space=router offset=0x005"});
  world.Plug("H1:1 - D1:1");
  world.Pass(150 * kMillisecond);  // the link trains and the hub is being read
  for (const unsigned adapter : {3u, 4u}) world.wire().Inject(Event(adapter, false));
  world.Pass(2 * kMillisecond);
  log.Take();
  world.Sleep();
  const std::string steps = log.Take();
  const std::size_t leaving = steps.find("begin EvtDeviceD0ExitPreInterruptsDisabled\n");
  const std::size_t handled = steps.find("driver: event handled route=0 adapter=1 unplug=no");
  const std::size_t dropped = steps.find("driver: event dropped, the device powers down route=0 adapter=4");
  const std::size_t asleep = steps.find("-> WRITE route=0 adapter=0 space=router offset=0x005");
  const std::size_t exited = steps.find("begin EvtDeviceD0Exit\n");
  ASSERT_NE(exited, std::string::npos) << steps;
  EXPECT_LT(leaving, handled) << steps;
  EXPECT_LT(handled, dropped) << steps;
  EXPECT_LT(dropped, asleep) << steps;
  EXPECT_LT(asleep, exited) << steps;
  EXPECT_EQ(Count(steps, "did not end in time"), 0u);
  EXPECT_EQ(Count(steps, "-> ACK route=0 adapter=3"), 0u) << "an event that was not handled is not acknowledged";
  world.Resume();
  world.Quiet();
  EXPECT_TRUE(world.InDriver([](USB4_DOMAIN& domain) { return KivUsb4DomainGetSwitch(&domain, 1) != nullptr; }));
}

// A signal says that some run has ended: it may be an older one's, while the next one is queued or at work. The order
// is the producer's: an event, a power-down that begins while its run goes on, an event that was let in just before.
WORLD_TEST(WorkLoopTiming, AFlushOutlastsTheRunThatIsQueuedBehindTheOneThatSignals) {
  World world;
  world.Start();
  world.Quiet();
  platform::RandomStream& random = world.simulation().Random("test.steps");
  int leftBehind = 0;
  world.InDevice([&](DEVICE_EXTENSION& context) {
    const auto steps = [&](std::uint64_t most) {
      for (std::uint64_t n = random.Below(most); n > 0; --n) context.WorkItemQueued.Load();
    };
    for (int round = 0; round < 200 && leftBehind == 0; ++round) {
      KivUsb4QueueHotplug(context.Domain, {.Route = 0, .Adapter = 3, .Unplug = false});
      steps(60);
      context.Suspending.Store(1);
      steps(20);
      KivUsb4QueueHotplug(context.Domain, {.Route = 0, .Adapter = 4, .Unplug = true});
      KivUsb4FlushOrFreeWorkItem(&context, false);
      if (context.WorkItemQueued.Load() != 0) ++leftBehind;
      SleepMs(context.Domain, 30);
      context.Suspending.Store(0);
      KeClearEvent(&context.WorkDoneEvent);
    }
  });
  EXPECT_EQ(leftBehind, 0) << "a run was queued or at work when the flush returned";
}

}  // namespace
