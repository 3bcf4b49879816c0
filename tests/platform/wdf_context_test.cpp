// Goal: the context of a framework object is checked at its end as pool is. Method: a work item whose context holds an
// event and a list entry is deleted while they are in use.
#include "tests/platform/rule_tests.h"
#include "tests/platform/wdf_fixture.h"

namespace wdf_test {
namespace {

struct Shared {
  KEVENT event;
  LIST_ENTRY link;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(Shared, GetShared)

WDFWORKITEM NewItem(WDFDEVICE parent) {
  WDF_WORKITEM_CONFIG config;
  WDF_WORKITEM_CONFIG_INIT(&config, [](WDFWORKITEM) {});
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, Shared);
  attributes.ParentObject = parent;
  WDFWORKITEM item = nullptr;
  EXPECT_EQ(WdfWorkItemCreate(&config, &attributes, &item), 0);
  return item;
}

class WdfContext : public WdfTest {};
INSTANTIATE_WDF(WdfContext);

TEST_P(WdfContext, AContextThatATaskWaitsInIsReportedWhenItGoes) {
  ASSERT_EQ(Start(), 0);
  WDFWORKITEM item = nullptr;
  InDriver([&](WDFDEVICE device) {
    item = NewItem(device);
    KeInitializeEvent(&GetShared(item)->event, SynchronizationEvent, FALSE);
  });
  simulation.Spawn(&host, "waiter", [&] {
    (void)KeWaitForSingleObject(&GetShared(item)->event, Executive, KernelMode, FALSE, nullptr);
  });
  simulation.RunFor(platform::kMillisecond);
  InDriver([&](WDFDEVICE) { WdfObjectDelete(item); });
  EXPECT_EQ(Broken(), "pool-waited-on in WdfObjectDelete");
}

TEST_P(WdfContext, AContextWithALinkedEntryIsReportedWhenItGoes) {
  ASSERT_EQ(Start(), 0);
  InDriver([&](WDFDEVICE device) {
    LIST_ENTRY head;
    InitializeListHead(&head);
    WDFWORKITEM item = NewItem(device);
    InsertTailList(&head, &GetShared(item)->link);
    WdfObjectDelete(item);
  });
  EXPECT_EQ(Broken(), "list-entry-linked in WdfObjectDelete");
}

}  // namespace
}  // namespace wdf_test

namespace platform {
BROKEN_BY_TEST(AContextThatATaskWaitsInIsReportedWhenItGoes, PoolWaitedOn, "WdfObjectDelete")
BROKEN_BY_TEST(AContextWithALinkedEntryIsReportedWhenItGoes, ListEntryLinked, "WdfObjectDelete")
}  // namespace platform
