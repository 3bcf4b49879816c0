// Kernel mutexes: recursive, owned by a thread, released by their owner only.
//
// SignalState counts as published: 1 free, 0 taken once, -1 taken twice, ... OwnerThread is the owning task; the list
// entry, which nothing links here, holds the mutex's number in the lock order.
#include <algorithm>

#include "platform/host/host_kernel.h"
#include "platform/kernel/dispatcher_object.h"
#include "platform/kernel/ke_mutex.h"
#include "platform/kernel/kernel_state.h"

using namespace platform;

namespace {

_KTHREAD* AsThread(Task* task) {
  return reinterpret_cast<_KTHREAD*>(task);
}

HeldLock HeldOf(KernelCall& call, const KMUTEX& mutex) {
  return HeldLockOf(call, &mutex, false,
                    static_cast<LockId>(reinterpret_cast<std::uintptr_t>(mutex.MutantListEntry.Flink)));
}

// The new owner may not run yet, but the mutex is its own from now on.
void PassOn(KernelCall& call, KMUTEX& mutex) {
  Task* next = GrantOldest(call, mutex.Header);
  mutex.OwnerThread = AsThread(next);
  mutex.Header.SignalState = next ? 0 : 1;
}

}  // namespace

// Any IRQL. Level is reserved and must be 0.
VOID KeInitializeMutex(PRKMUTEX Mutex, ULONG Level) {
  KernelCall call("KeInitializeMutex", HIGH_LEVEL);
  if (!Mutex) return call.Report(Rule::InvalidArgument, "no mutex");
  if (Level != 0) call.Report(Rule::InvalidArgument, "Level is reserved and must be 0");
  CheckNobodyWaits(call, Mutex);
  InitialiseObject(Mutex->Header, ObjectKind::Mutex, 1);
  const LockId id = call.kernel().state().lockOrder.NewLock(Mutex, "mutex", call.task().name());
  Mutex->MutantListEntry.Flink = reinterpret_cast<LIST_ENTRY*>(static_cast<std::uintptr_t>(id));
  Mutex->MutantListEntry.Blink = nullptr;
  Mutex->OwnerThread = nullptr;
  Mutex->Abandoned = FALSE;
  Mutex->ApcDisable = 1;
}

// Up to DISPATCH_LEVEL, by the owner only. Returns the state before: 0 when this release frees it.
LONG KeReleaseMutex(PRKMUTEX Mutex, BOOLEAN Wait) {
  KernelCall call("KeReleaseMutex", DISPATCH_LEVEL);
  if (!CheckMutex(call, &Mutex->Header)) return 0;
  if (Wait) call.Report(Rule::NotModelled, "Wait is TRUE");
  Task& task = call.task();
  if (Mutex->OwnerThread != AsThread(&task)) {
    call.Report(Rule::LockNotOwned, "the mutex is released by a task that does not own it");
    return 0;
  }
  const LONG before = Mutex->Header.SignalState;
  if (before < 0) {
    ++Mutex->Header.SignalState;
    return before;
  }
  std::erase_if(task.held, [&](const HeldLock& held) { return held.lock == Mutex; });
  task.NoteHeldPlaces();
  PassOn(call, *Mutex);
  call.EffectVisible();
  return before;
}

bool platform::AcquireMutex(KernelCall& call, KMUTEX& mutex, Time deadline) {
  Task& task = call.task();
  if (mutex.OwnerThread == AsThread(&task)) {
    --mutex.Header.SignalState;
    return true;
  }
  const bool polls = deadline <= call.scheduler().Now();
  if (mutex.OwnerThread == nullptr) {
    mutex.OwnerThread = AsThread(&task);
    mutex.Header.SignalState = 0;
  } else if (polls || !WaitForGrant(call, mutex.Header, "a mutex", deadline)) {
    return false;
  }
  if (polls) {
    task.held.push_back(HeldOf(call, mutex));  // who only tries can't be part of a deadlock
    task.NoteHeldPlaces();
  } else {
    NoteLockTaken(call, HeldOf(call, mutex));
  }
  return true;
}
