// Framework objects: contexts, parents, cleanup and destroy order, and handles that are stale or of the wrong type.
#include "tests/platform/rule_tests.h"
#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

std::string* events = nullptr;

struct Named {
  const char* Name;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(Named, GetNamed)
struct Other {
  ULONG Value;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(Other, GetOther)

VOID Idle(WDFWORKITEM) {}
VOID Cleanup(WDFOBJECT object) {
  *events += std::string("cleanup ") + GetNamed(object)->Name + "\n";
}
VOID Destroy(WDFOBJECT object) {
  *events += std::string("destroy ") + GetNamed(object)->Name + "\n";
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

class WdfObject : public WdfTest {
 protected:
  WdfObject() { events = &script.log; }
};
INSTANTIATE_WDF(WdfObject);

TEST_P(WdfObject, ChildrenGoBeforeTheirParent) {
  ASSERT_EQ(Start(), 0);
  InDriver([this](WDFDEVICE device) {
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
  host.Remove(id);
  Unload();
}

TEST_P(WdfObject, AReferenceDelaysDestroyAndKeepsTheContext) {
  ASSERT_EQ(Start(), 0);
  InDriver([this](WDFDEVICE device) {
    WDFWORKITEM item = MakeItem(device, "item");
    WdfObjectReference(item);
    Log();
    WdfObjectDelete(item);
    EXPECT_EQ(Log(), "cleanup item\n");
    EXPECT_STREQ(GetNamed(item)->Name, "item");
    WdfObjectDereference(item);
    EXPECT_EQ(Log(), "destroy item\n");
  });
  host.Remove(id);
  Unload();
}

TEST_P(WdfObject, RemovalDeletesWhatTheDriverLeaves) {
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) { MakeItem(device, "left"); });
  Log();
  host.Remove(id);
  EXPECT_EQ(Log(),
            "pre-interrupts to 5\nD0 exit to 5\nrelease\ncleanup left\ndestroy left\ndevice cleanup\nfunction D3hot\n");
  Unload();
}

TEST_P(WdfObject, AnAccessorFindsItsOwnTypeOnly) {
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) {
    EXPECT_NE(GetContext(device), nullptr);
    EXPECT_EQ(GetOther(device), nullptr);
    EXPECT_EQ(GetNamed(WdfDeviceGetIoTarget(device)), nullptr);
  });
  host.Remove(id);
  Unload();
}

struct BadHandle {
  const char* name;
  void (*use)(WDFDEVICE device);
  const char* broken;
};

const BadHandle kBadHandles[] = {
    {"deleted",
     [](WDFDEVICE device) {
       WDFWORKITEM item = MakeItem(device, "item");
       WdfObjectDelete(item);
       MakeItem(device, "in the same slot");
       WdfWorkItemEnqueue(item);
     },
     "handle-stale in WdfWorkItemEnqueue"},
    {"deleted but referenced",
     [](WDFDEVICE device) {
       WDFWORKITEM item = MakeItem(device, "item");
       WdfObjectReference(item);
       WdfObjectDelete(item);
       WdfWorkItemEnqueue(item);
     },
     "handle-stale in WdfWorkItemEnqueue"},
    {"deleted twice",
     [](WDFDEVICE device) {
       WDFWORKITEM item = MakeItem(device, "item");
       WdfObjectDelete(item);
       WdfObjectDelete(item);
     },
     "handle-stale in WdfObjectDelete"},
    {"of another type", [](WDFDEVICE device) { WdfWorkItemEnqueue(reinterpret_cast<WDFWORKITEM>(device)); },
     "handle-wrong-type in WdfWorkItemEnqueue"},
    {"null", [](WDFDEVICE) { WdfWorkItemEnqueue(nullptr); }, "handle-wrong-type in WdfWorkItemEnqueue"},
    {"an address", [](WDFDEVICE device) { WdfWorkItemEnqueue(reinterpret_cast<WDFWORKITEM>(GetContext(device))); },
     "handle-wrong-type in WdfWorkItemEnqueue"},
    {"of the device, deleted by its driver", [](WDFDEVICE device) { WdfObjectDelete(device); },
     "invalid-argument in WdfObjectDelete"},
};

class WdfBadHandle : public WdfObject {
 protected:
  const BadHandle& Case() const { return kBadHandles[GetParam()]; }
};
INSTANTIATE_TEST_SUITE_P(Handles, WdfBadHandle, testing::Range(0u, unsigned{std::size(kBadHandles)}));

TEST_P(WdfBadHandle, IsReported) {
  SCOPED_TRACE(Case().name);
  ASSERT_EQ(Start(), 0);
  InDriver(Case().use);
  EXPECT_EQ(Broken(), Case().broken);
}

TEST_P(WdfObject, WhatIsStillReferencedAtUnloadIsALeak) {
  ASSERT_EQ(Start(), 0);
  InDriver([](WDFDEVICE device) { WdfObjectReference(MakeItem(device, "kept")); });
  host.Remove(id);
  Unload();
  EXPECT_EQ(Broken().substr(0, 11), "handle-leak");
}

TEST_P(WdfObject, CreationFailsAtItsFaultSite) {
  ASSERT_EQ(Start(), 0);
  InDriver([this](WDFDEVICE device) {
    simulation.faults().FailNth("WdfWorkItemCreate", 1);
    WDF_WORKITEM_CONFIG asked;
    WDF_WORKITEM_CONFIG_INIT(&asked, Idle);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = device;
    WDFWORKITEM item = nullptr;
    EXPECT_EQ(WdfWorkItemCreate(&asked, &attributes, &item), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(item, nullptr);
  });
  host.Remove(id);
  Unload();
}

BROKEN_BY_TEST(WdfBadHandle, HandleStale, "WdfWorkItemEnqueue")
BROKEN_BY_TEST(WdfBadHandle, HandleStale, "WdfObjectDelete")
BROKEN_BY_TEST(WdfBadHandle, HandleWrongType, "WdfWorkItemEnqueue")
BROKEN_BY_TEST(WdfBadHandle, InvalidArgument, "WdfObjectDelete")
BROKEN_BY_TEST(WhatIsStillReferencedAtUnloadIsALeak, HandleLeak, "")

}  // namespace
}  // namespace wdf_test
