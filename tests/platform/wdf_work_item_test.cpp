// Work items: merged while queued, run once more when enqueued while running, never two at a time, each on its own
// task.
#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

struct WorkContext {
  ULONG Runs, Running, MostAtOnce;
  LONGLONG DelayMs;
  void (*Body)(WDFWORKITEM item);
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(WorkContext, GetWork)

VOID Run(WDFWORKITEM item) {
  WorkContext* work = GetWork(item);
  ++work->Runs;
  ++work->Running;
  if (work->Running > work->MostAtOnce) work->MostAtOnce = work->Running;
  if (work->DelayMs) DelayMs(work->DelayMs);
  --work->Running;
  if (work->Body) work->Body(item);
}

WDFWORKITEM MakeItem(WDFDEVICE device, LONGLONG delayMs, void (*body)(WDFWORKITEM) = nullptr) {
  WDF_WORKITEM_CONFIG config;
  WDF_WORKITEM_CONFIG_INIT(&config, Run);
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, WorkContext);
  attributes.ParentObject = device;
  WDFWORKITEM item = nullptr;
  EXPECT_EQ(WdfWorkItemCreate(&config, &attributes, &item), 0);
  EXPECT_EQ(WdfWorkItemGetParentObject(item), static_cast<WDFOBJECT>(device));
  GetWork(item)->DelayMs = delayMs;
  GetWork(item)->Body = body;
  return item;
}

class WdfWork : public WdfTest {};
INSTANTIATE_WDF(WdfWork);

TEST_P(WdfWork, EnqueuedWhileRunningRunsOnceMore) {
  WithDevice([](WDFDEVICE device) {
    WDFWORKITEM item = MakeItem(device, 100);
    WdfWorkItemEnqueue(item);
    DelayMs(50);
    for (int i = 0; i < 5; ++i) WdfWorkItemEnqueue(item);
    WdfWorkItemFlush(item);
    EXPECT_EQ(GetWork(item)->Runs, 2u);
    EXPECT_EQ(GetWork(item)->MostAtOnce, 1u);
  });
}

TEST_P(WdfWork, FlushWaitsForTheRunAndReturnsAtOnceWhenIdle) {
  WithDevice([this](WDFDEVICE device) {
    WDFWORKITEM item = MakeItem(device, 300);
    WdfWorkItemFlush(item);
    WdfWorkItemEnqueue(item);
    WdfWorkItemFlush(item);
    EXPECT_EQ(GetWork(item)->Runs, 1u);
    EXPECT_EQ(GetWork(item)->Running, 0u);
    EXPECT_GE(simulation.Now(), 300 * kMillisecond);
  });
}

TEST_P(WdfWork, AllItemsMayBlockAtTheSameTime) {
  WithDevice([this](WDFDEVICE device) {
    std::vector<WDFWORKITEM> items;
    for (int i = 0; i < 20; ++i) items.push_back(MakeItem(device, 1000));
    const Time begin = simulation.Now();
    for (WDFWORKITEM item : items) WdfWorkItemEnqueue(item);
    for (WDFWORKITEM item : items) WdfWorkItemFlush(item);
    EXPECT_LT(simulation.Now() - begin, 1100 * kMillisecond);
  });
}

TEST_P(WdfWork, AnItemMayDeleteItselfInItsCallback) {
  WithDevice([](WDFDEVICE device) {
    WdfWorkItemEnqueue(MakeItem(device, 10, [](WDFWORKITEM item) { WdfObjectDelete(item); }));
    DelayMs(100);
  });
  EXPECT_EQ(host.ObjectsByType().count("WDFWORKITEM"), 0u);
}

DEVICE_BREAKS(DeletedWhileItRuns, WorkItemFreedRunning, "WdfObjectDelete") {
  WDFWORKITEM item = MakeItem(device, 100);
  WdfWorkItemEnqueue(item);
  DelayMs(50);
  WdfObjectDelete(item);
}

DEVICE_BREAKS(FlushedByItself, WorkItemSelfFlush, "WdfWorkItemFlush") {
  WdfWorkItemEnqueue(MakeItem(device, 0, [](WDFWORKITEM item) { WdfWorkItemFlush(item); }));
  DelayMs(50);
}

DRIVER_BREAKS(PowerCallbackFlushesWorkThatWaitsForD0, PowerReferenceDeadlock, "WdfWorkItemFlush") {
  WDFWORKITEM item = nullptr;
  rig.script.onAdd = [&](WDFDEVICE device) {
    item = MakeItem(device, 0, [](WDFWORKITEM self) {
      (void)WdfDeviceStopIdle(static_cast<WDFDEVICE>(WdfWorkItemGetParentObject(self)), TRUE);
    });
    AssignIdle(device);
  };
  rig.script.onEntry = [&](WDFDEVICE) {
    DelayMs(10);  // by now the work waits
    WdfWorkItemFlush(item);
  };
  ASSERT_EQ(rig.Start(), 0);
  rig.RunToIdle();
  rig.InDriver([&](WDFDEVICE) { WdfWorkItemEnqueue(item); });
  rig.simulation.RunFor(1 * kSecond);
}

DEVICE_BREAKS(FlushedAtDispatch, IrqlTooHigh, "WdfWorkItemFlush") {
  WDFWORKITEM item = MakeItem(device, 0);
  Raise(DISPATCH_LEVEL);
  WdfWorkItemFlush(item);
}

}  // namespace
}  // namespace wdf_test
