// Which callback starts, suspends and stops what. They race only with the control receive handler and the work loop,
// which Suspending, the flush and PoweredDown keep in check.
#include "driver/power_callbacks.h"

#include "cm/bus.h"
#include "hostif/abort.h"
#include "hostif/domain.h"
#include "hostif/host_interface.h"
#include "hostif/work_items.h"
#include "include/device_context.h"
#include "include/status.h"
#include "include/trace.h"
#include "tunnel/display_power.h"

namespace {

// Null when the host interface or its rings are missing: preparation has then stopped early.
DEVICE_EXTENSION* UsableContext(const char* operation, WDFDEVICE device) {
  DEVICE_EXTENSION* context = DeviceContextOf(device);
  if (context == nullptr || context->HostInterface == nullptr || context->HostInterface->HopCount == 0) {
    TraceWarningBy(operation, "nothing to power");
    return nullptr;
  }
  return context;
}

void RememberWhy(WDFDEVICE device, USB4_DOMAIN* domain) {
  switch (WdfDeviceGetSystemPowerAction(device)) {
    case PowerActionSleep:
    case PowerActionHibernate:
      domain->RuntimeIdle.Set(false);
      break;
    case PowerActionNone:
      domain->RuntimeIdle.Set(true);
      break;
    default:
      break;
  }
}

// What a run that has ended or a start left signalled must not satisfy the next wait.
void EndSuspending(DEVICE_EXTENSION* context) {
  context->Suspending.Store(0);
  KeClearEvent(&context->Domain->BusEvent);
  KeClearEvent(&context->WorkDoneEvent);
}

void EnterD3(DEVICE_EXTENSION* context) {
  const PowerDownScope powerDown(*context->Domain);
  context->Suspending.Store(1);
  KivUsb4NotifyGfxDpTunnels(context, context->Domain, kDisplayEntersD3);
  KivUsb4FlushOrFreeWorkItem(context, false);
  KivUsb4BusSuspend(context->Domain);
  EndSuspending(context);
  context->PoweredDown.Set(true);
}

void EnterD3Final(DEVICE_EXTENSION* context) {
  const PowerDownScope powerDown(*context->Domain);
  context->Suspending.Store(1);
  KivUsb4FlushOrFreeWorkItem(context, false);
  context->PoweredDown.Set(false);
  KivUsb4BusStop(context->Domain, false);
  EndSuspending(context);
}

}  // namespace

const char* KivUsb4DevicePowerStateString(WDF_POWER_DEVICE_STATE state) {
  switch (state) {
    case WdfPowerDeviceD0:
      return "WdfPowerDeviceD0";
    case WdfPowerDeviceD1:
      return "WdfPowerDeviceD1";
    case WdfPowerDeviceD2:
      return "WdfPowerDeviceD2";
    case WdfPowerDeviceD3:
      return "WdfPowerDeviceD3";
    case WdfPowerDeviceD3Final:
      return "WdfPowerDeviceD3Final";
    case WdfPowerDevicePrepareForHibernation:
      return "WdfPowerDevicePrepareForHibernation";
    default:
      return "invalidPowerState";
  }
}

NTSTATUS USB4EvtDeviceD0Entry(WDFDEVICE device, WDF_POWER_DEVICE_STATE previousState) {
  TraceInfo("entering D0", "from", KivUsb4DevicePowerStateString(previousState));
  DEVICE_EXTENSION* context = UsableContext(__func__, device);
  if (context == nullptr) return kStatusOk;
  if (context->Domain == nullptr) TraceError("no domain");
  if (previousState == WdfPowerDeviceD3) context->PoweredDown.Set(false);
  return kStatusOk;
}

NTSTATUS USB4WdfDeviceD0EntryPostInterruptsEnabled(WDFDEVICE device, WDF_POWER_DEVICE_STATE previousState) {
  DEVICE_EXTENSION* context = DeviceContextOf(device);
  if (context == nullptr) return kStatusNoDomain;
  // Before the domain, which such a preparation never builds: a host interface without rings is not an error.
  if (UsableContext(__func__, device) == nullptr) return kStatusOk;
  USB4_DOMAIN* domain = context->Domain;
  if (domain == nullptr) return kStatusNoDomain;
  if (previousState == WdfPowerDeviceD3Final) {
    context->BusStartPending.Set(true);
    return KivUSB4DomainAdd(domain);
  }
  if (previousState == WdfPowerDeviceD3 && domain->ControlChannel != nullptr) {
    StartControlChannel(domain);
    StartBus(domain, true);
  }
  return kStatusOk;
}

NTSTATUS USB4WdfDeviceD0ExitPreInterruptsDisabled(WDFDEVICE device, WDF_POWER_DEVICE_STATE targetState) {
  TraceInfo("leaving D0", "to", KivUsb4DevicePowerStateString(targetState));
  DEVICE_EXTENSION* context = UsableContext(__func__, device);
  if (context == nullptr || context->Domain == nullptr) return kStatusOk;
  RememberWhy(device, context->Domain);
  if (targetState == WdfPowerDeviceD3) EnterD3(context);
  if (targetState == WdfPowerDeviceD3Final) EnterD3Final(context);
  return kStatusOk;
}

NTSTATUS USB4EvtDeviceD0Exit(WDFDEVICE device, WDF_POWER_DEVICE_STATE targetState) {
  TraceInfo("out of D0", "to", KivUsb4DevicePowerStateString(targetState));
  DEVICE_EXTENSION* context = UsableContext(__func__, device);
  if (context == nullptr || context->Domain == nullptr) return kStatusOk;
  if (targetState < WdfPowerDeviceD1 || targetState > WdfPowerDeviceD3) return kStatusOk;
  const PowerDownScope powerDown(*context->Domain);
  StopControlChannel(context->Domain);
  KivUsb4BusStop(context->Domain, true);
  KivUsb4MaskInterrupts(*context->HostInterface);
  return kStatusOk;
}
