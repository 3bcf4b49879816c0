// Work items: merged while queued, run once more when enqueued while running, never two at a time, each on its own
// task.
#include "tests/platform/rule_tests.h"
#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

struct Work {
  ULONG Runs, Running, MostAtOnce;
  LONGLONG DelayMs;
  void (*Body)(WDFWORKITEM item);
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(Work, GetWork)

void Delay(LONGLONG ms) {
  LARGE_INTEGER interval;
  interval.QuadPart = -ms * 10'000;
  if (ms) KeDelayExecutionThread(KernelMode, FALSE, &interval);
}

VOID Run(WDFWORKITEM item) {
  Work* work = GetWork(item);
  ++work->Runs;
  ++work->Running;
  if (work->Running > work->MostAtOnce) work->MostAtOnce = work->Running;
  Delay(work->DelayMs);
  --work->Running;
  if (work->Body) work->Body(item);
}

WDFWORKITEM MakeItem(WDFDEVICE device, LONGLONG delayMs, void (*body)(WDFWORKITEM) = nullptr) {
  WDF_WORKITEM_CONFIG config;
  WDF_WORKITEM_CONFIG_INIT(&config, Run);
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, Work);
  attributes.ParentObject = device;
  WDFWORKITEM item = nullptr;
  EXPECT_EQ(WdfWorkItemCreate(&config, &attributes, &item), 0);
  EXPECT_EQ(WdfWorkItemGetParentObject(item), static_cast<WDFOBJECT>(device));
  GetWork(item)->DelayMs = delayMs;
  GetWork(item)->Body = body;
  return item;
}

class WdfWork : public WdfTest {
 protected:
  void Finish() {
    host.Remove(id);
    Unload();
  }
};
INSTANTIATE_WDF(WdfWork);

TEST_P(WdfWork, EnqueuedWhileRunningRunsOnceMore) {
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) {
    WDFWORKITEM item = MakeItem(device, 100);
    WdfWorkItemEnqueue(item);
    Delay(50);
    for (int i = 0; i < 5; ++i) WdfWorkItemEnqueue(item);
    WdfWorkItemFlush(item);
    EXPECT_EQ(GetWork(item)->Runs, 2u);
    EXPECT_EQ(GetWork(item)->MostAtOnce, 1u);
  });
  Finish();
}

TEST_P(WdfWork, FlushWaitsForTheRunAndReturnsAtOnceWhenIdle) {
  ASSERT_EQ(Start(), 0);
  InDriver([this](WDFDEVICE device) {
    WDFWORKITEM item = MakeItem(device, 300);
    WdfWorkItemFlush(item);
    WdfWorkItemEnqueue(item);
    WdfWorkItemFlush(item);
    EXPECT_EQ(GetWork(item)->Runs, 1u);
    EXPECT_EQ(GetWork(item)->Running, 0u);
    EXPECT_GE(simulation.Now(), 300 * kMillisecond);
  });
  Finish();
}

TEST_P(WdfWork, AllItemsMayBlockAtTheSameTime) {
  ASSERT_EQ(Start(), 0);
  InDriver([this](WDFDEVICE device) {
    std::vector<WDFWORKITEM> items;
    for (int i = 0; i < 20; ++i) items.push_back(MakeItem(device, 1000));
    const Time begin = simulation.Now();
    for (WDFWORKITEM item : items) WdfWorkItemEnqueue(item);
    for (WDFWORKITEM item : items) WdfWorkItemFlush(item);
    EXPECT_LT(simulation.Now() - begin, 1100 * kMillisecond);
  });
  Finish();
}

TEST_P(WdfWork, AnItemMayDeleteItselfInItsCallback) {
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) {
    WdfWorkItemEnqueue(MakeItem(device, 10, [](WDFWORKITEM item) { WdfObjectDelete(item); }));
    Delay(100);
  });
  EXPECT_EQ(host.ObjectsByType().count("WDFWORKITEM"), 0u);
  Finish();
}

TEST_P(WdfWork, DeletingARunningItemIsReported) {
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) {
    WDFWORKITEM item = MakeItem(device, 100);
    WdfWorkItemEnqueue(item);
    Delay(50);
    WdfObjectDelete(item);
  });
  EXPECT_EQ(Broken(), "work-item-freed-running in WdfObjectDelete");
}

TEST_P(WdfWork, SelfFlushIsReported) {
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) {
    WdfWorkItemEnqueue(MakeItem(device, 0, [](WDFWORKITEM item) { WdfWorkItemFlush(item); }));
    Delay(50);
  });
  EXPECT_EQ(Broken(), "work-item-self-flush in WdfWorkItemFlush");
}

TEST_P(WdfWork, SelfFlushThatIsWaivedReturns) {
  simulation.waivers().push_back({Rule::WorkItemSelfFlush, "WdfWorkItemFlush", 0, "test"});
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) {
    WDFWORKITEM item = MakeItem(device, 0, [](WDFWORKITEM self) { WdfWorkItemFlush(self); });
    WdfWorkItemEnqueue(item);
    WdfWorkItemFlush(item);
    EXPECT_EQ(GetWork(item)->Runs, 1u);
  });
  EXPECT_EQ(simulation.waivers()[0].hits, 1u);
  Finish();
}

TEST_P(WdfWork, APowerCallbackThatFlushesWorkWhichWaitsForD0IsReported) {
  static WDFWORKITEM item;
  script.onAdd = [](WDFDEVICE device) {
    item = MakeItem(device, 0, [](WDFWORKITEM self) {
      (void)WdfDeviceStopIdle(static_cast<WDFDEVICE>(WdfWorkItemGetParentObject(self)), TRUE);
    });
    WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS idle;
    WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS_INIT(&idle, IdleCanWakeFromS0);
    EXPECT_EQ(WdfDeviceAssignS0IdleSettings(device, &idle), 0);
  };
  script.onEntry = [](WDFDEVICE) {
    Delay(10);  // by now the work waits
    WdfWorkItemFlush(item);
  };
  ASSERT_EQ(Start(), 0);
  simulation.RunFor(6 * kSecond);
  ASSERT_EQ(host.Power(id), DevicePower::D3);
  InDriver([](WDFDEVICE) { WdfWorkItemEnqueue(item); });
  simulation.RunFor(1 * kSecond);
  EXPECT_EQ(Broken(), "power-reference-deadlock in WdfWorkItemFlush");
}

TEST_P(WdfWork, FlushAtDispatchLevelIsReported) {
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) {
    WDFWORKITEM item = MakeItem(device, 0);
    KIRQL before;
    KeRaiseIrql(DISPATCH_LEVEL, &before);
    WdfWorkItemFlush(item);
  });
  EXPECT_EQ(Broken(), "irql-too-high in WdfWorkItemFlush");
}

BROKEN_BY_TEST(DeletingARunningItemIsReported, WorkItemFreedRunning, "WdfObjectDelete")
BROKEN_BY_TEST(SelfFlushIsReported, WorkItemSelfFlush, "WdfWorkItemFlush")
BROKEN_BY_TEST(APowerCallbackThatFlushesWorkWhichWaitsForD0IsReported, PowerReferenceDeadlock, "WdfWorkItemFlush")
BROKEN_BY_TEST(FlushAtDispatchLevelIsReported, IrqlTooHigh, "WdfWorkItemFlush")

}  // namespace
}  // namespace wdf_test
