// Doubly linked lists: the documented functions, plus a look at the links that each is about to trust. Not calls of the
// kernel but code in the driver's image: any IRQL, legal outside a task. On one each is a switch point, so that a list
// which two tasks change without a lock breaks.
#include <cstdio>
#include <cstdlib>

#include "platform/host/host_kernel.h"
#include "platform/include/wdm.h"
#include "platform/memory/kernel_pool.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

namespace {

void LetOthersRun() {
  if (Scheduler* scheduler = Scheduler::Active()) scheduler->MemorySwitchPoint();
}

void SetMark(const LIST_ENTRY* entry, Pool::Mark mark) {
  const Task* task = Scheduler::Current();
  if (!task || !task->kernel()) return;
  Pool& pool = task->kernel()->pool();
  if (pool.Owns(entry)) pool.SetMark(entry, mark);
}

bool IsMarkedLinked(const LIST_ENTRY* entry) {
  const Task* task = Scheduler::Current();
  if (!task || !task->kernel()) return false;
  Pool& pool = task->kernel()->pool();
  return pool.Owns(entry) && pool.MarkOf(entry) == Pool::LinkedEntry;
}

[[gnu::cold]] void Complain(HashedName function, Rule rule, const char* detail) {
  if (!Scheduler::Current()) {
    std::fprintf(stderr, "%s: %s\n", function.text.data(), detail);
    std::abort();
  }
  KernelCall call(function, HIGH_LEVEL, KernelCall::Silent);
  call.Report(rule, detail);
}

bool CheckHead(HashedName function, const LIST_ENTRY* head) {
  if (head->Flink == nullptr || head->Blink == nullptr) [[unlikely]] {
    Complain(function, Rule::ObjectUninitialised, "the list head was never initialised");
    return false;
  }
  if (head->Flink->Blink != head || head->Blink->Flink != head) [[unlikely]] {
    Complain(function, Rule::ListEntryLinked, "the neighbours of the list head do not point back at it");
    return false;
  }
  return true;
}

void InsertBetween(PLIST_ENTRY before, PLIST_ENTRY entry, PLIST_ENTRY after) {
  entry->Flink = after;
  entry->Blink = before;
  before->Flink = entry;
  after->Blink = entry;
  SetMark(entry, Pool::LinkedEntry);
}

bool CheckNotLinked(HashedName function, const LIST_ENTRY* entry) {
  if (!IsMarkedLinked(entry)) return true;
  Complain(function, Rule::ListEntryLinked, "the entry is on a list already");
  return false;
}

}  // namespace

VOID InitializeListHead(PLIST_ENTRY ListHead) {
  ListHead->Flink = ListHead->Blink = ListHead;
  SetMark(ListHead, Pool::ListHead);
}

BOOLEAN IsListEmpty(const LIST_ENTRY* ListHead) {
  return CheckHead("IsListEmpty", ListHead) && ListHead->Flink == ListHead;
}

VOID InsertHeadList(PLIST_ENTRY ListHead, PLIST_ENTRY Entry) {
  LetOthersRun();
  if (!CheckHead("InsertHeadList", ListHead) || !CheckNotLinked("InsertHeadList", Entry)) return;
  InsertBetween(ListHead, Entry, ListHead->Flink);
}

VOID InsertTailList(PLIST_ENTRY ListHead, PLIST_ENTRY Entry) {
  LetOthersRun();
  if (!CheckHead("InsertTailList", ListHead) || !CheckNotLinked("InsertTailList", Entry)) return;
  InsertBetween(ListHead->Blink, Entry, ListHead);
}

// TRUE when the list is empty afterwards. The entry's own links stay as they were.
BOOLEAN RemoveEntryList(PLIST_ENTRY Entry) {
  LetOthersRun();
  PLIST_ENTRY after = Entry->Flink;
  PLIST_ENTRY before = Entry->Blink;
  if (!after || !before || after->Blink != Entry || before->Flink != Entry) [[unlikely]] {
    Complain("RemoveEntryList", Rule::ListEntryLinked, "the entry is on no list: its neighbours do not point at it");
    return FALSE;
  }
  before->Flink = after;
  after->Blink = before;
  SetMark(Entry, Pool::Unmarked);
  return after == before;
}

// The head itself when the list is empty.
PLIST_ENTRY RemoveHeadList(PLIST_ENTRY ListHead) {
  if (!CheckHead("RemoveHeadList", ListHead)) return ListHead;
  PLIST_ENTRY entry = ListHead->Flink;
  if (entry != ListHead) RemoveEntryList(entry);
  return entry;
}

PLIST_ENTRY RemoveTailList(PLIST_ENTRY ListHead) {
  if (!CheckHead("RemoveTailList", ListHead)) return ListHead;
  PLIST_ENTRY entry = ListHead->Blink;
  if (entry != ListHead) RemoveEntryList(entry);
  return entry;
}
