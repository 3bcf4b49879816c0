// Goal: every power transition, in any order and with anything coming in between, leads to the state that its table
// says. Method: verbs of the system on a host router alone; expected are flags, wire text and what is left. Idle, wake
// and packets that arrive at every moment of a transition are among them.
#include <gtest/gtest.h>

#include "driver/power_callbacks.h"
#include "tests/support/world.h"
#include "topology/device_list.h"

namespace {

using platform::kMillisecond;
using platform::kSecond;
using tests::World;

struct Flags {
  bool poweredDown, suspending, started, busStartPending, runtimeIdle, hostRouter;
  bool operator==(const Flags&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Flags& flags) {
  return out << "powered down " << flags.poweredDown << ", suspending " << flags.suspending << ", started "
             << flags.started << ", start pending " << flags.busStartPending << ", runtime idle " << flags.runtimeIdle
             << ", host router " << flags.hostRouter;
}

Flags FlagsOf(World& world) {
  Flags flags{};
  world.InDevice([&](DEVICE_EXTENSION& context) {
    flags = {context.PoweredDown.IsSet(),         context.Suspending.Load() != 0,
             context.Domain->Started.IsSet(),     context.BusStartPending.IsSet(),
             context.Domain->RuntimeIdle.IsSet(), context.Domain->HostRouter.Peek() != nullptr};
  });
  return flags;
}

constexpr Flags kRunning = {false, false, true, false, false, true};
constexpr Flags kAsleep = {true, false, false, false, false, false};

WORLD_TEST(Power, SleepAndHibernationStopTheDomainAndResumeStartsItOnTheSameChannel) {
  for (const bool hibernate : {false, true}) {
    World world;
    world.Start();
    world.Quiet();
    EXPECT_EQ(FlagsOf(world), kRunning);
    const void* channel = world.InDriver([](USB4_DOMAIN& domain) { return static_cast<void*>(domain.ControlChannel); });
    for (int round = 0; round < 3; ++round) {
      hibernate ? world.Hibernate() : world.Sleep();
      EXPECT_EQ(FlagsOf(world), kAsleep);
      world.Wire();
      world.Resume();
      world.Quiet();
      EXPECT_EQ(FlagsOf(world), kRunning);
      EXPECT_NE(world.Wire().find("-> READ route=0 adapter=0 space=router offset=0x000"), std::string::npos);
      EXPECT_EQ(world.hardware().ReadRegister(0x38200), 0x00001001u) << "both control interrupts are on again";
      EXPECT_EQ(world.InDriver([](USB4_DOMAIN& domain) { return static_cast<void*>(domain.ControlChannel); }), channel);
    }
  }
}

WORLD_TEST(Power, AFailedStartLetsTheDeviceBeRemovedAndStartedAgain) {
  World world;
  for (unsigned n = 1; n <= 4; ++n) {
    world.wire().ReplaceAnswer(n, [](const sim::ControlPacket&) { return std::nullopt; });
  }
  EXPECT_EQ(world.Start(), 0) << "a bus that does not start is no failed start";
  EXPECT_EQ(FlagsOf(world), (Flags{false, false, false, true, false, false}));
  world.Sleep();
  world.Resume();
  world.Quiet();
  EXPECT_EQ(FlagsOf(world), kRunning) << "the next start is a whole one";
}

// A hot-plug event arrives at every millisecond around a power-down. Whatever becomes of it, the device ends in D3 with
// an empty list, and the next start takes it up.
WORLD_TEST(Power, EventsAroundAPowerDownAreDroppedOrHandledNeverLost) {
  for (int offset = 0; offset < 12; ++offset) {
    World world;
    world.Start();
    world.Quiet();
    for (int i = 0; i < 3; ++i) {
      world.At(offset * 200 * platform::kMicrosecond + i * 50 * platform::kMicrosecond, [&world] {
        if (world.hardware().power() == platform::FunctionPower::D0) {
          world.wire().Inject(sim::ControlWire::Raw(sim::HotPlugPacket(0, 1, false)));
        }
      });
    }
    world.Sleep();
    world.Resume();
    world.Quiet();
    EXPECT_EQ(FlagsOf(world), kRunning) << offset;
    world.InDevice([&](DEVICE_EXTENSION& context) {
      EXPECT_EQ(context.QueuedEventCount.Peek(), 0u) << offset;
      EXPECT_TRUE(IsListEmpty(&context.EventListHead)) << offset;
      EXPECT_EQ(context.WorkItemQueued.Load(), 0) << offset;
    });
    EXPECT_EQ(world.kernel().References(world.machine().device()).held, 0) << offset;
  }
}

WORLD_TEST(Power, AReleaseLeavesNothingOfADomainWithTunnels) {
  World world("H1:1 - D1:1", {.registry = {{"PCIETunnel\\PCIETunnelSupported", 1}}});
  world.Start();
  world.Quiet();
  ASSERT_EQ(world.Tunnels(), "PCIe 0:3 -> 1:9\n");
  const platform::DeviceId device = world.machine().device();
  EXPECT_EQ(world.kernel().References(device).held, 1);
  EXPECT_GT(world.kernel().LiveMappings(), 0u);
  world.Stop();
  EXPECT_EQ(world.kernel().References(device).held, 0);
  EXPECT_EQ(world.kernel().References(device).leftAtRemoval, 0);
  EXPECT_EQ(world.kernel().LiveMappings(), 0u);
  EXPECT_EQ(world.kernel().ObjectsByType().count("WDFWORKITEM"), 0u);
}

// Every access needs a second attempt, so the enumeration of a hub takes most of a minute. A power-down gives it five
// seconds, then makes it let go within one access, and goes on. A signal that an earlier run has left changes nothing.
WORLD_TEST(Power, AnEventThatTakesTooLongIsLeftBehindAfterFiveSeconds) {
  for (const bool staleSignal : {false, true}) {
    World world;
    world.Start();
    world.Quiet();
    for (unsigned n = 1; n < 2000; n += 2) {
      world.wire().ReplaceAnswer(n, [](const sim::ControlPacket&) { return std::nullopt; });
    }
    world.Plug("H1:1 - D1:1");
    world.Pass(2 * kSecond);
    if (staleSignal) world.InDevice([](DEVICE_EXTENSION& context) { KeSetEvent(&context.WorkDoneEvent, 0, FALSE); });
    const platform::Time start = world.simulation().Now();
    world.Sleep();
    const platform::Time took = world.simulation().Now() - start;
    EXPECT_GE(took, 5 * kSecond) << staleSignal;
    EXPECT_LE(took, 12 * kSecond) << "five seconds, one access, and a suspend of one router; " << staleSignal;
    EXPECT_EQ(FlagsOf(world), kAsleep) << staleSignal;
    for (unsigned n = 1; n < 2000; ++n) {
      world.wire().ReplaceAnswer(n, [](const sim::ControlPacket& answer) { return sim::ControlWire::Raw(answer); });
    }
    world.Resume();
    world.Quiet();
    EXPECT_EQ(FlagsOf(world), kRunning) << staleSignal;
    EXPECT_TRUE(world.InDriver([](USB4_DOMAIN& domain) { return KivUsb4DomainGetSwitch(&domain, 1) != nullptr; }));
  }
}

}  // namespace
