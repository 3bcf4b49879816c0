// IdleStopped and ReferenceTaken change by exchange only, so that each set of the one pairs with one reference.
#include "hostif/power.h"

#include "include/status.h"
#include "include/trace.h"

namespace {

DEVICE_EXTENSION* ContextOf(const USB4_DOMAIN* domain) {
  return DeviceContextOf(domain->HostInterface->Device);
}

void ReturnGrantedReference(USB4_DOMAIN* domain) {
  if (domain->ReferenceTaken.Exchange(0) != 0) WdfDeviceResumeIdle(domain->HostInterface->Device);
}

}  // namespace

NTSTATUS USB4SetIdleAndWakeSettings(DEVICE_EXTENSION* context, ULONG idleTimeoutMs) {
  WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS idle;
  WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS_INIT(&idle, IdleCanWakeFromS0);
  idle.IdleTimeout = idleTimeoutMs;
  NTSTATUS status = WdfDeviceAssignS0IdleSettings(context->Device, &idle);
  if (!NT_SUCCESS(status)) {
    TraceError("idle settings refused", "status", status);
    return status;
  }
  WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS wake;
  WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS_INIT(&wake);
  status = WdfDeviceAssignSxWakeSettings(context->Device, &wake);
  if (!NT_SUCCESS(status)) TraceError("wake settings refused", "status", status);
  return status;
}

void TakePowerReference(USB4_DOMAIN* domain, POWER_REFERENCE_REQUEST request) {
  DEVICE_EXTENSION* context = ContextOf(domain);
  if (context == nullptr || !domain->IdleStopped.ChangeFrom(0, 1)) return;
  const bool wait = request.WaitForD0 && context->Suspending.Load() == 0;
  const NTSTATUS status = WdfDeviceStopIdle(context->Device, wait ? TRUE : FALSE);
  if (!NT_SUCCESS(status)) {
    TraceWarning("the device may idle", "status", status);
    if (request.OnlyIfGranted) domain->IdleStopped.Store(0);
    return;
  }
  domain->ReferenceTaken.Store(1);
  // Given back by somebody else while it was being taken: the grant came too late for him to see it.
  if (domain->IdleStopped.Load() == 0) ReturnGrantedReference(domain);
}

bool GiveBackPowerReference(USB4_DOMAIN* domain) {
  if (domain->IdleStopped.Exchange(0) == 0) return false;
  ReturnGrantedReference(domain);
  return true;
}

void LetDeviceIdle(USB4_DOMAIN* domain) {
  DEVICE_EXTENSION* context = ContextOf(domain);
  if (context == nullptr || !GiveBackPowerReference(domain)) return;
  IgnoreResult(USB4SetIdleAndWakeSettings(context, kIdleTimeoutMs));  // traced; the earlier settings stay in force
}
