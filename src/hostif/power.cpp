// The domain's power reference: one word whose every change is a compare-exchange. Under any interleaving there is one
// ResumeIdle for each successful StopIdle.
#include "hostif/power.h"

#include "include/status.h"
#include "include/trace.h"

namespace {

// The word of a reference that is being taken becomes `settled`, unless somebody has given it back meanwhile: then it
// becomes none. True when it settled.
bool Settle(AtomicLong& reference, LONG settled) {
  for (;;) {
    if (reference.ChangeFrom(kReferenceBeingTaken, settled)) return true;
    if (reference.ChangeFrom(kReferenceUnwanted, kReferenceNone)) return false;
  }
}

// True when it is the caller who must ask the framework. A reference that somebody is about to let go of is taken over.
bool BeginTaking(AtomicLong& reference) {
  for (;;) {
    const LONG state = reference.Load();
    if (state != kReferenceNone && state != kReferenceUnwanted) return false;
    if (reference.ChangeFrom(state, kReferenceBeingTaken)) return state == kReferenceNone;
  }
}

}  // namespace

NTSTATUS USB4SetIdleAndWakeSettings(DEVICE_EXTENSION* context, ULONG idleTimeoutMs) {
  WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS idle;
  WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS_INIT(&idle, IdleCanWakeFromS0);
  idle.IdleTimeout = idleTimeoutMs;
  NTSTATUS status = WdfDeviceAssignS0IdleSettings(context->Device, &idle);
  if (!NT_SUCCESS(status)) {
    TraceError("idle settings refused", "status", AsStatus(status));
    return status;
  }
  WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS wake;
  WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS_INIT(&wake);
  status = WdfDeviceAssignSxWakeSettings(context->Device, &wake);
  if (!NT_SUCCESS(status)) TraceError("wake settings refused", "status", AsStatus(status));
  return status;
}

void TakePowerReference(USB4_DOMAIN* domain, POWER_REFERENCE_REQUEST request) {
  _Analysis_assume_lock_not_held_(domain->PathLock);
  DEVICE_EXTENSION* context = ContextOf(domain);
  if (context == nullptr || !BeginTaking(domain->IdleStopped)) return;
  const bool wait = request.WaitForD0 && context->Suspending.Load() == 0;
  const NTSTATUS status = WdfDeviceStopIdle(context->Device, wait ? TRUE : FALSE);
  if (NT_SUCCESS(status)) {
    if (!Settle(domain->IdleStopped, kReferenceHeld)) WdfDeviceResumeIdle(context->Device);
    return;
  }
  TraceWarning("the device may idle", "status", AsStatus(status));
  IgnoreResult(Settle(domain->IdleStopped, request.OnlyIfGranted ? kReferenceNone : kReferenceRefused));
}

bool PowerReferenceIsHeld(USB4_DOMAIN* domain) {
  const LONG state = domain->IdleStopped.Load();
  return state != kReferenceNone && state != kReferenceUnwanted;
}

bool GiveBackPowerReference(USB4_DOMAIN* domain) {
  AtomicLong& reference = domain->IdleStopped;
  while (PowerReferenceIsHeld(domain)) {
    if (reference.ChangeFrom(kReferenceHeld, kReferenceNone)) {
      WdfDeviceResumeIdle(domain->HostInterface->Device);
      return true;
    }
    if (reference.ChangeFrom(kReferenceBeingTaken, kReferenceUnwanted)) return true;
    if (reference.ChangeFrom(kReferenceRefused, kReferenceNone)) return true;
  }
  return false;
}

void LetDeviceIdle(USB4_DOMAIN* domain) {
  DEVICE_EXTENSION* context = ContextOf(domain);
  if (context == nullptr || !GiveBackPowerReference(domain)) return;
  IgnoreResult(USB4SetIdleAndWakeSettings(context, kIdleTimeoutMs));  // traced; the earlier settings stay in force
}
