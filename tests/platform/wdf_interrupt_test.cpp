// Message-signalled interrupts: service routine, DPC, work item, merging, and when messages are dropped.
#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

LONGLONG workMs = 0;
int requests = 1;     // of the work item, per service routine
std::string granted;  // what those requests returned

BOOLEAN Isr(WDFINTERRUPT interrupt, ULONG message) {
  Write("isr " + std::to_string(message) + " at " + std::to_string(KeGetCurrentIrql()));
  for (int i = 0; i < requests; ++i) granted += WdfInterruptQueueWorkItemForIsr(interrupt) ? "1" : "0";
  return TRUE;
}
VOID WorkItem(WDFINTERRUPT interrupt, WDFOBJECT device) {
  EXPECT_EQ(WdfInterruptGetDevice(interrupt), static_cast<WDFDEVICE>(device));
  WDF_INTERRUPT_INFO info;
  WDF_INTERRUPT_INFO_INIT(&info);
  WdfInterruptGetInfo(interrupt, &info);
  Write("work " + std::to_string(info.MessageNumber) + " at " + std::to_string(KeGetCurrentIrql()));
  if (workMs) DelayMs(workMs);
}
BOOLEAN DpcIsr(WDFINTERRUPT interrupt, ULONG) {
  WdfInterruptQueueDpcForIsr(interrupt);
  return TRUE;
}
VOID Dpc(WDFINTERRUPT, WDFOBJECT) {
  Write("dpc at " + std::to_string(KeGetCurrentIrql()));
}
BOOLEAN LowersIrql(WDFINTERRUPT, ULONG) {
  KeLowerIrql(PASSIVE_LEVEL);
  return TRUE;
}

class WdfInterrupt : public WdfTest {
 protected:
  WdfInterrupt() {
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
        EXPECT_EQ(WdfInterruptCreate(device, &interrupt, WDF_NO_OBJECT_ATTRIBUTES, &created), 0);
      }
    };
  }
  void Message(unsigned message) {
    function.slot->SignalMessage(message);
    simulation.RunFor(1 * kMillisecond);
  }

  PFN_WDF_INTERRUPT_ISR isr = Isr;
  PFN_WDF_INTERRUPT_DPC dpc = nullptr;
};
INSTANTIATE_WDF(WdfInterrupt);

TEST_P(WdfInterrupt, RequestsAreMergedWhileTheWorkItemIsQueued) {
  StartQuietly();
  requests = 3;
  Message(0);
  EXPECT_EQ(granted, "100");
  EXPECT_EQ(Log(), "isr 0 at 5\nwork 0 at 0\n");
}

TEST_P(WdfInterrupt, AMessageWhileTheWorkItemRunsMakesItRunOnceMore) {
  StartQuietly();
  workMs = 100;
  Message(0);
  Message(0);
  Message(0);
  EXPECT_EQ(granted, "110");  // the first runs, the second is queued, the third is merged with it
  simulation.RunFor(1 * kSecond);
  EXPECT_EQ(Log(), "isr 0 at 5\nwork 0 at 0\nisr 0 at 5\nisr 0 at 5\nwork 0 at 0\n");
}

TEST_P(WdfInterrupt, HandlersOfSeveralInterruptsMayBlockAtOnce) {
  StartQuietly();
  workMs = 100;
  Message(0);
  Message(1);
  EXPECT_EQ(Log(), "isr 0 at 5\nwork 0 at 0\nisr 1 at 5\nwork 1 at 0\n");
  simulation.RunFor(1 * kSecond);
}

TEST_P(WdfInterrupt, ADpcRoutineRunsAtDispatchLevel) {
  isr = DpcIsr;
  dpc = Dpc;
  StartQuietly();
  Message(0);
  EXPECT_EQ(Log(), "dpc at 2\n");
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
}

TEST_P(WdfInterrupt, AServiceRoutineThatLowersTheIrqlIsReported) {
  isr = LowersIrql;
  ASSERT_EQ(Start(), 0);
  Message(0);
  EXPECT_EQ(Broken(), "callback-irql in ");
}

}  // namespace
}  // namespace wdf_test
