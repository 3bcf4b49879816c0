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
            "function off\n"
            "surprise removal\n"
            "pre-interrupts to 5\n"
            "D0 exit to 5\n"
            "release\n"
            "device cleanup\n");
  EXPECT_EQ(host.State(id), PnpState::SurpriseRemoved);
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
}

TEST_P(WdfPnp, AnIdleDeviceComesToD0BeforeItsRemovalUnlessThatSurprises) {
  script.onAdd = [](WDFDEVICE device) { AssignIdle(device); };
  ASSERT_EQ(Start(), 0);
  RunToIdle();
  host.Disable(id);
  EXPECT_EQ(Log(),
            "function D0\n"
            "D0 entry from 4\n"
            "post-interrupts from 4\n"
            "pre-interrupts to 5\n"
            "D0 exit to 5\n"
            "release\n"
            "device cleanup\n"
            "function D3hot\n");
  ASSERT_EQ(host.Enable(id), 0);
  RunToIdle();
  host.SurpriseRemove(id);
  EXPECT_EQ(Log(), "function off\nsurprise removal\nrelease\ndevice cleanup\n");
}

TEST_P(WdfPnp, VerbsOfOneDeviceNeverOverlap) {
  script.onPre = [](WDFDEVICE) { DelayMs(1000); };
  ASSERT_EQ(Start(), 0);
  Log();
  host.SystemSleepAsync(SystemPowerAction::Sleep);
  host.SystemResumeAsync();
  host.RemoveAsync(id);
  EXPECT_TRUE(host.Busy());
  Settle();
  EXPECT_EQ(host.State(id), PnpState::Removed);
  EXPECT_EQ(Log().find("pre-interrupts to"), 0u);
}

// Whichever task gets to run first: asked for in this order, the system is awake in the end.
TEST_P(WdfPnp, SleepAndResumeKeepTheOrderInWhichTheyWereAskedFor) {
  ASSERT_EQ(Start(), 0);
  Log();
  host.SystemSleepAsync(SystemPowerAction::Sleep);
  EXPECT_TRUE(host.SystemAsleep());
  host.SystemResumeAsync();
  EXPECT_FALSE(host.SystemAsleep());
  Settle();
  EXPECT_FALSE(host.SystemAsleep());
  EXPECT_EQ(Log(),
            "pre-interrupts to 4\nD0 exit to 4\nfunction D3hot\n"
            "function D0\nD0 entry from 4\npost-interrupts from 4\n");
}

TEST_P(WdfPnp, RemovalWaitsWhileTheSystemSleepsUnlessItSurprises) {
  for (const bool surprise : {false, true}) {
    ASSERT_EQ(surprise ? host.Enable(id) : Start(), 0);
    host.SystemSleep(SystemPowerAction::Sleep);
    Log();
    surprise ? host.SurpriseRemoveAsync(id) : host.RemoveAsync(id);
    simulation.RunFor(60 * kSecond);
    EXPECT_EQ(Log(), surprise ? "function off\nsurprise removal\nrelease\ndevice cleanup\n" : "");
    host.SystemResume();
    Settle();
    EXPECT_EQ(Log(), surprise ? ""
                              : "function D0\nD0 entry from 4\npost-interrupts from 4\n"
                                "pre-interrupts to 5\nD0 exit to 5\nrelease\ndevice cleanup\nfunction D3hot\n");
  }
}

// A resume that the next sleep follows at once may be over before the removal gets to run.
TEST_P(WdfPnp, RemovalThatMissesAResumeHappensAfterTheNext) {
  ASSERT_EQ(Start(), 0);
  host.SystemSleep(SystemPowerAction::Sleep);
  host.RemoveAsync(id);
  simulation.RunFor(kSecond);
  host.SystemResumeAsync();
  host.SystemSleepAsync(SystemPowerAction::Sleep);
  simulation.RunFor(60 * kSecond);
  if (host.State(id) == PnpState::Started) host.SystemResume();
  Settle();
  EXPECT_EQ(host.State(id), PnpState::Removed);
  EXPECT_FALSE(host.Busy());
}

TEST_P(WdfPnp, ADeviceThatDoesNotComeToD0ForItsRemovalIsRemoved) {
  script.onAdd = [](WDFDEVICE device) { AssignIdle(device); };
  ASSERT_EQ(Start(), 0);
  RunToIdle();
  script.entryFromD3 = STATUS_DEVICE_NOT_READY;
  host.Remove(id);
  EXPECT_EQ(Log(), "function D0\nD0 entry from 4\nrelease\ndevice cleanup\nfunction D3hot\n");
  EXPECT_EQ(host.State(id), PnpState::Removed);
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

}  // namespace
}  // namespace wdf_test
