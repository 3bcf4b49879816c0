// Message-signalled interrupts: service routine, DPC, work item, merging, and when messages are dropped.
#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

std::string* events = nullptr;
LONGLONG workMs = 0;
int requests = 1;     // of the work item, per service routine
std::string granted;  // what those requests returned

BOOLEAN Isr(WDFINTERRUPT interrupt, ULONG message) {
  *events += "isr " + std::to_string(message) + " at " + std::to_string(KeGetCurrentIrql()) + "\n";
  for (int i = 0; i < requests; ++i) granted += WdfInterruptQueueWorkItemForIsr(interrupt) ? "1" : "0";
  return TRUE;
}
VOID WorkItem(WDFINTERRUPT interrupt, WDFOBJECT device) {
  EXPECT_EQ(WdfInterruptGetDevice(interrupt), static_cast<WDFDEVICE>(device));
  WDF_INTERRUPT_INFO info;
  WDF_INTERRUPT_INFO_INIT(&info);
  WdfInterruptGetInfo(interrupt, &info);
  *events += "work " + std::to_string(info.MessageNumber) + " at " + std::to_string(KeGetCurrentIrql()) + "\n";
  LARGE_INTEGER interval;
  interval.QuadPart = -workMs * 10'000;
  if (workMs) KeDelayExecutionThread(KernelMode, FALSE, &interval);
}
BOOLEAN DpcIsr(WDFINTERRUPT interrupt, ULONG) {
  WdfInterruptQueueDpcForIsr(interrupt);
  return TRUE;
}
VOID Dpc(WDFINTERRUPT, WDFOBJECT) {
  *events += "dpc at " + std::to_string(KeGetCurrentIrql()) + "\n";
}
BOOLEAN LowersIrql(WDFINTERRUPT, ULONG) {
  KeLowerIrql(PASSIVE_LEVEL);
  return TRUE;
}

class WdfInterrupt : public WdfTest {
 protected:
  WdfInterrupt() {
    events = &script.log;
    workMs = 0;
    requests = 1;
    granted.clear();
    script.onPrepare = [this](WDFDEVICE device, WDFCMRESLIST raw, WDFCMRESLIST translated) {
      for (ULONG i = 0; i < WdfCmResourceListGetCount(translated); ++i) {
        PCM_PARTIAL_RESOURCE_DESCRIPTOR descriptor = WdfCmResourceListGetDescriptor(translated, i);
        if (descriptor->Type != CmResourceTypeInterrupt) continue;
        WDF_INTERRUPT_CONFIG interrupt;
        WDF_INTERRUPT_CONFIG_INIT(&interrupt, isr, dpc);
        interrupt.EvtInterruptWorkItem = dpc ? nullptr : WorkItem;
        interrupt.InterruptRaw = WdfCmResourceListGetDescriptor(raw, i);
        interrupt.InterruptTranslated = descriptor;
        WDFINTERRUPT created = nullptr;
        EXPECT_EQ(WdfInterruptCreate(device, &interrupt, WDF_NO_OBJECT_ATTRIBUTES, &created), createStatus);
      }
    };
  }
  void Message(unsigned message) {
    function.slot->SignalMessage(message);
    simulation.RunFor(1 * kMillisecond);
  }
  void Finish() {
    host.Remove(id);
    Unload();
  }

  PFN_WDF_INTERRUPT_ISR isr = Isr;
  PFN_WDF_INTERRUPT_DPC dpc = nullptr;
  NTSTATUS createStatus = STATUS_SUCCESS;
};
INSTANTIATE_WDF(WdfInterrupt);

TEST_P(WdfInterrupt, EachMessageReachesItsOwnInterrupt) {
  ASSERT_EQ(Start(), 0);
  Log();
  Message(1);
  EXPECT_EQ(Log(), "isr 1 at 5\nwork 1 at 0\n");
  Message(0);
  EXPECT_EQ(Log(), "isr 0 at 5\nwork 0 at 0\n");
  EXPECT_EQ(function.slot->DroppedMessages(), 0u);
  Finish();
}

TEST_P(WdfInterrupt, RequestsAreMergedWhileTheWorkItemIsQueued) {
  ASSERT_EQ(Start(), 0);
  Log();
  requests = 3;
  Message(0);
  EXPECT_EQ(granted, "100");
  EXPECT_EQ(Log(), "isr 0 at 5\nwork 0 at 0\n");
  Finish();
}

TEST_P(WdfInterrupt, AMessageWhileTheWorkItemRunsMakesItRunOnceMore) {
  ASSERT_EQ(Start(), 0);
  Log();
  workMs = 100;
  Message(0);
  Message(0);
  Message(0);
  EXPECT_EQ(granted, "110");  // the first runs, the second is queued, the third is merged with it
  simulation.RunFor(1 * kSecond);
  EXPECT_EQ(Log(), "isr 0 at 5\nwork 0 at 0\nisr 0 at 5\nisr 0 at 5\nwork 0 at 0\n");
  Finish();
}

TEST_P(WdfInterrupt, HandlersOfSeveralInterruptsMayBlockAtOnce) {
  ASSERT_EQ(Start(), 0);
  Log();
  workMs = 100;
  Message(0);
  Message(1);
  EXPECT_EQ(Log(), "isr 0 at 5\nwork 0 at 0\nisr 1 at 5\nwork 1 at 0\n");
  simulation.RunFor(1 * kSecond);
  Finish();
}

TEST_P(WdfInterrupt, ADpcRoutineRunsAtDispatchLevel) {
  isr = DpcIsr;
  dpc = Dpc;
  ASSERT_EQ(Start(), 0);
  Log();
  Message(0);
  EXPECT_EQ(Log(), "dpc at 2\n");
  Finish();
}

TEST_P(WdfInterrupt, MessagesAreDroppedWhileTheVectorIsDisconnected) {
  ASSERT_EQ(Start(), 0);
  Message(7);
  EXPECT_EQ(function.slot->DroppedMessages(), 1u);
  host.SystemSleep(SystemPowerAction::Sleep);
  Log();
  Message(0);
  EXPECT_EQ(Log(), "");
  EXPECT_EQ(function.slot->DroppedMessages(), 2u);
  host.SystemResume();
  Log();
  Message(0);
  EXPECT_EQ(Log(), "isr 0 at 5\nwork 0 at 0\n");
  Finish();
}

TEST_P(WdfInterrupt, DisconnectingWaitsForAHandlerBeforeD0Exit) {
  ASSERT_EQ(Start(), 0);
  workMs = 100;
  Message(0);
  Log();
  const Time begin = simulation.Now();
  host.SystemSleep(SystemPowerAction::Sleep);
  EXPECT_GE(simulation.Now() - begin, 90 * kMillisecond);
  host.SystemResume();
  Finish();
}

TEST_P(WdfInterrupt, InterruptsOfPreparedHardwareGoWithIt) {
  ASSERT_EQ(Start(), 0);
  EXPECT_EQ(host.ObjectsByType()["WDFINTERRUPT"], 2u);
  host.Disable(id);
  EXPECT_EQ(host.ObjectsByType()["WDFINTERRUPT"], 0u);
  ASSERT_EQ(host.Enable(id), 0);
  EXPECT_EQ(host.ObjectsByType()["WDFINTERRUPT"], 2u);
  Finish();
}

TEST_P(WdfInterrupt, CreationFailsAtItsFaultSite) {
  simulation.faults().FailFrom("WdfInterruptCreate", 1);
  createStatus = STATUS_INSUFFICIENT_RESOURCES;
  EXPECT_EQ(Start(), 0);
  Finish();
}

TEST_P(WdfInterrupt, AServiceRoutineThatLowersTheIrqlIsReported) {
  isr = LowersIrql;
  ASSERT_EQ(Start(), 0);
  Message(0);
  EXPECT_NE(Broken(), "");
}

TEST_P(WdfInterrupt, AMissingDescriptorIsNull) {
  config.resources.push_back({Resource::Kind::Missing, 0, 0, 0});
  config.resources.push_back({Resource::Kind::Other, 0, 0, 0});
  script.onPrepare = [](WDFDEVICE, WDFCMRESLIST raw, WDFCMRESLIST translated) {
    EXPECT_EQ(WdfCmResourceListGetCount(raw), 5u);
    EXPECT_EQ(WdfCmResourceListGetDescriptor(translated, 1)->u.Memory.Start.QuadPart, 0x90000000);
    EXPECT_EQ(WdfCmResourceListGetDescriptor(translated, 1)->u.Memory.Length, 0x1000u);
    EXPECT_EQ(WdfCmResourceListGetDescriptor(translated, 3), nullptr);
    EXPECT_EQ(WdfCmResourceListGetDescriptor(translated, 4)->Type, CmResourceTypeDevicePrivate);
    EXPECT_EQ(WdfCmResourceListGetDescriptor(translated, 5), nullptr);
  };
  ASSERT_EQ(Start(), 0);
  Finish();
}

}  // namespace
}  // namespace wdf_test
