// Goal: the rules of pool, lists, device memory, registry and tracing. Method: each test breaks one.
#include <gtest/gtest.h>
#include <ntstrsafe.h>

#include "tests/platform/plain_device.h"
#include "tests/platform/rule_tests.h"

namespace platform {
namespace {

constexpr ULONG kTag = 0x74736554;       // Test
constexpr ULONG kOtherTag = 0x7265684f;  // Oher

struct Record {
  LIST_ENTRY link;
  KEVENT event;
};

Record* NewRecord() {
  return static_cast<Record*>(ExAllocatePool2(POOL_FLAG_NON_PAGED, sizeof(Record), kTag));
}

}  // namespace

BREAKS(AllocateAboveDispatch, IrqlTooHigh, "ExAllocatePool2") {
  rig.OnTask([] {
    KIRQL before;
    KeRaiseIrql(DISPATCH_LEVEL, &before);
    ExFreePoolWithTag(NewRecord(), kTag);
    KeRaiseIrql(DISPATCH_LEVEL + 1, &before);
    NewRecord();
  });
}

BREAKS(FreedTwice, PoolBadFree, "ExFreePoolWithTag") {
  rig.OnTask([] {
    Record* record = NewRecord();
    ExFreePoolWithTag(record, kTag);
    ExFreePoolWithTag(record, kTag);
  });
}

BREAKS(FreeOfNoBlock, PoolBadFree, "ExFreePoolWithTag") {
  rig.OnTask([] {
    int onTheStack = 0;
    ExFreePoolWithTag(&onTheStack, kTag);
  });
}

BREAKS(FreeOfNull, PoolBadFree, "ExFreePoolWithTag") {
  rig.OnTask([] { ExFreePoolWithTag(nullptr, kTag); });
}

BREAKS(FreeInsideABlock, PoolBadFree, "ExFreePoolWithTag") {
  rig.OnTask([] {
    auto* bytes = static_cast<char*>(ExAllocatePool2(POOL_FLAG_NON_PAGED, 256, kTag));
    ExFreePoolWithTag(bytes + 128, kTag);
  });
}

BREAKS(FreedWithAnotherTag, PoolWrongTag, "ExFreePoolWithTag") {
  rig.OnTask([] { ExFreePoolWithTag(NewRecord(), kOtherTag); });
}

// The write itself must not be the sanitizer's to find.
[[gnu::no_sanitize_address]] void WriteOneByte(void* block, std::ptrdiff_t offset) {
  static_cast<volatile char*>(block)[offset] = 1;
}

BREAKS(WrittenPastItsEnd, PoolOverrun, "ExFreePoolWithTag") {
  rig.OnTask([] {
    void* block = ExAllocatePool2(POOL_FLAG_NON_PAGED, 5, kTag);
    WriteOneByte(block, 5);
    ExFreePoolWithTag(block, kTag);
  });
}

BREAKS(WrittenBeforeItsStart, PoolOverrun, "ExFreePoolWithTag") {
  rig.OnTask([] {
    void* block = ExAllocatePool2(POOL_FLAG_NON_PAGED, 32, kTag);
    WriteOneByte(block, -1);
    ExFreePoolWithTag(block, kTag);
  });
}

BREAKS(WrittenAfterFree, PoolOverrun, "ExAllocatePool2") {
  rig.OnTask([] {
    void* block = ExAllocatePool2(POOL_FLAG_NON_PAGED, 100, kTag);
    ExFreePoolWithTag(block, kTag);
    WriteOneByte(block, 50);
    for (int i = 0; i < 100; ++i) ExFreePoolWithTag(ExAllocatePool2(POOL_FLAG_NON_PAGED, 100, kTag), kTag);
  });
}

BREAKS(StillHeldAtUnload, PoolLeak, "") {
  rig.OnTask([] { (void)NewRecord(); });
  rig.kernel.UnloadDriver();
}

BREAKS(AllocationOfNothing, PoolZeroLength, "ExAllocatePool2") {
  rig.OnTask([] { ExAllocatePool2(POOL_FLAG_NON_PAGED, 0, kTag); });
}

BREAKS(FreedWhileATaskWaitsInIt, PoolWaitedOn, "ExFreePoolWithTag") {
  auto record = std::make_shared<Record*>(nullptr);
  rig.Beside("waiter", [record] {
    *record = NewRecord();
    KeInitializeEvent(&(*record)->event, SynchronizationEvent, FALSE);
    (void)KeWaitForSingleObject(&(*record)->event, Executive, KernelMode, FALSE, nullptr);
  });
  rig.OnTask([record] { ExFreePoolWithTag(*record, kTag); });
}

BREAKS(FreedWithItsLockHeld, PoolWaitedOn, "ExFreePoolWithTag") {
  rig.OnTask([] {
    auto* lock = static_cast<KSPIN_LOCK*>(ExAllocatePool2(POOL_FLAG_NON_PAGED, sizeof(KSPIN_LOCK), kTag));
    KIRQL before;
    KeInitializeSpinLock(lock);
    KeAcquireSpinLock(lock, &before);
    ExFreePoolWithTag(lock, kTag);
  });
}

BREAKS(FreedWhileLinked, ListEntryLinked, "ExFreePoolWithTag") {
  rig.OnTask([] {
    LIST_ENTRY head;
    InitializeListHead(&head);
    Record* first = NewRecord();
    Record* second = NewRecord();
    InsertTailList(&head, &first->link);
    InsertTailList(&head, &second->link);
    RemoveEntryList(&first->link);
    ExFreePoolWithTag(first, kTag);
    ExFreePoolWithTag(second, kTag);
  });
}

BREAKS(HeadFreedWithEntries, ListEntryLinked, "ExFreePoolWithTag") {
  rig.OnTask([] {
    Record* head = NewRecord();
    InitializeListHead(&head->link);
    InsertHeadList(&head->link, &NewRecord()->link);
    ExFreePoolWithTag(head, kTag);
  });
}

BREAKS(EntryInsertedTwice, ListEntryLinked, "InsertTailList") {
  rig.OnTask([] {
    LIST_ENTRY head;
    InitializeListHead(&head);
    Record* record = NewRecord();
    InsertTailList(&head, &record->link);
    InsertTailList(&head, &record->link);
  });
}

BREAKS(EntryRemovedTwice, ListEntryLinked, "RemoveEntryList") {
  rig.OnTask([] {
    LIST_ENTRY head, entry;
    InitializeListHead(&head);
    InsertTailList(&head, &entry);
    RemoveEntryList(&entry);
    RemoveEntryList(&entry);
  });
}

BREAKS(ListHeadNeverInitialised, ObjectUninitialised, "InsertTailList") {
  rig.OnTask([] {
    LIST_ENTRY head{}, entry;
    InsertTailList(&head, &entry);
  });
}

BREAKS(PagedPool, NotModelled, "ExAllocatePool2") {
  rig.OnTask([] { ExAllocatePool2(POOL_FLAG_PAGED, 16, kTag); });
}

BREAKS(TagOfControlCharacters, InvalidArgument, "ExAllocatePool2") {
  rig.OnTask([] { ExAllocatePool2(POOL_FLAG_NON_PAGED, 16, 0x01020304); });
}

// --- device memory ---

BREAKS(RegisterPastTheMapping, RegisterOutsideBar, "READ_REGISTER_ULONG") {
  PlainDevice device(rig.kernel);
  rig.OnTask([] {
    ULONG* base = PlainDevice::Map();
    (void)READ_REGISTER_ULONG(base + PlainDevice::kBytes / 4);
  });
}

BREAKS(RegisterNotAligned, InvalidArgument, "WRITE_REGISTER_ULONG") {
  PlainDevice device(rig.kernel);
  rig.OnTask([] {
    auto* bytes = reinterpret_cast<char*>(PlainDevice::Map());
    WRITE_REGISTER_ULONG(reinterpret_cast<ULONG*>(bytes + 2), 0);
  });
}

BREAKS(RegisterAfterUnmap, RegisterUnmapped, "WRITE_REGISTER_ULONG") {
  PlainDevice device(rig.kernel);
  rig.OnTask([] {
    ULONG* base = PlainDevice::Map();
    MmUnmapIoSpace(base, PlainDevice::kBytes);
    WRITE_REGISTER_ULONG(base, 0);
  });
}

BREAKS(UnmapTwice, RegisterUnmapped, "MmUnmapIoSpace") {
  PlainDevice device(rig.kernel);
  rig.OnTask([] {
    ULONG* base = PlainDevice::Map();
    MmUnmapIoSpace(base, PlainDevice::kBytes);
    MmUnmapIoSpace(base, PlainDevice::kBytes);
  });
}

BREAKS(UnmapOfAnotherSize, InvalidArgument, "MmUnmapIoSpace") {
  PlainDevice device(rig.kernel);
  rig.OnTask([] { MmUnmapIoSpace(PlainDevice::Map(), PlainDevice::kBytes / 2); });
}

BREAKS(RegisterWithPowerOff, RegisterWhilePoweredDown, "READ_REGISTER_ULONG") {
  PlainDevice device(rig.kernel);
  rig.OnTask([&] {
    ULONG* base = PlainDevice::Map();
    device.SetAccess(RegisterAccess::PoweredDown);
    (void)READ_REGISTER_ULONG(base);
  });
}

BREAKS(MappingLeftAtUnload, MappingLeak, "") {
  PlainDevice device(rig.kernel);
  rig.OnTask([] { PlainDevice::Map(); });
  rig.kernel.UnloadDriver();
}

BREAKS(MapOfNobodysMemory, InvalidArgument, "MmMapIoSpaceEx") {
  rig.OnTask([] { PlainDevice::Map(); });
}

BREAKS(UnknownSystemRoutine, NotModelled, "MmGetSystemRoutineAddress") {
  rig.OnTask([] {
    UNICODE_STRING name;
    RtlInitUnicodeString(&name, L"MmMapIoSpaceEy");
    MmGetSystemRoutineAddress(&name);
  });
}

// --- registry and tracing ---

BREAKS(KeyClosedTwice, HandleStale, "ZwClose") {
  rig.kernel.registry().Create("\\Registry\\Machine\\X");
  rig.OnTask([] {
    UNICODE_STRING name;
    RtlInitUnicodeString(&name, L"\\Registry\\Machine\\X");
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr, nullptr);
    HANDLE key;
    (void)ZwOpenKey(&key, KEY_READ, &attributes);
    (void)ZwClose(key);
    (void)ZwClose(key);
  });
}

BREAKS(KeyLeftOpenAtUnload, HandleLeak, "") {
  rig.kernel.registry().Open(rig.kernel.registry().Create("\\Registry\\Machine\\X"));
  rig.kernel.UnloadDriver();
}

BREAKS(TraceRegistrationLeft, HandleLeak, "") {
  rig.OnTask([] {
    const GUID provider{};
    REGHANDLE handle;
    (void)EtwRegister(&provider, nullptr, nullptr, &handle);
  });
  rig.kernel.UnloadDriver();
}

BREAKS(TraceAfterUnregister, HandleStale, "EtwWrite") {
  rig.OnTask([] {
    const GUID provider{};
    REGHANDLE handle;
    (void)EtwRegister(&provider, nullptr, nullptr, &handle);
    (void)EtwUnregister(handle);
    const EVENT_DESCRIPTOR event{};
    (void)EtwWrite(handle, &event, nullptr, 0, nullptr);
  });
}

BREAKS(PrintAtDispatch, IrqlTooHigh, "RtlStringCbPrintfA") {
  rig.OnTask([] {
    KIRQL before;
    KeRaiseIrql(DISPATCH_LEVEL, &before);
    char text[8];
    (void)RtlStringCbPrintfA(text, sizeof text, "%u", 1u);
  });
}

BREAKS(UnknownConversion, NotModelled, "RtlStringCbPrintfA") {
  rig.OnTask([] {
    char text[8];
    (void)RtlStringCbPrintfA(text, sizeof text, "%g", 1.0);
  });
}

// --- rules that every call shares ---

BREAKS(StackUsedUp, StackTooDeep, "InterlockedIncrement") {
  rig.OnTask([] {
    // Deeper by a kilobyte at each step; the limit is met long before the stack ends.
    struct Deep {
      [[gnu::noinline]] static int Down(int left) {
        volatile char frame[1024];
        frame[0] = static_cast<char>(left);
        LONG word = 0;
        InterlockedIncrement(&word);
        return left == 0 ? 0 : Down(left - 1) + frame[0];
      }
    };
    Deep::Down(100);
  });
}

BROKEN_BY_TEST(ACallFromNoTaskAborts, CallOutsideTask, "KeSetEvent")

TEST(RuleDeathTest, ACallFromNoTaskAborts) {
  KEVENT event{};
  EXPECT_DEATH(KeSetEvent(&event, 0, FALSE), "call-outside-task: KeSetEvent");
}

}  // namespace platform
