// The order of PnP callbacks, as the framework documents it: start, each failed start, orderly and surprise removal.
#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

class WdfPnp : public WdfTest {};
INSTANTIATE_WDF(WdfPnp);

TEST_P(WdfPnp, StartsAndIsRemovedInTheDocumentedOrder) {
  EXPECT_EQ(Start(), 0);
  EXPECT_EQ(Log(),
            "function D0\n"
            "add\n"
            "prepare\n"
            "D0 entry from 5\n"
            "post-interrupts from 5\n");
  EXPECT_EQ(host.State(id), PnpState::Started);
  EXPECT_EQ(host.Power(id), DevicePower::D0);
  host.Remove(id);
  EXPECT_EQ(Log(),
            "pre-interrupts to 5\n"
            "D0 exit to 5\n"
            "release\n"
            "device cleanup\n"
            "function D3hot\n");
  EXPECT_EQ(host.State(id), PnpState::Removed);
  Unload();
  EXPECT_EQ(Log(), "unload\ndriver cleanup\n");
  EXPECT_EQ(host.LiveObjects(), 0u);
  EXPECT_FALSE(host.DriverLoaded());
}

TEST_P(WdfPnp, SurpriseRemovalTellsTheDriverFirst) {
  ASSERT_EQ(Start(), 0);
  Log();
  host.SurpriseRemove(id);
  EXPECT_EQ(Log(),
            "surprise removal\n"
            "pre-interrupts to 5\n"
            "D0 exit to 5\n"
            "release\n"
            "device cleanup\n");
  EXPECT_EQ(host.State(id), PnpState::SurpriseRemoved);
  Unload();
}

struct FailedStart {
  const char* name;
  NTSTATUS Script::*status;
  const char* log;
};

// What each failing step gets called after it, and nothing else.
TEST_P(WdfPnp, FailedStartsUndoWhatHasBeenDone) {
  const FailedStart cases[] = {
      {"add", &Script::add, "function D0\nadd\ndevice cleanup\nfunction D3hot\n"},
      {"prepare hardware", &Script::prepare, "function D0\nadd\nprepare\nrelease\ndevice cleanup\nfunction D3hot\n"},
      {"D0 entry", &Script::entry,
       "function D0\nadd\nprepare\nD0 entry from 5\nrelease\ndevice cleanup\nfunction D3hot\n"},
      {"post-interrupts-enabled", &Script::post,
       "function D0\nadd\nprepare\nD0 entry from 5\npost-interrupts from 5\nD0 exit to 5\nrelease\n"
       "device cleanup\nfunction D3hot\n"},
  };
  ASSERT_EQ(Start(), 0);
  host.Remove(id);
  for (const FailedStart& failing : cases) {
    SCOPED_TRACE(failing.name);
    Log();
    script.*failing.status = STATUS_DEVICE_NOT_READY;
    EXPECT_EQ(host.Enable(id), STATUS_DEVICE_NOT_READY);
    EXPECT_EQ(Log(), failing.log);
    EXPECT_EQ(host.State(id), PnpState::Failed);
    script.*failing.status = STATUS_SUCCESS;
  }
  EXPECT_EQ(host.Enable(id), 0);
  host.Remove(id);
  Unload();
}

TEST_P(WdfPnp, DisabledDeviceStartsAnewWithFreshContext) {
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) { GetContext(device)->Marks = 7; });
  host.Disable(id);
  EXPECT_EQ(host.FrameworkDevice(id), nullptr);
  ASSERT_EQ(host.Enable(id), 0);
  InDriver([](WDFDEVICE device) { EXPECT_EQ(GetContext(device)->Marks, 0u); });
  host.Remove(id);
  Unload();
}

TEST_P(WdfPnp, RemovalBringsAnIdleDeviceToD0First) {
  script.onAdd = [](WDFDEVICE device) {
    WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS idle;
    WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS_INIT(&idle, IdleCanWakeFromS0);
    EXPECT_EQ(WdfDeviceAssignS0IdleSettings(device, &idle), 0);
  };
  ASSERT_EQ(Start(), 0);
  simulation.RunFor(6 * kSecond);
  ASSERT_EQ(host.Power(id), DevicePower::D3);
  Log();
  host.Remove(id);
  EXPECT_EQ(Log(),
            "function D0\n"
            "D0 entry from 4\n"
            "post-interrupts from 4\n"
            "pre-interrupts to 5\n"
            "D0 exit to 5\n"
            "release\n"
            "device cleanup\n"
            "function D3hot\n");
  Unload();
}

TEST_P(WdfPnp, SurpriseRemovalOfAnIdleDeviceHasNoWayThroughD0) {
  script.onAdd = [](WDFDEVICE device) {
    WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS idle;
    WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS_INIT(&idle, IdleCanWakeFromS0);
    EXPECT_EQ(WdfDeviceAssignS0IdleSettings(device, &idle), 0);
  };
  ASSERT_EQ(Start(), 0);
  simulation.RunFor(6 * kSecond);
  Log();
  host.SurpriseRemove(id);
  EXPECT_EQ(Log(), "surprise removal\nrelease\ndevice cleanup\n");
  Unload();
}

TEST_P(WdfPnp, VerbsOfOneDeviceNeverOverlap) {
  script.onPre = [](WDFDEVICE) {
    LARGE_INTEGER second;
    second.QuadPart = -10'000'000;
    KeDelayExecutionThread(KernelMode, FALSE, &second);
  };
  ASSERT_EQ(Start(), 0);
  Log();
  host.SystemSleepAsync(SystemPowerAction::Sleep);
  host.SystemResumeAsync();
  host.RemoveAsync(id);
  EXPECT_TRUE(host.Busy());
  EXPECT_EQ(simulation.RunUntil([&] { return !host.Busy(); }), Outcome::Done);
  EXPECT_EQ(host.State(id), PnpState::Removed);
  EXPECT_EQ(Log().find("pre-interrupts to"), 0u);
  Unload();
}

TEST_P(WdfPnp, TwoDevicesOfOneDriverAreIndependent) {
  ASSERT_EQ(Start(), 0);
  PlainFunction second(script.log);
  DeviceConfig secondConfig = config;
  secondConfig.model = &second;
  secondConfig.resources[1].start = 0xA0000000;
  DeviceId other = 0;
  ASSERT_EQ(host.AddAndStart(secondConfig, &other), 0);
  EXPECT_NE(host.FrameworkDevice(id), host.FrameworkDevice(other));
  host.SurpriseRemove(id);
  EXPECT_EQ(host.State(other), PnpState::Started);
  host.SystemSleep(SystemPowerAction::Sleep);
  EXPECT_EQ(host.Power(other), DevicePower::D3);
  host.SystemResume();
  host.Remove(other);
  Unload();
  EXPECT_EQ(host.LiveObjects(), 0u);
}

TEST_P(WdfPnp, TwoHostsShareTheClockAndNothingElse) {
  HostKernelOptions options;
  options.name = "second";
  HostKernel second(simulation, options);
  PlainFunction function2(script.log);
  DeviceConfig config2 = config;
  config2.model = &function2;
  DeviceId id2 = 0;
  ASSERT_EQ(Start(), 0);
  ASSERT_EQ(second.LoadDriver(&DriverEntry), 0);
  ASSERT_EQ(second.AddAndStart(config2, &id2), 0);
  WDFDRIVER drivers[2] = {};
  InDriver([&](WDFDEVICE) { drivers[0] = WdfGetDriver(); });
  simulation.RunTask(&second, "test", [&] { drivers[1] = WdfGetDriver(); });
  EXPECT_NE(drivers[0], drivers[1]);
  host.SystemSleep(SystemPowerAction::Sleep);
  EXPECT_EQ(second.Power(id2), DevicePower::D0);
  host.SystemResume();
  host.Remove(id);
  Unload();
  EXPECT_EQ(second.State(id2), PnpState::Started);
  second.Remove(id2);
  second.UnloadDriver();
}

TEST_P(WdfPnp, AHandleOfAnotherHostIsReported) {
  HostKernelOptions options;
  options.name = "second";
  HostKernel second(simulation, options);
  ASSERT_EQ(Start(), 0);
  void* handle = host.FrameworkDevice(id);
  simulation.RunTask(&second, "test", [&] { WdfDeviceResumeIdle(static_cast<WDFDEVICE>(handle)); });
  EXPECT_EQ(Broken(), "handle-stale in WdfDeviceResumeIdle");
}

TEST_P(WdfPnp, UnloadWithADeviceIsRefused) {
  ASSERT_EQ(Start(), 0);
  Unload();
  EXPECT_EQ(Broken(), "invalid-argument in driver unload");
}

}  // namespace
}  // namespace wdf_test
