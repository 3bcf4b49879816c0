// Spin locks, plain and in-stack queued. A spin on a held lock is a wait with an owner: other tasks run meanwhile.
//
// The lock word: bits 63:48 a signature, 47 held, 46 somebody waits, 33 taken in the queued form, 32 taken in the plain
// form, 31:0 the lock's number in the lock order.
#include <algorithm>

#include "platform/host/host_kernel.h"
#include "platform/kernel/dispatcher_object.h"
#include "platform/kernel/kernel_state.h"

using namespace platform;

namespace {

constexpr KSPIN_LOCK kSignatureMask = 0xffffull << 48;
constexpr KSPIN_LOCK kSignature = 0x5b1dull << 48;
constexpr KSPIN_LOCK kHeld = 1ull << 47;
constexpr KSPIN_LOCK kWaiters = 1ull << 46;
constexpr KSPIN_LOCK kQueuedForm = 1ull << 33;
constexpr KSPIN_LOCK kPlainForm = 1ull << 32;

bool CheckLock(KernelCall& call, PKSPIN_LOCK lock) {
  if (lock && (*lock & kSignatureMask) == kSignature) [[likely]] {
    return true;
  }
  call.Report(Rule::ObjectUninitialised, "the spin lock was never initialised, or its memory was written over");
  return false;
}

bool Holds(const Task& task, PKSPIN_LOCK lock) {
  return std::any_of(task.held.begin(), task.held.end(), [&](const HeldLock& held) { return held.lock == lock; });
}

// The two forms keep different things in the lock word, so that they do not exclude each other.
void NoteForm(KernelCall& call, PKSPIN_LOCK lock, KSPIN_LOCK form) {
  *lock |= form;
  if ((*lock & (kQueuedForm | kPlainForm)) == (kQueuedForm | kPlainForm)) [[unlikely]] {
    call.Report(Rule::LockFormsMixed, "one spin lock is taken both in the plain and in the in-stack queued form");
  }
}

void SpinUntilFree(KernelCall& call, PKSPIN_LOCK lock, bool queued) {
  WaitList& waits = call.kernel().state().waits;
  while (*lock & kHeld) {
    *lock |= kWaiters;
    Wait wait{&call.task(), lock};
    wait.queued = queued;
    waits.Add(wait);
    call.scheduler().Park("a spin lock", lock);
    waits.Remove(wait);
    if (wait.granted) return;  // a queued waiter is handed the lock while it is still held
  }
}

void Acquire(KernelCall& call, PKSPIN_LOCK lock, KSPIN_LOCK form, unsigned irqlBefore) {
  if (!CheckLock(call, lock)) return;
  Task& task = call.task();
  if (!task.held.empty() && Holds(task, lock)) {
    return call.Report(Rule::LockTakenTwice, "the task already holds this spin lock and would spin for ever");
  }
  NoteForm(call, lock, form);
  task.irql = DISPATCH_LEVEL;
  if (*lock & kHeld) [[unlikely]] {
    SpinUntilFree(call, lock, form == kQueuedForm);
  }
  *lock |= kHeld;
  HeldLock held = HeldLockOf(call, lock, true, static_cast<LockId>(*lock));
  held.irqlBefore = static_cast<std::uint8_t>(irqlBefore);
  NoteLockTaken(call, held);
}

// Hands the lock to a queued waiter, or frees it and lets a plain waiter look again.
void WakeWaiter(KernelCall& call, PKSPIN_LOCK lock) {
  Wait* wait = call.kernel().state().waits.OldestOn(lock);
  if (!wait) {
    *lock &= ~(kHeld | kWaiters);
    return;
  }
  if (wait->queued) {
    wait->granted = true;
  } else {
    *lock &= ~kHeld;
  }
  call.scheduler().Wake(*wait->task);
}

void Release(KernelCall& call, PKSPIN_LOCK lock, unsigned newIrql) {
  if (!CheckLock(call, lock)) return;
  Task& task = call.task();
  const auto held =
      std::find_if(task.held.rbegin(), task.held.rend(), [&](const HeldLock& entry) { return entry.lock == lock; });
  if (held == task.held.rend()) {
    return call.Report(Rule::LockNotOwned, "the spin lock is released by a task that does not hold it");
  }
  if (newIrql != held->irqlBefore || task.irql != DISPATCH_LEVEL) {
    call.Report(Rule::IrqlLoweredWrongly, "the lock was taken at IRQL " + std::to_string(held->irqlBefore) +
                                              ", its release at " + std::to_string(task.irql) + " goes to " +
                                              std::to_string(newIrql));
  }
  task.held.erase(std::next(held).base());
  task.NoteHeldPlaces();
  for (const HeldLock& other : task.held) {
    if (other.spin && newIrql < DISPATCH_LEVEL) {
      call.Report(Rule::IrqlLoweredWrongly, "below DISPATCH_LEVEL with another spin lock held");
      break;
    }
  }
  task.irql = newIrql;
  if (*lock & kWaiters) [[unlikely]] {
    WakeWaiter(call, lock);
  } else {
    *lock &= ~kHeld;
  }
  call.EffectVisible();
}

}  // namespace

// Any IRQL.
VOID KeInitializeSpinLock(PKSPIN_LOCK SpinLock) {
  KernelCall call("KeInitializeSpinLock", HIGH_LEVEL);
  if (!SpinLock) return call.Report(Rule::InvalidArgument, "no spin lock");
  CheckNobodyWaits(call, SpinLock);
  *SpinLock = kSignature | call.kernel().state().lockOrder.NewLock(SpinLock, "spin lock", call.task().name());
}

// Up to DISPATCH_LEVEL; raises to it.
KIRQL KeAcquireSpinLockRaiseToDpc(PKSPIN_LOCK SpinLock) {
  KernelCall call("KeAcquireSpinLock", DISPATCH_LEVEL);
  const unsigned before = call.task().irql;
  Acquire(call, SpinLock, kPlainForm, before);
  return static_cast<KIRQL>(before);
}

// At DISPATCH_LEVEL, by the task that holds the lock, with the IRQL that the acquire call gave.
VOID KeReleaseSpinLock(PKSPIN_LOCK SpinLock, KIRQL NewIrql) {
  KernelCall call("KeReleaseSpinLock", DISPATCH_LEVEL);
  Release(call, SpinLock, NewIrql);
}

// At DISPATCH_LEVEL.
VOID KeAcquireSpinLockAtDpcLevel(PKSPIN_LOCK SpinLock) {
  KernelCall call("KeAcquireSpinLockAtDpcLevel", DISPATCH_LEVEL);
  if (call.task().irql != DISPATCH_LEVEL) {
    call.Report(Rule::IrqlRaisedWrongly, "the caller must already run at DISPATCH_LEVEL");
  }
  Acquire(call, SpinLock, kPlainForm, DISPATCH_LEVEL);
}

VOID KeReleaseSpinLockFromDpcLevel(PKSPIN_LOCK SpinLock) {
  KernelCall call("KeReleaseSpinLockFromDpcLevel", DISPATCH_LEVEL);
  Release(call, SpinLock, DISPATCH_LEVEL);
}

// Up to DISPATCH_LEVEL; raises to it. Waiters get the lock in the order in which they came.
VOID KeAcquireInStackQueuedSpinLock(PKSPIN_LOCK SpinLock, PKLOCK_QUEUE_HANDLE LockHandle) {
  KernelCall call("KeAcquireInStackQueuedSpinLock", DISPATCH_LEVEL);
  if (!LockHandle) return call.Report(Rule::InvalidArgument, "no lock handle");
  const unsigned before = call.task().irql;
  Acquire(call, SpinLock, kQueuedForm, before);
  LockHandle->LockQueue.Next = nullptr;
  LockHandle->LockQueue.Lock = SpinLock;
  LockHandle->OldIrql = static_cast<KIRQL>(before);
}

// At DISPATCH_LEVEL, with the handle of the acquire call.
VOID KeReleaseInStackQueuedSpinLock(PKLOCK_QUEUE_HANDLE LockHandle) {
  KernelCall call("KeReleaseInStackQueuedSpinLock", DISPATCH_LEVEL);
  if (!LockHandle || !LockHandle->LockQueue.Lock) {
    return call.Report(Rule::InvalidArgument, "the handle holds no lock");
  }
  Release(call, LockHandle->LockQueue.Lock, LockHandle->OldIrql);
  LockHandle->LockQueue.Lock = nullptr;
}
