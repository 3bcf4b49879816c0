// Framework objects: contexts, parents, cleanup and destroy order, and handles that are stale or of the wrong type,
// and memory that is in use when it goes.
#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

struct Named {
  const char* Name;
  KEVENT Event;
  LIST_ENTRY Link;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(Named, GetNamed)

VOID Idle(WDFWORKITEM) {}
VOID Cleanup(WDFOBJECT object) {
  Write(std::string("cleanup ") + GetNamed(object)->Name);
}
VOID Destroy(WDFOBJECT object) {
  Write(std::string("destroy ") + GetNamed(object)->Name);
}

WDFWORKITEM MakeItem(WDFOBJECT parent, const char* name) {
  WDF_WORKITEM_CONFIG config;
  WDF_WORKITEM_CONFIG_INIT(&config, Idle);
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, Named);
  attributes.ParentObject = parent;
  attributes.EvtCleanupCallback = Cleanup;
  attributes.EvtDestroyCallback = Destroy;
  WDFWORKITEM item = nullptr;
  EXPECT_EQ(WdfWorkItemCreate(&config, &attributes, &item), 0);
  EXPECT_EQ(GetNamed(item)->Name, nullptr);  // contexts begin zeroed
  GetNamed(item)->Name = name;
  return item;
}

class WdfObject : public WdfTest {};
INSTANTIATE_WDF(WdfObject);

TEST_P(WdfObject, ChildrenGoBeforeTheirParent) {
  WithDevice([this](WDFDEVICE device) {
    WDFWORKITEM parent = MakeItem(device, "parent");
    MakeItem(parent, "older child");
    WDFWORKITEM child = MakeItem(parent, "younger child");
    MakeItem(child, "grandchild");
    Log();
    WdfObjectDelete(parent);
    EXPECT_EQ(Log(),
              "cleanup grandchild\ndestroy grandchild\n"
              "cleanup younger child\ndestroy younger child\n"
              "cleanup older child\ndestroy older child\n"
              "cleanup parent\ndestroy parent\n");
  });
}

TEST_P(WdfObject, AReferenceDelaysDestroyAndKeepsTheContext) {
  WithDevice([this](WDFDEVICE device) {
    WDFWORKITEM item = MakeItem(device, "item");
    WdfObjectReference(item);
    Log();
    WdfObjectDelete(item);
    EXPECT_EQ(Log(), "cleanup item\n");
    EXPECT_STREQ(GetNamed(item)->Name, "item");
    WdfObjectDereference(item);
    EXPECT_EQ(Log(), "destroy item\n");
  });
}

TEST_P(WdfObject, RemovalDeletesWhatTheDriverLeaves) {
  WithDevice([](WDFDEVICE device) { MakeItem(device, "left"); });
  Log();
  host.Remove(id);
  EXPECT_EQ(Log(),
            "pre-interrupts to 5\nD0 exit to 5\nrelease\ncleanup left\ndestroy left\ndevice cleanup\nfunction D3hot\n");
}

TEST_P(WdfObject, AnAccessorFindsItsOwnTypeOnly) {
  WithDevice([](WDFDEVICE device) {
    EXPECT_NE(GetContext(device), nullptr);
    EXPECT_EQ(GetNamed(device), nullptr);
  });
}

DEVICE_BREAKS(ItemDeletedAndItsSlotReused, HandleStale, "WdfWorkItemEnqueue") {
  WDFWORKITEM item = MakeItem(device, "item");
  WdfObjectDelete(item);
  MakeItem(device, "in the same slot");
  WdfWorkItemEnqueue(item);
}

DEVICE_BREAKS(ItemDeletedButReferenced, HandleStale, "WdfWorkItemEnqueue") {
  WDFWORKITEM item = MakeItem(device, "item");
  WdfObjectReference(item);
  WdfObjectDelete(item);
  WdfWorkItemEnqueue(item);
}

DEVICE_BREAKS(ItemDeletedTwice, HandleStale, "WdfObjectDelete") {
  WDFWORKITEM item = MakeItem(device, "item");
  WdfObjectDelete(item);
  WdfObjectDelete(item);
}

DEVICE_BREAKS(HandleOfAnotherType, HandleWrongType, "WdfWorkItemEnqueue") {
  WdfWorkItemEnqueue(reinterpret_cast<WDFWORKITEM>(device));
}

DEVICE_BREAKS(NullHandle, HandleWrongType, "WdfWorkItemEnqueue") {
  WdfWorkItemEnqueue(nullptr);
}

DEVICE_BREAKS(AddressAsHandle, HandleWrongType, "WdfWorkItemEnqueue") {
  WdfWorkItemEnqueue(reinterpret_cast<WDFWORKITEM>(GetContext(device)));
}

DEVICE_BREAKS(DeviceDeletedByItsDriver, InvalidArgument, "WdfObjectDelete") {
  WdfObjectDelete(device);
}

DRIVER_BREAKS(ContextThatATaskWaitsIn, PoolWaitedOn, "WdfObjectDelete") {
  WDFWORKITEM item = nullptr;
  rig.WithDevice([&](WDFDEVICE device) {
    item = MakeItem(device, "item");
    KeInitializeEvent(&GetNamed(item)->Event, SynchronizationEvent, FALSE);
  });
  rig.simulation.Spawn(&rig.host, "waiter", [&] { WaitForEver(&GetNamed(item)->Event); });
  rig.simulation.RunFor(kMillisecond);
  rig.InDriver([&](WDFDEVICE) { WdfObjectDelete(item); });
}

DEVICE_BREAKS(ContextWithALinkedEntry, ListEntryLinked, "WdfObjectDelete") {
  LIST_ENTRY head;
  InitializeListHead(&head);
  WDFWORKITEM item = MakeItem(device, "item");
  InsertTailList(&head, &GetNamed(item)->Link);
  WdfObjectDelete(item);
}

DRIVER_BREAKS(StillReferencedAtUnload, HandleLeak, "") {
  rig.WithDevice([](WDFDEVICE device) { WdfObjectReference(MakeItem(device, "kept")); });
  rig.Finish();
}

DRIVER_BREAKS(HandleOfAnotherHost, HandleStale, "WdfDeviceResumeIdle") {
  HostKernel second(rig.simulation, {.name = "second"});
  ASSERT_EQ(rig.Start(), 0);
  void* handle = rig.host.FrameworkDevice(rig.id);
  rig.simulation.RunTask(&second, "test", [&] { WdfDeviceResumeIdle(static_cast<WDFDEVICE>(handle)); });
}

DRIVER_BREAKS(UnloadWithADevice, InvalidArgument, "driver unload") {
  ASSERT_EQ(rig.Start(), 0);
  rig.Unload();
}

}  // namespace
}  // namespace wdf_test
