// Runtime idle, wake, power references, system sleep: when a device leaves and enters D0 and what its driver is told.
#include "tests/platform/rule_tests.h"
#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

constexpr NTSTATUS kPowerStateInvalid = static_cast<NTSTATUS>(0xC00002D3);

void AssignIdle(WDFDEVICE device, ULONG timeoutMs) {
  WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS idle;
  WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS_INIT(&idle, IdleCanWakeFromS0);
  idle.IdleTimeout = timeoutMs;
  EXPECT_EQ(WdfDeviceAssignS0IdleSettings(device, &idle), 0);
}

void Delay(LONGLONG ms) {
  LARGE_INTEGER interval;
  interval.QuadPart = -ms * 10'000;
  KeDelayExecutionThread(KernelMode, FALSE, &interval);
}

class WdfPower : public WdfTest {
 protected:
  void StartIdling(ULONG timeoutMs) {
    script.onAdd = [timeoutMs](WDFDEVICE device) {
      AssignIdle(device, timeoutMs);
      WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS wake;
      WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS_INIT(&wake);
      EXPECT_EQ(WdfDeviceAssignSxWakeSettings(device, &wake), 0);
    };
    ASSERT_EQ(Start(), 0);
    Log();
  }
  void RunToIdle() {
    ASSERT_EQ(simulation.RunUntil([&] { return host.Power(id) == DevicePower::D3; }, simulation.Now() + 60 * kSecond),
              Outcome::Done);
    Log();
  }
  void Finish() {
    host.Remove(id);
    Unload();
  }
};
INSTANTIATE_WDF(WdfPower);

TEST_P(WdfPower, IdlesAfterTheAssignedTimeOutAndNotBefore) {
  StartIdling(15000);
  simulation.RunFor(14'900 * kMillisecond);
  EXPECT_EQ(Log(), "");
  simulation.RunFor(200 * kMillisecond);
  EXPECT_EQ(Log(), "pre-interrupts to 4\nD0 exit to 4\nfunction D3hot\n");
  EXPECT_EQ(host.Power(id), DevicePower::D3);
  Finish();
}

TEST_P(WdfPower, TimeOutOfZeroIsFiveSeconds) {
  StartIdling(0);
  simulation.RunFor(4'900 * kMillisecond);
  EXPECT_EQ(host.Power(id), DevicePower::D0);
  simulation.RunFor(200 * kMillisecond);
  EXPECT_EQ(host.Power(id), DevicePower::D3);
  Finish();
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
  Finish();
}

TEST_P(WdfPower, NewSettingsReplaceARunningTimeOut) {
  StartIdling(15000);
  simulation.RunFor(10 * kSecond);
  InDriver([](WDFDEVICE device) { AssignIdle(device, 1000); });
  simulation.RunFor(1100 * kMillisecond);
  EXPECT_EQ(host.Power(id), DevicePower::D3);
  Finish();
}

TEST_P(WdfPower, HardwareWakesAnIdleDevice) {
  StartIdling(1000);
  RunToIdle();
  function.slot->SignalWake();
  simulation.RunFor(1 * kMillisecond);
  EXPECT_EQ(Log(), "function D0\nD0 entry from 4\npost-interrupts from 4\n");
  simulation.RunFor(1100 * kMillisecond);
  EXPECT_EQ(Log(), "pre-interrupts to 4\nD0 exit to 4\nfunction D3hot\n");
  Finish();
}

TEST_P(WdfPower, WakeDuringPowerDownBringsTheDeviceBack) {
  StartIdling(1000);
  script.onPre = [this](WDFDEVICE) { function.slot->SignalWake(); };
  simulation.RunFor(1100 * kMillisecond);
  EXPECT_EQ(Log(),
            "pre-interrupts to 4\nD0 exit to 4\nfunction D3hot\n"
            "function D0\nD0 entry from 4\npost-interrupts from 4\n");
  Finish();
}

TEST_P(WdfPower, StopIdleWithWaitReturnsInD0) {
  StartIdling(1000);
  RunToIdle();
  InDriver([this](WDFDEVICE device) {
    EXPECT_EQ(WdfDeviceStopIdle(device, TRUE), 0);
    EXPECT_EQ(Log(), "function D0\nD0 entry from 4\npost-interrupts from 4\n");
    WdfDeviceResumeIdle(device);
  });
  Finish();
}

TEST_P(WdfPower, StopIdleWithoutWaitIsPendingInD3AndWakesTheDevice) {
  StartIdling(1000);
  RunToIdle();
  InDriver([](WDFDEVICE device) { EXPECT_EQ(WdfDeviceStopIdle(device, FALSE), STATUS_PENDING); });
  simulation.RunFor(10 * kSecond);
  EXPECT_EQ(host.Power(id), DevicePower::D0);
  InDriver([](WDFDEVICE device) { WdfDeviceResumeIdle(device); });
  Finish();
}

TEST_P(WdfPower, StopIdleWithWaitFailsWhileAPowerDownIsInProgress) {
  StartIdling(1000);
  script.onPre = [](WDFDEVICE) { Delay(500); };
  host.SystemSleepAsync(SystemPowerAction::Sleep);
  simulation.RunFor(100 * kMillisecond);
  InDriver([](WDFDEVICE device) { EXPECT_EQ(WdfDeviceStopIdle(device, TRUE), kPowerStateInvalid); });
  EXPECT_EQ(host.References(id).held, 0);
  simulation.RunUntil([&] { return !host.Busy(); });
  host.SystemResume();
  Finish();
}

TEST_P(WdfPower, AFailedWayToD0FailsWhoWaitsForIt) {
  StartIdling(1000);
  RunToIdle();
  // The device comes up only to fail; who waits for it must not wait for ever.
  script.entryFromD3 = STATUS_DEVICE_NOT_READY;
  InDriver([](WDFDEVICE device) { EXPECT_EQ(WdfDeviceStopIdle(device, TRUE), kPowerStateInvalid); });
  simulation.RunUntil([&] { return !host.Busy(); });
  EXPECT_EQ(Log(), "function D0\nD0 entry from 4\nrelease\ndevice cleanup\nfunction D3hot\n");
  EXPECT_EQ(host.State(id), PnpState::Failed);
  Unload();
}

struct SleepCase {
  SystemPowerAction action;
  POWER_ACTION seen;
  const char* log;
};

TEST_P(WdfPower, SystemSleepAndResumeTellTheAction) {
  POWER_ACTION seen = PowerActionNone, resumed = PowerActionShutdown;
  script.onPre = [&](WDFDEVICE device) { seen = WdfDeviceGetSystemPowerAction(device); };
  script.onEntry = [&](WDFDEVICE device) { resumed = WdfDeviceGetSystemPowerAction(device); };
  StartIdling(15000);
  const SleepCase cases[] = {
      {SystemPowerAction::Sleep, PowerActionSleep, "pre-interrupts to 4\nD0 exit to 4\nfunction D3hot\n"},
      {SystemPowerAction::Hibernate, PowerActionHibernate, "pre-interrupts to 4\nD0 exit to 4\nfunction off\n"},
  };
  for (const SleepCase& sleep : cases) {
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
  Finish();
}

TEST_P(WdfPower, ArmedHardwareWakesTheSystem) {
  StartIdling(15000);
  host.SystemSleep(SystemPowerAction::Sleep);
  Log();
  function.slot->SignalWake();
  simulation.RunFor(1 * kMillisecond);
  EXPECT_EQ(Log(), "function D0\nD0 entry from 4\npost-interrupts from 4\n");
  Finish();
}

TEST_P(WdfPower, UnarmedHardwareDoesNotWakeTheSystem) {
  ASSERT_EQ(Start(), 0);
  host.SystemSleep(SystemPowerAction::Sleep);
  Log();
  function.slot->SignalWake();
  simulation.RunFor(1 * kSecond);
  EXPECT_EQ(Log(), "");
  host.SystemResume();
  Finish();
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
  Unload();
}

TEST_P(WdfPower, ReturningAReferenceNotTakenIsReported) {
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) { WdfDeviceResumeIdle(device); });
  EXPECT_EQ(Broken(), "power-reference-not-taken in WdfDeviceResumeIdle");
}

TEST_P(WdfPower, WaitingForD0InAPowerCallbackIsReported) {
  script.onPost = [](WDFDEVICE device) { (void)WdfDeviceStopIdle(device, TRUE); };
  Start();
  EXPECT_EQ(Broken(), "power-reference-deadlock in WdfDeviceStopIdle");
}

TEST_P(WdfPower, AReferenceLeftAtRemovalIsNoViolation) {
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) { EXPECT_EQ(WdfDeviceStopIdle(device, FALSE), 0); });
  Finish();
  EXPECT_EQ(Broken(), "");
}

TEST_P(WdfPower, StopIdleFailsAtItsFaultSiteWithoutTakingAReference) {
  ASSERT_EQ(Start(), 0);
  simulation.faults().FailNth("WdfDeviceStopIdle", 1);
  InDriver([](WDFDEVICE device) { EXPECT_EQ(WdfDeviceStopIdle(device, FALSE), kPowerStateInvalid); });
  EXPECT_EQ(host.References(id).held, 0);
  Finish();
}

BROKEN_BY_TEST(ReturningAReferenceNotTakenIsReported, PowerReferenceNotTaken, "WdfDeviceResumeIdle")
BROKEN_BY_TEST(WaitingForD0InAPowerCallbackIsReported, PowerReferenceDeadlock, "WdfDeviceStopIdle")

}  // namespace
}  // namespace wdf_test
