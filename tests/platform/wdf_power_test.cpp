// Runtime idle, wake, power references, system sleep: when a device leaves and enters D0 and what its driver is told.
#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

constexpr NTSTATUS kPowerStateInvalid = static_cast<NTSTATUS>(0xC00002D3);

class WdfPower : public WdfTest {
 protected:
  void StartIdling(ULONG timeoutMs) {
    script.onAdd = [timeoutMs](WDFDEVICE device) {
      AssignIdle(device, timeoutMs);
      AssignWake(device);
    };
    ASSERT_EQ(Start(), 0);
    Log();
  }
};
INSTANTIATE_WDF(WdfPower);

// A time-out of 0 is one of 5 s; settings that are assigned while a time-out runs replace it.
TEST_P(WdfPower, IdlesAfterTheAssignedTimeOutAndNotBefore) {
  const struct {
    ULONG timeoutMs;
    Time changed;  // to 1000 ms
    Time due;
  } cases[] = {{15000, 0, 15 * kSecond}, {0, 0, 5 * kSecond}, {15000, 2 * kSecond, 1 * kSecond}};
  for (const auto& test : cases) {
    script.onAdd = [test](WDFDEVICE device) { AssignIdle(device, test.timeoutMs); };
    ASSERT_EQ(host.DriverLoaded() ? host.Enable(id) : Start(), 0);
    Log();
    simulation.RunFor(test.changed);
    if (test.changed) InDriver([](WDFDEVICE device) { AssignIdle(device, 1000); });
    simulation.RunFor(test.due - 100 * kMillisecond);
    EXPECT_EQ(Log(), "");
    simulation.RunFor(200 * kMillisecond);
    EXPECT_EQ(Log(), "pre-interrupts to 4\nD0 exit to 4\nfunction D3hot\n");
    host.Disable(id);
  }
}

TEST_P(WdfPower, AReferenceKeepsTheDeviceAwakeAndItsReturnStartsTheTimeOutAnew) {
  StartIdling(1000);
  InDriver([](WDFDEVICE device) { EXPECT_EQ(WdfDeviceStopIdle(device, FALSE), 0); });
  simulation.RunFor(10 * kSecond);
  EXPECT_EQ(host.Power(id), DevicePower::D0);
  EXPECT_EQ(host.References(id).held, 1);
  InDriver([](WDFDEVICE device) { WdfDeviceResumeIdle(device); });
  simulation.RunFor(900 * kMillisecond);
  EXPECT_EQ(host.Power(id), DevicePower::D0);
  simulation.RunFor(200 * kMillisecond);
  EXPECT_EQ(host.Power(id), DevicePower::D3);
}

TEST_P(WdfPower, HardwareWakesAnIdleDevice) {
  StartIdling(1000);
  RunToIdle();
  function.slot->SignalWake();
  simulation.RunFor(1 * kMillisecond);
  EXPECT_EQ(Log(), "function D0\nD0 entry from 4\npost-interrupts from 4\n");
  simulation.RunFor(1100 * kMillisecond);
  EXPECT_EQ(Log(), "pre-interrupts to 4\nD0 exit to 4\nfunction D3hot\n");
}

TEST_P(WdfPower, WakeDuringPowerDownBringsTheDeviceBack) {
  StartIdling(1000);
  script.onPre = [this](WDFDEVICE) { function.slot->SignalWake(); };
  simulation.RunFor(1100 * kMillisecond);
  EXPECT_EQ(Log(),
            "pre-interrupts to 4\nD0 exit to 4\nfunction D3hot\n"
            "function D0\nD0 entry from 4\npost-interrupts from 4\n");
}

TEST_P(WdfPower, StopIdleInD3WakesTheDeviceAndWaitsForItIfAsked) {
  for (const bool wait : {true, false}) {
    if (wait) StartIdling(1000);
    RunToIdle();
    InDriver([&](WDFDEVICE device) { EXPECT_EQ(WdfDeviceStopIdle(device, wait), wait ? 0 : STATUS_PENDING); });
    if (!wait) simulation.RunFor(10 * kSecond);
    EXPECT_EQ(Log(), "function D0\nD0 entry from 4\npost-interrupts from 4\n");
    InDriver([](WDFDEVICE device) { WdfDeviceResumeIdle(device); });
  }
}

TEST_P(WdfPower, StopIdleWithWaitFailsWhileAPowerDownIsInProgress) {
  StartIdling(1000);
  script.onPre = [](WDFDEVICE) { DelayMs(500); };
  host.SystemSleepAsync(SystemPowerAction::Sleep);
  simulation.RunFor(100 * kMillisecond);
  InDriver([](WDFDEVICE device) { EXPECT_EQ(WdfDeviceStopIdle(device, TRUE), kPowerStateInvalid); });
  EXPECT_EQ(host.References(id).held, 0);
  Settle();
  host.SystemResume();
}

TEST_P(WdfPower, AFailedWayToD0FailsWhoWaitsForIt) {
  StartIdling(1000);
  RunToIdle();
  // The device comes up only to fail; who waits for it must not wait for ever.
  script.entryFromD3 = STATUS_DEVICE_NOT_READY;
  InDriver([](WDFDEVICE device) { EXPECT_EQ(WdfDeviceStopIdle(device, TRUE), kPowerStateInvalid); });
  Settle();
  EXPECT_EQ(Log(), "function D0\nD0 entry from 4\nrelease\ndevice cleanup\nfunction D3hot\n");
  EXPECT_EQ(host.State(id), PnpState::Failed);
}

TEST_P(WdfPower, SystemSleepAndResumeTellTheAction) {
  POWER_ACTION seen = PowerActionNone, resumed = PowerActionShutdown;
  script.onPre = [&](WDFDEVICE device) { seen = WdfDeviceGetSystemPowerAction(device); };
  script.onEntry = [&](WDFDEVICE device) { resumed = WdfDeviceGetSystemPowerAction(device); };
  StartIdling(15000);
  const struct {
    SystemPowerAction action;
    POWER_ACTION seen;
    const char* log;
  } cases[] = {
      {SystemPowerAction::Sleep, PowerActionSleep, "pre-interrupts to 4\nD0 exit to 4\nfunction D3hot\n"},
      {SystemPowerAction::Hibernate, PowerActionHibernate, "pre-interrupts to 4\nD0 exit to 4\nfunction off\n"},
  };
  for (const auto& sleep : cases) {
    host.SystemSleep(sleep.action);
    EXPECT_EQ(Log(), sleep.log);
    EXPECT_EQ(seen, sleep.seen);
    simulation.RunFor(60 * kSecond);
    host.SystemResume();
    EXPECT_EQ(Log(), "function D0\nD0 entry from 4\npost-interrupts from 4\n");
    EXPECT_EQ(resumed, PowerActionNone);
  }
  simulation.RunFor(15'100 * kMillisecond);
  EXPECT_EQ(seen, PowerActionNone);
  EXPECT_EQ(host.Power(id), DevicePower::D3);
  Finish();
}

TEST_P(WdfPower, HibernationTakesPowerFromAnIdleDevice) {
  StartIdling(1000);
  RunToIdle();
  host.SystemSleep(SystemPowerAction::Hibernate);
  EXPECT_EQ(Log(), "function off\n");
  EXPECT_EQ(host.Power(id), DevicePower::Off);
  host.SystemResume();
  EXPECT_EQ(Log(), "function D0\nD0 entry from 4\npost-interrupts from 4\n");
}

TEST_P(WdfPower, OnlyArmedHardwareWakesTheSystem) {
  for (const bool armed : {false, true}) {
    script.onAdd = [armed](WDFDEVICE device) {
      if (armed) AssignWake(device);
    };
    ASSERT_EQ(armed ? host.Enable(id) : Start(), 0);
    host.SystemSleep(SystemPowerAction::Sleep);
    Log();
    function.slot->SignalWake();
    simulation.RunFor(1 * kSecond);
    EXPECT_EQ(Log(), armed ? "function D0\nD0 entry from 4\npost-interrupts from 4\n" : "");
    host.SystemResume();
    host.Disable(id);
  }
}

TEST_P(WdfPower, AFailingPostInterruptsCallbackAtResumeRemovesTheDevice) {
  StartIdling(15000);
  host.SystemSleep(SystemPowerAction::Sleep);
  Log();
  script.post = STATUS_DEVICE_NOT_READY;
  host.SystemResume();
  EXPECT_EQ(Log(),
            "function D0\nD0 entry from 4\npost-interrupts from 4\nD0 exit to 5\nrelease\ndevice cleanup\n"
            "function D3hot\n");
  EXPECT_EQ(host.State(id), PnpState::Failed);
}

TEST_P(WdfPower, AReferenceLeftAtRemovalIsNoViolation) {
  WithDevice([](WDFDEVICE device) { EXPECT_EQ(WdfDeviceStopIdle(device, FALSE), 0); });
}

DEVICE_BREAKS(ReferenceReturnedButNotTaken, PowerReferenceNotTaken, "WdfDeviceResumeIdle") {
  WdfDeviceResumeIdle(device);
}

DRIVER_BREAKS(WaitForD0InAPowerCallback, PowerReferenceDeadlock, "WdfDeviceStopIdle") {
  rig.script.onPost = [](WDFDEVICE device) { (void)WdfDeviceStopIdle(device, TRUE); };
  (void)rig.Start();
}

}  // namespace
}  // namespace wdf_test
