// Goal: the rules of pool, lists, registry and tracing. Method: each test breaks one.
#include <gtest/gtest.h>
#include <ntstrsafe.h>

#include "platform/kernel/registry.h"
#include "tests/platform/kernel_verbs.h"
#include "tests/platform/rule_tests.h"

namespace platform {
namespace {

struct Record {
  LIST_ENTRY link;
  KEVENT event;
};

Record* NewRecord() {
  return static_cast<Record*>(ExAllocatePool2(POOL_FLAG_NON_PAGED, sizeof(Record), kTag));
}

}  // namespace

BREAKS(AllocateAboveDispatch, IrqlTooHigh, "ExAllocatePool2") {
  Raise(DISPATCH_LEVEL);
  ExFreePoolWithTag(NewRecord(), kTag);
  Raise(DISPATCH_LEVEL + 1);
  NewRecord();
}

BREAKS(FreedTwice, PoolBadFree, "ExFreePoolWithTag") {
  Record* record = NewRecord();
  ExFreePoolWithTag(record, kTag);
  ExFreePoolWithTag(record, kTag);
}

BREAKS(FreeOfNoBlock, PoolBadFree, "ExFreePoolWithTag") {
  int onTheStack = 0;
  ExFreePoolWithTag(&onTheStack, kTag);
}

BREAKS(FreeOfNull, PoolBadFree, "ExFreePoolWithTag") {
  ExFreePoolWithTag(nullptr, kTag);
}

BREAKS(FreeInsideABlock, PoolBadFree, "ExFreePoolWithTag") {
  auto* bytes = static_cast<char*>(ExAllocatePool2(POOL_FLAG_NON_PAGED, 256, kTag));
  ExFreePoolWithTag(bytes + 128, kTag);
}

BREAKS(FreedWithAnotherTag, PoolWrongTag, "ExFreePoolWithTag") {
  ExFreePoolWithTag(NewRecord(), kOtherTag);
}

// The write itself must not be the sanitizer's to find.
[[gnu::no_sanitize_address]] void WriteOneByte(void* block, std::ptrdiff_t offset) {
  static_cast<volatile char*>(block)[offset] = 1;
}

BREAKS(WrittenPastItsEnd, PoolOverrun, "ExFreePoolWithTag") {
  void* block = ExAllocatePool2(POOL_FLAG_NON_PAGED, 5, kTag);
  WriteOneByte(block, 5);
  ExFreePoolWithTag(block, kTag);
}

BREAKS(WrittenBeforeItsStart, PoolOverrun, "ExFreePoolWithTag") {
  void* block = ExAllocatePool2(POOL_FLAG_NON_PAGED, 32, kTag);
  WriteOneByte(block, -1);
  ExFreePoolWithTag(block, kTag);
}

BREAKS(WrittenAfterFree, PoolOverrun, "ExAllocatePool2") {
  void* block = ExAllocatePool2(POOL_FLAG_NON_PAGED, 100, kTag);
  ExFreePoolWithTag(block, kTag);
  WriteOneByte(block, 50);
  for (int i = 0; i < 100; ++i) ExFreePoolWithTag(ExAllocatePool2(POOL_FLAG_NON_PAGED, 100, kTag), kTag);
}

HOST_BREAKS(StillHeldAtUnload, PoolLeak, "") {
  rig.OnTask([] { (void)NewRecord(); });
  rig.kernel.UnloadDriver();
}

BREAKS(AllocationOfNothing, PoolZeroLength, "ExAllocatePool2") {
  ExAllocatePool2(POOL_FLAG_NON_PAGED, 0, kTag);
}

HOST_BREAKS(FreedWhileATaskWaitsInIt, PoolWaitedOn, "ExFreePoolWithTag") {
  Record* record = nullptr;
  rig.Beside("waiter", [&] {
    record = NewRecord();
    KeInitializeEvent(&record->event, SynchronizationEvent, FALSE);
    WaitForEver(&record->event);
  });
  rig.OnTask([&] { ExFreePoolWithTag(record, kTag); });
}

BREAKS(FreedWithItsLockHeld, PoolWaitedOn, "ExFreePoolWithTag") {
  auto* held = new (ExAllocatePool2(POOL_FLAG_NON_PAGED, sizeof(HeldSpinLock), kTag)) HeldSpinLock;
  ExFreePoolWithTag(held, kTag);
}

BREAKS(FreedWhileLinked, ListEntryLinked, "ExFreePoolWithTag") {
  LIST_ENTRY head;
  InitializeListHead(&head);
  Record* first = NewRecord();
  Record* second = NewRecord();
  InsertTailList(&head, &first->link);
  InsertTailList(&head, &second->link);
  RemoveEntryList(&first->link);
  ExFreePoolWithTag(first, kTag);
  ExFreePoolWithTag(second, kTag);
}

BREAKS(HeadFreedWithEntries, ListEntryLinked, "ExFreePoolWithTag") {
  Record* head = NewRecord();
  InitializeListHead(&head->link);
  InsertHeadList(&head->link, &NewRecord()->link);
  ExFreePoolWithTag(head, kTag);
}

BREAKS(EntryInsertedTwice, ListEntryLinked, "InsertTailList") {
  LIST_ENTRY head;
  InitializeListHead(&head);
  Record* record = NewRecord();
  InsertTailList(&head, &record->link);
  InsertTailList(&head, &record->link);
}

BREAKS(EntryRemovedTwice, ListEntryLinked, "RemoveEntryList") {
  LIST_ENTRY head, entry;
  InitializeListHead(&head);
  InsertTailList(&head, &entry);
  RemoveEntryList(&entry);
  RemoveEntryList(&entry);
}

BREAKS(ListHeadNeverInitialised, ObjectUninitialised, "InsertTailList") {
  LIST_ENTRY head{}, entry;
  InsertTailList(&head, &entry);
}

BREAKS(PagedPool, NotModelled, "ExAllocatePool2") {
  ExAllocatePool2(POOL_FLAG_PAGED, 16, kTag);
}

BREAKS(TagOfControlCharacters, InvalidArgument, "ExAllocatePool2") {
  ExAllocatePool2(POOL_FLAG_NON_PAGED, 16, 0x01020304);
}

BREAKS(UnknownSystemRoutine, NotModelled, "MmGetSystemRoutineAddress") {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, L"MmMapIoSpaceEy");
  MmGetSystemRoutineAddress(&name);
}

// --- registry and tracing ---

HOST_BREAKS(KeyClosedTwice, HandleStale, "ZwClose") {
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

HOST_BREAKS(KeyLeftOpenAtUnload, HandleLeak, "") {
  rig.kernel.registry().Open(rig.kernel.registry().Create("\\Registry\\Machine\\X"));
  rig.kernel.UnloadDriver();
}

static REGHANDLE RegisterTrace() {
  const GUID provider{};
  REGHANDLE handle = 0;
  (void)EtwRegister(&provider, nullptr, nullptr, &handle);
  return handle;
}

HOST_BREAKS(TraceRegistrationLeft, HandleLeak, "") {
  rig.OnTask([] { RegisterTrace(); });
  rig.kernel.UnloadDriver();
}

BREAKS(TraceAfterUnregister, HandleStale, "EtwWrite") {
  const REGHANDLE handle = RegisterTrace();
  (void)EtwUnregister(handle);
  const EVENT_DESCRIPTOR event{};
  (void)EtwWrite(handle, &event, nullptr, 0, nullptr);
}

BREAKS(PrintAtDispatch, IrqlTooHigh, "RtlStringCbPrintfA") {
  Raise(DISPATCH_LEVEL);
  char text[8];
  (void)RtlStringCbPrintfA(text, sizeof text, "%u", 1u);
}

BREAKS(UnknownConversion, NotModelled, "RtlStringCbPrintfA") {
  char text[8];
  (void)RtlStringCbPrintfA(text, sizeof text, "%g", 1.0);
}

// --- rules that every call shares ---

BREAKS(StackUsedUp, StackTooDeep, "InterlockedIncrement") {
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
}

BROKEN_BY_TEST(ACallFromNoTaskAborts, CallOutsideTask, "KeSetEvent")

TEST(RuleDeathTest, ACallFromNoTaskAborts) {
  KEVENT event{};
  EXPECT_DEATH(KeSetEvent(&event, 0, FALSE), "call-outside-task: KeSetEvent");
}

}  // namespace platform
