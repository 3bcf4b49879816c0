// Waiting for an event or a mutex.
#include "platform/host/host_kernel.h"
#include "platform/kernel/dispatcher_object.h"
#include "platform/kernel/ke_mutex.h"

using namespace platform;

namespace {

bool HoldsSpinLock(const Task& task) {
  for (const HeldLock& held : task.held) {
    if (held.spin) return true;
  }
  return false;
}

// A wait that may block is legal up to APC_LEVEL and never with a spin lock held.
void CheckMayBlock(KernelCall& call) {
  if (HoldsSpinLock(call.task())) {
    call.Report(Rule::WaitWithSpinLock, "a wait that may block, with a spin lock held");
  } else if (call.task().irql > APC_LEVEL) {
    call.Report(Rule::IrqlTooHigh, "a wait that may block, at IRQL " + std::to_string(call.task().irql));
  }
}

// What every wait checks. The time at which it ends.
Time DeadlineOf(KernelCall& call, KWAIT_REASON reason, KPROCESSOR_MODE mode, const LARGE_INTEGER* timeout) {
  if (reason != Executive) call.Report(Rule::InvalidArgument, "a driver waits for the reason Executive");
  if (mode != KernelMode) call.Report(Rule::NotModelled, "a wait in user mode");
  if (!timeout || timeout->QuadPart != 0) CheckMayBlock(call);
  if (!timeout) return kNever;
  if (timeout->QuadPart > 0) call.Report(Rule::NotModelled, "an absolute time-out");
  return call.scheduler().Now() - timeout->QuadPart;
}

// False when the event is not signalled.
bool TakeSignal(KEVENT& event) {
  DISPATCHER_HEADER& header = event.Header;
  if (header.SignalState == 0) return false;
  if (KindOf(header) == ObjectKind::SynchronizationEvent) header.SignalState = 0;
  return true;
}

bool WaitForEvent(KernelCall& call, KEVENT& event, Time deadline) {
  if (TakeSignal(event)) return true;
  if (deadline <= call.scheduler().Now()) return false;
  return WaitForGrant(call, event.Header, "an event", deadline);
}

}  // namespace

// DISPATCH_LEVEL with a time-out of 0, else up to APC_LEVEL. Negative time-outs are relative; absolute ones and
// user-mode waits are not modelled. An alertable wait is an ordinary one: nobody here queues a call to a thread.
NTSTATUS KeWaitForSingleObject(PVOID Object, KWAIT_REASON WaitReason, KPROCESSOR_MODE WaitMode, BOOLEAN,
                               PLARGE_INTEGER Timeout) {
  KernelCall call("KeWaitForSingleObject", DISPATCH_LEVEL);
  const Time deadline = DeadlineOf(call, WaitReason, WaitMode, Timeout);
  auto* header = static_cast<DISPATCHER_HEADER*>(Object);
  if (!header || !IsInitialised(*header)) {
    call.Report(Rule::ObjectUninitialised, "the object was never initialised, or its memory was written over or moved");
    return STATUS_INVALID_PARAMETER;
  }
  const bool granted = KindOf(*header) == ObjectKind::Mutex
                           ? AcquireMutex(call, *static_cast<KMUTEX*>(Object), deadline)
                           : WaitForEvent(call, *static_cast<KEVENT*>(Object), deadline);
  return granted ? STATUS_SUCCESS : STATUS_TIMEOUT;
}

// As for one object. The index of the event that ended the wait, the lowest one when several are signalled. Waiting for
// all, for mutexes and with wait blocks of the caller's are not modelled.
NTSTATUS KeWaitForMultipleObjects(ULONG Count, PVOID Object[], WAIT_TYPE WaitType, KWAIT_REASON WaitReason,
                                  KPROCESSOR_MODE WaitMode, BOOLEAN, PLARGE_INTEGER Timeout,
                                  PKWAIT_BLOCK WaitBlockArray) {
  KernelCall call("KeWaitForMultipleObjects", DISPATCH_LEVEL);
  if (Count == 0 || Count > THREAD_WAIT_OBJECTS) {
    call.Report(Rule::InvalidArgument, "no object, or more than the wait blocks of a thread");
    return STATUS_INVALID_PARAMETER;
  }
  if (WaitType != WaitAny) call.Report(Rule::NotModelled, "a wait for all objects");
  if (WaitBlockArray) call.Report(Rule::NotModelled, "wait blocks of the caller's");
  const Time deadline = DeadlineOf(call, WaitReason, WaitMode, Timeout);
  for (ULONG i = 0; i < Count; ++i) {
    if (!CheckEvent(call, static_cast<DISPATCHER_HEADER*>(Object[i]))) return STATUS_INVALID_PARAMETER;
  }
  for (ULONG i = 0; i < Count; ++i) {
    if (TakeSignal(*static_cast<KEVENT*>(Object[i]))) return STATUS_WAIT_0 + static_cast<NTSTATUS>(i);
  }
  if (deadline <= call.scheduler().Now()) return STATUS_TIMEOUT;
  const auto granted = WaitForAnyGrant(call, {Object, Count}, "one of several events", deadline);
  return granted ? STATUS_WAIT_0 + static_cast<NTSTATUS>(*granted) : STATUS_TIMEOUT;
}

// Up to APC_LEVEL. A negative interval is relative; 0 lets others run. Absolute times are not modelled.
NTSTATUS KeDelayExecutionThread(KPROCESSOR_MODE WaitMode, BOOLEAN, PLARGE_INTEGER Interval) {
  KernelCall call("KeDelayExecutionThread", DISPATCH_LEVEL);
  CheckMayBlock(call);
  if (WaitMode != KernelMode) call.Report(Rule::NotModelled, "a wait in user mode");
  if (!Interval) {
    call.Report(Rule::InvalidArgument, "no interval");
    return STATUS_INVALID_PARAMETER;
  }
  if (Interval->QuadPart > 0) call.Report(Rule::NotModelled, "an absolute time");
  if (Interval->QuadPart == 0) {
    call.scheduler().Yield();
  } else {
    call.scheduler().Park("a delay", nullptr, call.scheduler().Now() - Interval->QuadPart);
  }
  return STATUS_SUCCESS;
}
