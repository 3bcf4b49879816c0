// Goal: generic work is queued when its kind may be, and runs once with its newest argument; an event that nobody can
// handle is not kept. Method: work items of the test on a started host; the channel stopped and started around them.
#include "hostif/work_items.h"

#include <gtest/gtest.h>

#include "hostif/domain.h"
#include "tests/support/world.h"

namespace {

using tests::World;

std::vector<void*> g_arguments;  // of each run, in order

void RememberArgument(WDFWORKITEM item) {
  g_arguments.push_back(WorkItemContextOf(item)->Data);
}

WORLD_TEST(WorkItems, GenericWorkIsRefusedWhileTheChannelIsDown) {
  constexpr NTSTATUS kRefused = static_cast<NTSTATUS>(0xC0000033);
  const struct {
    KIV_WORK_KIND kind;
    NTSTATUS whileDown;
  } cases[] = {{KIV_WORK_STATE, kRefused}, {KIV_WORK_PROPERTIES_CHANGED, kRefused}, {KIV_WORK_UNCONDITIONAL, 0},
               {KIV_WORK_LOGIN, kRefused}, {KIV_WORK_CONNECTED, kRefused},          {KIV_WORK_DISCONNECT, kRefused}};
  World world;
  world.Start();
  world.Quiet();
  world.InDevice([&](DEVICE_EXTENSION& context) {
    WDFWORKITEM item = nullptr;
    ASSERT_EQ(KivUsb4InitializeGenericXDomainWorkItem(&context, &item, RememberArgument), 0);
    int argument = 0;
    for (const bool up : {false, true}) {
      up ? StartControlChannel(context.Domain) : StopControlChannel(context.Domain);
      for (const auto& test : cases) {
        g_arguments.clear();
        const NTSTATUS status = KivUsb4QueueXDomainGenericWorkItemData(item, &context, &argument, test.kind);
        EXPECT_EQ(status, up ? 0 : test.whileDown) << static_cast<int>(test.kind) << up;
        WdfWorkItemFlush(item);
        EXPECT_EQ(g_arguments.size(), status == 0 ? 1u : 0u) << static_cast<int>(test.kind) << up;
      }
    }
    EXPECT_EQ(KivUsb4QueueXDomainGenericWorkItemData(nullptr, &context, &argument, KIV_WORK_UNCONDITIONAL), 0);
    WdfObjectDelete(item);
  });
}

// Queued twice before it runs, an item runs once, with the later argument.
TEST(WorkItems, AnItemQueuedTwiceRunsOnceWithTheNewestArgument) {
  World world;
  world.Start();
  world.Quiet();
  world.InDevice([](DEVICE_EXTENSION& context) {
    WDFWORKITEM item = nullptr;
    ASSERT_EQ(KivUsb4InitializeGenericXDomainWorkItem(&context, &item, RememberArgument), 0);
    g_arguments.clear();
    int first = 0, second = 0;
    EXPECT_EQ(KivUsb4QueueXDomainGenericWorkItemData(item, &context, &first, KIV_WORK_LOGIN), 0);
    EXPECT_EQ(KivUsb4QueueXDomainGenericWorkItemData(item, &context, &second, KIV_WORK_STATE), 0);
    WdfWorkItemFlush(item);
    EXPECT_EQ(g_arguments, std::vector<void*>{&second});
    WdfObjectDelete(item);
  });
}

// Without a work item to run it, an event is dropped rather than kept for ever.
TEST(WorkItems, AnEventWithoutAWorkItemIsDropped) {
  World world;
  world.Start();
  world.Quiet();
  world.InDevice([](DEVICE_EXTENSION& context) {
    KivUsb4QueueWorkItemData(nullptr, &context, PoolNew<USB4_HOTPLUG_EVENT>());
    EXPECT_TRUE(IsListEmpty(&context.EventListHead));
    EXPECT_EQ(context.QueuedEventCount.Peek(), 0u);
    EXPECT_EQ(context.WorkItemQueued.Load(), 0);
  });
}

}  // namespace
