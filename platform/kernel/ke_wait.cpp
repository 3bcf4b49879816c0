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

bool WaitForEvent(KernelCall& call, KEVENT& event, Time deadline) {
  DISPATCHER_HEADER& header = event.Header;
  if (header.SignalState != 0) {
    if (KindOf(header) == ObjectKind::SynchronizationEvent) header.SignalState = 0;
    return true;
  }
  if (deadline <= call.scheduler().Now()) return false;
  return WaitForGrant(call, header, "an event", deadline);
}

}  // namespace

// DISPATCH_LEVEL with a time-out of 0, else up to APC_LEVEL. Negative time-outs are relative; absolute ones and
// user-mode waits are not modelled. An alertable wait is an ordinary one: nobody here queues a call to a thread.
NTSTATUS KeWaitForSingleObject(PVOID Object, KWAIT_REASON WaitReason, KPROCESSOR_MODE WaitMode, BOOLEAN,
                               PLARGE_INTEGER Timeout) {
  KernelCall call("KeWaitForSingleObject", DISPATCH_LEVEL);
  if (WaitReason != Executive) call.Report(Rule::InvalidArgument, "a driver waits for the reason Executive");
  if (WaitMode != KernelMode) call.Report(Rule::NotModelled, "a wait in user mode");
  Time deadline = kNever;
  if (Timeout) {
    if (Timeout->QuadPart > 0) call.Report(Rule::NotModelled, "an absolute time-out");
    deadline = call.scheduler().Now() - Timeout->QuadPart;
  }
  if (!Timeout || Timeout->QuadPart != 0) CheckMayBlock(call);
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
