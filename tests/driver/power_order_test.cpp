// Goal: each transition takes its steps in its order, and a power callback that comes out of turn does nothing. Method:
// callbacks, register writes and packets of a transition as one text; callbacks called by hand; a device that goes
// away before any of its register accesses.
#include <gtest/gtest.h>

#include "driver/power_callbacks.h"
#include "tests/support/step_log.h"

namespace {

using platform::kSecond;
using tests::StepLog;
using tests::World;

// Callbacks, ring controls and interrupt mask, and the sleep request to the host router.
const std::vector<std::string> kSteps = {
    "begin EvtDevice", "end EvtDevice", "write 0x19800",
    "write 0x29800",   "write 0x38200", "-> READ route=0 adapter=0 space=router offset=0x000 length=1",
    "power D"};

constexpr const char* kGoingDown =
    "begin EvtDeviceD0ExitPreInterruptsDisabled\n"
    "end EvtDeviceD0ExitPreInterruptsDisabled\n"
    "begin EvtDeviceD0Exit\n"
    "write 0x38200 = 0x1\n"  // receive interrupt off, then the ring
    "write 0x29800 = 0x0\n"
    "write 0x38200 = 0x0\n"  // transmit the same
    "write 0x19800 = 0x0\n"
    "write 0x38200 = 0x0\n"  // and whatever else there may be
    "end EvtDeviceD0Exit\n"
    "power D3\n";

constexpr const char* kRemoval =
    "begin EvtDeviceD0ExitPreInterruptsDisabled\n"
    "end EvtDeviceD0ExitPreInterruptsDisabled\n"
    "begin EvtDeviceD0Exit\n"
    "end EvtDeviceD0Exit\n"
    "begin EvtDeviceReleaseHardware\n"
    "write 0x38200 = 0x1\n"
    "write 0x29800 = 0x0\n"
    "write 0x38200 = 0x0\n"
    "write 0x19800 = 0x0\n"
    "write 0x38200 = 0x0\n"
    "end EvtDeviceReleaseHardware\n";

// Up to the first packet: the channel runs before anything is asked.
constexpr const char* kComingUp =
    "begin EvtDeviceD0Entry\n"
    "end EvtDeviceD0Entry\n"
    "begin EvtDeviceD0EntryPostInterruptsEnabled\n"
    "write 0x19800 = 0xc0000000\n"
    "write 0x38200 = 0x1\n"
    "write 0x29800 = 0xc0000000\n"
    "write 0x38200 = 0x1001\n"
    "-> READ route=0 adapter=0 space=router offset=0x000 length=1";

WORLD_TEST(PowerOrder, EachTransitionInItsOrder) {
  World world;
  StepLog log(world, kSteps);
  world.Start();
  EXPECT_NE(log.Take().find(kComingUp), std::string::npos) << "first start";
  world.Quiet();
  const std::size_t buffers = world.kernel().LiveCommonBuffers();
  log.Take();
  world.Sleep();
  EXPECT_EQ(log.Take(), kGoingDown);
  world.Resume();
  EXPECT_EQ(log.Take().rfind(kComingUp, 0), 0u) << "resume";
  world.Quiet();
  EXPECT_EQ(world.kernel().LiveCommonBuffers(), buffers) << "the channel is the old one, with its old buffers";
  log.Take();
  world.Pass(20 * kSecond);
  EXPECT_EQ(log.Take(), kGoingDown) << "runtime idle";
  world.Stop();
  const std::string removal = log.Take();
  EXPECT_EQ(removal.rfind(kComingUp, 0), 0u) << "a device that idles is brought up first";
  EXPECT_TRUE(removal.ends_with(kRemoval)) << removal;
}

// What an earlier start or run has signalled must not let a later wait through.
WORLD_TEST(PowerOrder, APowerDownTakesBackEverySignal) {
  World world;
  world.Start();
  world.Quiet();
  const auto signalled = [&world] {
    std::string found;
    world.InDevice([&](DEVICE_EXTENSION& context) {
      LARGE_INTEGER now{};
      for (KEVENT* event : {&context.Domain->BusEvent, &context.WorkDoneEvent}) {
        found += KeWaitForSingleObject(event, Executive, KernelMode, FALSE, &now) == 0 ? "signalled " : "clear ";
      }
    });
    return found;
  };
  EXPECT_EQ(signalled(), "signalled clear ") << "the start has signalled";
  world.InDevice([](DEVICE_EXTENSION& context) {
    KeSetEvent(&context.Domain->BusEvent, 0, FALSE);
    KeSetEvent(&context.WorkDoneEvent, 0, FALSE);
  });
  world.Sleep();
  EXPECT_EQ(signalled(), "clear clear ");
  world.Resume();
  world.Quiet();
  EXPECT_EQ(signalled(), "signalled clear ");
}

struct OddCase {
  const char* what;
  std::function<NTSTATUS(WDFDEVICE)> call;
};

WORLD_TEST(PowerOrder, CallbacksForOtherStatesDoNothing) {
  const OddCase cases[] = {
      {"D0 entry from D1", [](WDFDEVICE d) { return USB4EvtDeviceD0Entry(d, WdfPowerDeviceD1); }},
      {"D0 entry from D3Final", [](WDFDEVICE d) { return USB4EvtDeviceD0Entry(d, WdfPowerDeviceD3Final); }},
      {"started from D1", [](WDFDEVICE d) { return USB4WdfDeviceD0EntryPostInterruptsEnabled(d, WdfPowerDeviceD1); }},
      {"started from D2", [](WDFDEVICE d) { return USB4WdfDeviceD0EntryPostInterruptsEnabled(d, WdfPowerDeviceD2); }},
      {"exit to D3Final", [](WDFDEVICE d) { return USB4EvtDeviceD0Exit(d, WdfPowerDeviceD3Final); }},
      {"exit to hibernation", [](WDFDEVICE d) { return USB4EvtDeviceD0Exit(d, WdfPowerDevicePrepareForHibernation); }},
  };
  for (const OddCase& test : cases) {
    World world;
    world.Start();
    world.Quiet();
    StepLog log(world, {"write", "->"});
    world.InDevice([&](DEVICE_EXTENSION& context) {
      context.PoweredDown.Set(true);
      EXPECT_EQ(test.call(context.Device), 0) << test.what;
      EXPECT_TRUE(context.PoweredDown.IsSet()) << test.what;
      context.PoweredDown.Set(false);
    });
    EXPECT_EQ(log.Take(), "") << test.what;
  }
}

// Every read gives all ones from the n-th access on, writes go nowhere, and the removal comes when the system notices.
TEST(PowerOrder, TheDeviceGoesBeforeAnyOfItsRegisterAccesses) {
  class Remover final : public platform::TraceSink {
   public:
    Remover(World& world, std::uint64_t n) : world_(world), left_(n) { world_.simulation().AddSink(this); }
    ~Remover() override { world_.simulation().RemoveSink(this); }
    void OnTrace(const platform::TraceRecord& record) override {
      if (record.kind != platform::TraceKind::Register || left_ == 0 || --left_ != 0) return;
      fired = true;
      world_.At(0, [this] { world_.kernel().SurpriseRemoveAsync(1); });
    }
    bool fired = false;

   private:
    World& world_;
    std::uint64_t left_;
  };
  for (std::uint64_t n = 1;; n += n < 40 ? 1 : 17) {
    World world;
    Remover remover(world, n);
    world.Start();
    world.Sleep();
    world.Resume();
    world.Pass(20 * kSecond);
    world.Finish();
    if (testing::Test::HasFailure()) FAIL() << "access " << n;
    if (!remover.fired) {
      EXPECT_GT(n, 100u);
      break;
    }
  }
}

}  // namespace
