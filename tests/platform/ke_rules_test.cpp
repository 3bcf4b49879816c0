// Goal: the rules of events, mutexes, spin locks, IRQL and time. Method: each test breaks one.
#include "tests/platform/kernel_verbs.h"
#include "tests/platform/rule_tests.h"

namespace platform {

BREAKS(SetEventAboveDispatch, IrqlTooHigh, "KeSetEvent") {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, FALSE);
  Raise(DISPATCH_LEVEL + 1);
  KeSetEvent(&event, 0, FALSE);
}

BREAKS(WaitAtDispatch, IrqlTooHigh, "KeWaitForSingleObject") {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, TRUE);
  Raise(DISPATCH_LEVEL);
  (void)Wait(&event, 0);  // legal: it can't block
  WaitForEver(&event);
}

BREAKS(DelayAtDispatch, IrqlTooHigh, "KeDelayExecutionThread") {
  Raise(DISPATCH_LEVEL);
  DelayMs(1);
}

BREAKS(RaiseDownwards, IrqlRaisedWrongly, "KeRaiseIrql") {
  Raise(DISPATCH_LEVEL);
  Raise(APC_LEVEL);
}

BREAKS(DpcLevelLockAtPassive, IrqlRaisedWrongly, "KeAcquireSpinLockAtDpcLevel") {
  KSPIN_LOCK lock;
  KeInitializeSpinLock(&lock);
  KeAcquireSpinLockAtDpcLevel(&lock);
}

BREAKS(LowerUpwards, IrqlLoweredWrongly, "KeLowerIrql") {
  KeLowerIrql(APC_LEVEL);
}

BREAKS(LowerWithSpinLock, IrqlLoweredWrongly, "KeLowerIrql") {
  HeldSpinLock held;
  KeLowerIrql(held.before);
}

BREAKS(ReleaseToAnotherLevel, IrqlLoweredWrongly, "KeReleaseSpinLock") {
  HeldSpinLock held;
  KeReleaseSpinLock(&held.lock, APC_LEVEL);
}

BREAKS(ReleaseOuterLockFirst, IrqlLoweredWrongly, "KeReleaseSpinLock") {
  HeldSpinLock outer, inner;
  outer.Release();
}

BREAKS(WaitHoldingSpinLock, WaitWithSpinLock, "KeWaitForSingleObject") {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, TRUE);
  HeldSpinLock held;
  (void)Wait(&event, 0);
  WaitForEver(&event);
}

BREAKS(DelayHoldingSpinLock, WaitWithSpinLock, "KeDelayExecutionThread") {
  HeldSpinLock held;
  DelayMs(1);
}

HOST_BREAKS(MutexReleasedByAnotherTask, LockNotOwned, "KeReleaseMutex") {
  KMUTEX mutex;
  rig.Beside("owner", [&] {
    KeInitializeMutex(&mutex, 0);
    WaitForEver(&mutex);
    DelayMs(10);
  });
  rig.OnTask([&] {
    DelayMs(1);
    KeReleaseMutex(&mutex, FALSE);
  });
}

BREAKS(SpinLockReleasedUnheld, LockNotOwned, "KeReleaseSpinLock") {
  KSPIN_LOCK lock;
  KeInitializeSpinLock(&lock);
  Raise(DISPATCH_LEVEL);
  KeReleaseSpinLock(&lock, PASSIVE_LEVEL);
}

BREAKS(SpinLockTakenTwice, LockTakenTwice, "KeAcquireSpinLock") {
  HeldSpinLock held;
  held.Acquire();
}

BREAKS(LocksTakenInBothOrders, LockOrder, "KeAcquireSpinLock") {
  HeldSpinLock a, b;
  b.Release();
  a.Release();
  b.Acquire();
  a.Acquire();  // no deadlock today, one task; tomorrow two
}

BREAKS(ThreeLocksInACircle, LockOrder, "KeWaitForSingleObject") {
  KMUTEX mutexes[3];
  for (KMUTEX& mutex : mutexes) KeInitializeMutex(&mutex, 0);
  for (int i = 0; i < 3; ++i) {
    WaitForEver(&mutexes[i]);
    WaitForEver(&mutexes[(i + 1) % 3]);
    KeReleaseMutex(&mutexes[(i + 1) % 3], FALSE);
    KeReleaseMutex(&mutexes[i], FALSE);
  }
}

// An outer lock, one that stands below it, and two leaves, none taken yet.
struct PlacedLocks {
  PlacedLocks() {
    const char* names[] = {"outer", "inner", "first leaf", "second leaf"};
    for (unsigned i = 0; i < 4; ++i) {
      KeInitializeSpinLock(&locks[i]);
      _Lock_order_place_(locks[i], i, i >= 2, names[i]);
    }
  }
  void Take(unsigned which) { KeAcquireSpinLock(&locks[which], &before[which]); }
  void Give(unsigned which) { KeReleaseSpinLock(&locks[which], before[which]); }
  KSPIN_LOCK locks[4];
  KIRQL before[4] = {};
};

BREAKS(InnerLockTakenFirst, LockOutOfPlace, "KeAcquireSpinLock") {
  PlacedLocks placed;
  placed.Take(1);
  placed.Take(0);
}

BREAKS(TwoLocksOfOnePlace, LockOutOfPlace, "KeAcquireSpinLock") {
  PlacedLocks placed, others;
  placed.Take(0);
  placed.Take(1);
  others.Take(1);
}

BREAKS(LockTakenUnderALeaf, LockOutOfPlace, "KeAcquireSpinLock") {
  PlacedLocks placed;
  placed.Take(0);
  placed.Take(2);
  placed.Give(2);
  placed.Take(2);
  placed.Take(3);
}

BREAKS(RequiredLockNotHeld, LockRequired, "_Analysis_assume_lock_held_") {
  PlacedLocks placed;
  placed.Take(1);
  _Analysis_assume_lock_held_(placed.locks[1]);
  _Analysis_assume_lock_held_(placed.locks[0]);
}

BREAKS(ForbiddenLockHeld, LockForbidden, "_Analysis_assume_lock_not_held_") {
  PlacedLocks placed;
  placed.Take(1);
  _Analysis_assume_lock_not_held_(placed.locks[0]);
  _Analysis_assume_lock_not_held_(placed.locks[1]);
}

BREAKS(GuardedDataTouchedUnderAnotherLock, LockRequired, "_Lock_order_place_held_") {
  PlacedLocks placed;
  placed.Take(1);
  _Lock_order_place_held_(1u << 1 | 1u << 2);
  _Lock_order_place_held_(1u << 0 | 1u << 2);
}

BREAKS(GuardedDataTouchedAfterTheRelease, LockRequired, "_Lock_order_place_held_") {
  PlacedLocks placed;
  placed.Take(2);
  _Lock_order_place_held_(1u << 2);
  placed.Give(2);
  _Lock_order_place_held_(1u << 2);
}

BREAKS(PlaceBeyondTheLast, InvalidArgument, "_Lock_order_place_") {
  HeldSpinLock held;
  _Lock_order_place_(held.lock, 32, false, "far");
}

BREAKS(PlaceOfALockNeverInitialised, ObjectUninitialised, "_Lock_order_place_") {
  KSPIN_LOCK lock = 0;
  _Lock_order_place_(lock, 0, false, "nothing");
}

BREAKS(PlainAndQueuedOnOneLock, LockFormsMixed, "KeAcquireInStackQueuedSpinLock") {
  HeldSpinLock held;
  held.Release();
  KLOCK_QUEUE_HANDLE handle;
  KeAcquireInStackQueuedSpinLock(&held.lock, &handle);
}

BREAKS(StallOf51Microseconds, StallTooLong, "KeStallExecutionProcessor") {
  KeStallExecutionProcessor(50);
  KeStallExecutionProcessor(51);
}

BREAKS(EventNeverInitialised, ObjectUninitialised, "KeSetEvent") {
  KEVENT event{};
  KeSetEvent(&event, 0, FALSE);
}

BREAKS(EventMovedByCopy, ObjectUninitialised, "KeWaitForSingleObject") {
  KEVENT event;
  KeInitializeEvent(&event, SynchronizationEvent, TRUE);
  KEVENT copy = event;
  (void)Wait(&copy, 0);
}

BREAKS(MutexNeverInitialised, ObjectUninitialised, "KeReleaseMutex") {
  KMUTEX mutex{};
  KeReleaseMutex(&mutex, FALSE);
}

BREAKS(EventUsedAsMutex, ObjectUninitialised, "KeReleaseMutex") {
  KMUTEX mutex;
  KeInitializeEvent(reinterpret_cast<PRKEVENT>(&mutex), SynchronizationEvent, TRUE);
  KeReleaseMutex(&mutex, FALSE);
}

BREAKS(SpinLockNeverInitialised, ObjectUninitialised, "KeAcquireSpinLock") {
  KSPIN_LOCK lock = 0;
  KIRQL before;
  KeAcquireSpinLock(&lock, &before);
}

HOST_BREAKS(InitialisedWhileATaskWaits, InvalidArgument, "KeInitializeEvent") {
  KEVENT event;
  rig.Beside("waiter", [&] {
    KeInitializeEvent(&event, SynchronizationEvent, FALSE);
    WaitForEver(&event);
  });
  rig.OnTask([&] { KeInitializeEvent(&event, SynchronizationEvent, FALSE); });
}

BREAKS(MutexLevelNotZero, InvalidArgument, "KeInitializeMutex") {
  KMUTEX mutex;
  KeInitializeMutex(&mutex, 1);
}

BREAKS(AbsoluteTimeOut, NotModelled, "KeWaitForSingleObject") {
  KEVENT event;
  KeInitializeEvent(&event, SynchronizationEvent, TRUE);
  LARGE_INTEGER tomorrow;
  tomorrow.QuadPart = 1;
  (void)KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &tomorrow);
}

BREAKS(WaitForAllObjects, NotModelled, "KeWaitForMultipleObjects") {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, TRUE);
  PVOID events[] = {&event};
  (void)KeWaitForMultipleObjects(1, events, WaitAll, Executive, KernelMode, FALSE, nullptr, nullptr);
}

BREAKS(WaitForFourObjects, InvalidArgument, "KeWaitForMultipleObjects") {
  KEVENT event;
  KeInitializeEvent(&event, NotificationEvent, TRUE);
  PVOID events[] = {&event, &event, &event, &event};
  (void)KeWaitForMultipleObjects(4, events, WaitAny, Executive, KernelMode, FALSE, nullptr, nullptr);
}

BREAKS(AssertionOfTheDriver, BugCheck, "KeBugCheckEx") {
  KeBugCheckEx(0x1234, 1, 2, 3, 4);
}

}  // namespace platform
