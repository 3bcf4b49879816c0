// Goal: the rules of events, mutexes, spin locks, IRQL and time. Method: each test breaks one.
#include "tests/platform/rule_tests.h"

namespace platform {
namespace {

LARGE_INTEGER RelativeUs(LONGLONG us) {
  LARGE_INTEGER interval;
  interval.QuadPart = -10 * us;
  return interval;
}

void WaitFor(void* object) {
  (void)KeWaitForSingleObject(object, Executive, KernelMode, FALSE, nullptr);
}

void Poll(void* object) {
  LARGE_INTEGER zero{};
  (void)KeWaitForSingleObject(object, Executive, KernelMode, FALSE, &zero);
}

void Delay(LONGLONG us) {
  LARGE_INTEGER interval = RelativeUs(us);
  (void)KeDelayExecutionThread(KernelMode, FALSE, &interval);
}

KIRQL Raise(KIRQL level) {
  KIRQL before;
  KeRaiseIrql(level, &before);
  return before;
}

}  // namespace

BREAKS(SetEventAboveDispatch, IrqlTooHigh, "KeSetEvent") {
  rig.OnTask([] {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, FALSE);
    Raise(DISPATCH_LEVEL + 1);
    KeSetEvent(&event, 0, FALSE);
  });
}

BREAKS(WaitAtDispatch, IrqlTooHigh, "KeWaitForSingleObject") {
  rig.OnTask([] {
    KEVENT event;
    KeInitializeEvent(&event, NotificationEvent, TRUE);
    Raise(DISPATCH_LEVEL);
    Poll(&event);  // legal: it can't block
    WaitFor(&event);
  });
}

BREAKS(DelayAtDispatch, IrqlTooHigh, "KeDelayExecutionThread") {
  rig.OnTask([] {
    Raise(DISPATCH_LEVEL);
    Delay(1);
  });
}

BREAKS(RaiseDownwards, IrqlRaisedWrongly, "KeRaiseIrql") {
  rig.OnTask([] {
    Raise(DISPATCH_LEVEL);
    Raise(APC_LEVEL);
  });
}

BREAKS(DpcLevelLockAtPassive, IrqlRaisedWrongly, "KeAcquireSpinLockAtDpcLevel") {
  rig.OnTask([] {
    KSPIN_LOCK lock;
    KeInitializeSpinLock(&lock);
    KeAcquireSpinLockAtDpcLevel(&lock);
  });
}

BREAKS(LowerUpwards, IrqlLoweredWrongly, "KeLowerIrql") {
  rig.OnTask([] { KeLowerIrql(APC_LEVEL); });
}

BREAKS(LowerWithSpinLock, IrqlLoweredWrongly, "KeLowerIrql") {
  rig.OnTask([] {
    KSPIN_LOCK lock;
    KIRQL before;
    KeInitializeSpinLock(&lock);
    KeAcquireSpinLock(&lock, &before);
    KeLowerIrql(before);
  });
}

BREAKS(ReleaseToAnotherLevel, IrqlLoweredWrongly, "KeReleaseSpinLock") {
  rig.OnTask([] {
    KSPIN_LOCK lock;
    KIRQL before;
    KeInitializeSpinLock(&lock);
    KeAcquireSpinLock(&lock, &before);
    KeReleaseSpinLock(&lock, APC_LEVEL);
  });
}

BREAKS(ReleaseOuterLockFirst, IrqlLoweredWrongly, "KeReleaseSpinLock") {
  rig.OnTask([] {
    KSPIN_LOCK outer, inner;
    KIRQL beforeOuter, beforeInner;
    KeInitializeSpinLock(&outer);
    KeInitializeSpinLock(&inner);
    KeAcquireSpinLock(&outer, &beforeOuter);
    KeAcquireSpinLock(&inner, &beforeInner);
    KeReleaseSpinLock(&outer, beforeOuter);
  });
}

BREAKS(WaitHoldingSpinLock, WaitWithSpinLock, "KeWaitForSingleObject") {
  rig.OnTask([] {
    KEVENT event;
    KSPIN_LOCK lock;
    KIRQL before;
    KeInitializeEvent(&event, NotificationEvent, TRUE);
    KeInitializeSpinLock(&lock);
    KeAcquireSpinLock(&lock, &before);
    Poll(&event);
    WaitFor(&event);
  });
}

BREAKS(DelayHoldingSpinLock, WaitWithSpinLock, "KeDelayExecutionThread") {
  rig.OnTask([] {
    KSPIN_LOCK lock;
    KIRQL before;
    KeInitializeSpinLock(&lock);
    KeAcquireSpinLock(&lock, &before);
    Delay(1);
  });
}

BREAKS(MutexReleasedByAnotherTask, LockNotOwned, "KeReleaseMutex") {
  auto mutex = std::make_shared<KMUTEX>();
  rig.Beside("owner", [mutex] {
    KeInitializeMutex(mutex.get(), 0);
    WaitFor(mutex.get());
    Delay(1000);
  });
  rig.OnTask([mutex] {
    Delay(1);
    KeReleaseMutex(mutex.get(), FALSE);
  });
}

BREAKS(SpinLockReleasedUnheld, LockNotOwned, "KeReleaseSpinLock") {
  rig.OnTask([] {
    KSPIN_LOCK lock;
    KeInitializeSpinLock(&lock);
    Raise(DISPATCH_LEVEL);
    KeReleaseSpinLock(&lock, PASSIVE_LEVEL);
  });
}

BREAKS(SpinLockTakenTwice, LockTakenTwice, "KeAcquireSpinLock") {
  rig.OnTask([] {
    KSPIN_LOCK lock;
    KIRQL before;
    KeInitializeSpinLock(&lock);
    KeAcquireSpinLock(&lock, &before);
    KeAcquireSpinLock(&lock, &before);
  });
}

BREAKS(LocksTakenInBothOrders, LockOrder, "KeAcquireSpinLock") {
  rig.OnTask([] {
    KSPIN_LOCK a, b;
    KIRQL first, second;
    KeInitializeSpinLock(&a);
    KeInitializeSpinLock(&b);
    KeAcquireSpinLock(&a, &first);
    KeAcquireSpinLock(&b, &second);
    KeReleaseSpinLock(&b, second);
    KeReleaseSpinLock(&a, first);
    KeAcquireSpinLock(&b, &first);
    KeAcquireSpinLock(&a, &second);  // no deadlock today, one task; tomorrow two
  });
}

BREAKS(ThreeLocksInACircle, LockOrder, "KeWaitForSingleObject") {
  rig.OnTask([] {
    KMUTEX mutexes[3];
    for (KMUTEX& mutex : mutexes) KeInitializeMutex(&mutex, 0);
    for (int i = 0; i < 3; ++i) {
      WaitFor(&mutexes[i]);
      WaitFor(&mutexes[(i + 1) % 3]);
      KeReleaseMutex(&mutexes[(i + 1) % 3], FALSE);
      KeReleaseMutex(&mutexes[i], FALSE);
    }
  });
}

BREAKS(PlainAndQueuedOnOneLock, LockFormsMixed, "KeAcquireInStackQueuedSpinLock") {
  rig.OnTask([] {
    KSPIN_LOCK lock;
    KIRQL before;
    KLOCK_QUEUE_HANDLE handle;
    KeInitializeSpinLock(&lock);
    KeAcquireSpinLock(&lock, &before);
    KeReleaseSpinLock(&lock, before);
    KeAcquireInStackQueuedSpinLock(&lock, &handle);
  });
}

BREAKS(StallOf51Microseconds, StallTooLong, "KeStallExecutionProcessor") {
  rig.OnTask([] {
    KeStallExecutionProcessor(50);
    KeStallExecutionProcessor(51);
  });
}

BREAKS(EventNeverInitialised, ObjectUninitialised, "KeSetEvent") {
  rig.OnTask([] {
    KEVENT event{};
    KeSetEvent(&event, 0, FALSE);
  });
}

BREAKS(EventMovedByCopy, ObjectUninitialised, "KeWaitForSingleObject") {
  rig.OnTask([] {
    KEVENT event;
    KeInitializeEvent(&event, SynchronizationEvent, TRUE);
    KEVENT copy = event;
    Poll(&copy);
  });
}

BREAKS(MutexNeverInitialised, ObjectUninitialised, "KeReleaseMutex") {
  rig.OnTask([] {
    KMUTEX mutex{};
    KeReleaseMutex(&mutex, FALSE);
  });
}

BREAKS(EventUsedAsMutex, ObjectUninitialised, "KeReleaseMutex") {
  rig.OnTask([] {
    KMUTEX mutex;
    KeInitializeEvent(reinterpret_cast<PRKEVENT>(&mutex), SynchronizationEvent, TRUE);
    KeReleaseMutex(&mutex, FALSE);
  });
}

BREAKS(SpinLockNeverInitialised, ObjectUninitialised, "KeAcquireSpinLock") {
  rig.OnTask([] {
    KSPIN_LOCK lock = 0;
    KIRQL before;
    KeAcquireSpinLock(&lock, &before);
  });
}

BREAKS(InitialisedWhileATaskWaits, InvalidArgument, "KeInitializeEvent") {
  auto event = std::make_shared<KEVENT>();
  rig.Beside("waiter", [event] {
    KeInitializeEvent(event.get(), SynchronizationEvent, FALSE);
    WaitFor(event.get());
  });
  rig.OnTask([event] { KeInitializeEvent(event.get(), SynchronizationEvent, FALSE); });
}

BREAKS(MutexLevelNotZero, InvalidArgument, "KeInitializeMutex") {
  rig.OnTask([] {
    KMUTEX mutex;
    KeInitializeMutex(&mutex, 1);
  });
}

BREAKS(AbsoluteTimeOut, NotModelled, "KeWaitForSingleObject") {
  rig.OnTask([] {
    KEVENT event;
    KeInitializeEvent(&event, SynchronizationEvent, TRUE);
    LARGE_INTEGER tomorrow;
    tomorrow.QuadPart = 1;
    (void)KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &tomorrow);
  });
}

BREAKS(AssertionOfTheDriver, BugCheck, "KeBugCheckEx") {
  rig.OnTask([] { KeBugCheckEx(0x1234, 1, 2, 3, 4); });
}

}  // namespace platform
