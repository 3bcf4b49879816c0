// What a driver says about power: idle and wake settings, power references, the system power action.
#include "platform/device/device_node.h"
#include "platform/framework/wdf_device.h"

namespace platform {
namespace {

constexpr Time kDefaultIdleTimeout = 5 * kSecond;

IdleSettings ReadIdleSettings(KernelCall& call, const WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS& settings) {
  RequireArgument(call, settings.Size == sizeof(settings), "WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS.Size");
  RequireModelled(call, settings.IdleCaps == IdleCannotWakeFromS0 || settings.IdleCaps == IdleCanWakeFromS0,
                  "these idle capabilities");
  RequireModelled(call, settings.DxState == PowerDeviceMaximum || settings.DxState == PowerDeviceD3,
                  "an idle state other than D3");
  RequireModelled(call, settings.IdleTimeoutType == DriverManagedIdleTimeout, "a system-managed idle time-out");
  IdleSettings idle;
  idle.enabled = settings.Enabled != WdfFalse;
  idle.canWake = settings.IdleCaps == IdleCanWakeFromS0;
  idle.timeout = settings.IdleTimeout == 0 ? kDefaultIdleTimeout : settings.IdleTimeout * kMillisecond;
  return idle;
}

void RequireNotInPowerCallback(KernelCall& call, const DeviceNode& node) {
  if (RunsFor(call.task(), CallbackContext::Kind::Power, &node)) {
    ReportAndStop(call, Rule::PowerReferenceDeadlock,
                  "waiting for D0 in a power callback, which the device's way to D0 waits for");
  }
}

}  // namespace
}  // namespace platform

using namespace platform;

NTSTATUS WdfDeviceAssignS0IdleSettings(WDFDEVICE Device, PWDF_DEVICE_POWER_POLICY_IDLE_SETTINGS Settings) {
  KernelCall call("WdfDeviceAssignS0IdleSettings", PASSIVE_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  const IdleSettings idle = ReadIdleSettings(call, *Settings);
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  device.node.policy.Assign(idle);
  return STATUS_SUCCESS;
}

NTSTATUS WdfDeviceAssignSxWakeSettings(WDFDEVICE Device, PWDF_DEVICE_POWER_POLICY_WAKE_SETTINGS Settings) {
  KernelCall call("WdfDeviceAssignSxWakeSettings", PASSIVE_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  RequireArgument(call, Settings->Size == sizeof(WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS),
                  "WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS.Size");
  RequireModelled(call, Settings->DxState == PowerDeviceMaximum || Settings->DxState == PowerDeviceD3,
                  "a wake state other than D3");
  RequireModelled(call, !Settings->ArmForWakeIfChildrenAreArmedForWake && !Settings->IndicateChildWakeOnParentWake,
                  "wake settings that follow the children");
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  device.node.policy.ArmForSystemWake(Settings->Enabled != WdfFalse);
  return STATUS_SUCCESS;
}

NTSTATUS WdfDeviceStopIdleActual(WDFDEVICE Device, BOOLEAN WaitForD0, PVOID, LONG, PCCH) {
  KernelCall call("WdfDeviceStopIdle", WaitForD0 ? PASSIVE_LEVEL : DISPATCH_LEVEL);
  DeviceNode& node = Resolve<platform::Device>(call, Device).node;
  if (WaitForD0) RequireNotInPowerCallback(call, node);
  if (call.Fails()) return STATUS_POWER_STATE_INVALID;
  if (WaitForD0) return node.policy.ReferenceAndWait(call.scheduler()) ? STATUS_SUCCESS : STATUS_POWER_STATE_INVALID;
  return node.policy.Reference() ? STATUS_SUCCESS : STATUS_PENDING;
}

VOID WdfDeviceResumeIdleActual(WDFDEVICE Device, PVOID, LONG, PCCH) {
  KernelCall call("WdfDeviceResumeIdle", DISPATCH_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  if (!device.node.policy.Dereference()) {
    call.Report(Rule::PowerReferenceNotTaken, "the driver holds no power reference on the device");
  }
}

POWER_ACTION WdfDeviceGetSystemPowerAction(WDFDEVICE Device) {
  KernelCall call("WdfDeviceGetSystemPowerAction", DISPATCH_LEVEL);
  return static_cast<POWER_ACTION>(Resolve<platform::Device>(call, Device).node.policy.action);
}
