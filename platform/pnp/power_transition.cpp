#include "platform/pnp/power_transition.h"

#include "platform/framework/wdf_interrupt.h"
#include "platform/framework/wdf_queue.h"

namespace platform {

void EmitPower(DeviceNode& node, const char* step) {
  Simulation& simulation = node.simulation();
  if (!simulation.HasSinks()) return;
  TraceRecord record{};
  record.kind = TraceKind::Power;
  record.when = simulation.Now();
  record.kernel = &node.kernel();
  record.name = step;
  record.value = node.id();
  simulation.Emit(record);
}

namespace {

Status ConnectInterrupts(Device& device) {
  for (Interrupt* interrupt : device.interrupts) {
    if (const Status status = interrupt->Connect(); !NT_SUCCESS(status)) return status;
  }
  return STATUS_SUCCESS;
}

void RequireSuccess(Device& device, Status status, const char* what) {
  if (!NT_SUCCESS(status)) device.kernel().simulation().Report(Rule::NotModelled, what);
}

void DisconnectInterrupts(Device& device) {
  for (auto interrupt = device.interrupts.rbegin(); interrupt != device.interrupts.rend(); ++interrupt) {
    RequireSuccess(device, (*interrupt)->Disconnect(), "a failing EvtInterruptDisable");
  }
}

}  // namespace

Status EnterD0(Device& device, WDF_POWER_DEVICE_STATE previous) {
  DeviceNode& node = device.node;
  const WDF_PNPPOWER_EVENT_CALLBACKS& callbacks = device.callbacks;
  node.policy.Enter(PowerPhase::GoingUp);
  node.SetFunctionPower(FunctionPower::D0);
  node.SetRegisterAccess(RegisterAccess::Allowed);
  Status status = CallPower(device, "EvtDeviceD0Entry", callbacks.EvtDeviceD0Entry, previous);
  if (NT_SUCCESS(status)) {
    status = ConnectInterrupts(device);
    if (NT_SUCCESS(status)) {
      status = CallPower(device, "EvtDeviceD0EntryPostInterruptsEnabled",
                         callbacks.EvtDeviceD0EntryPostInterruptsEnabled, previous);
    }
    if (!NT_SUCCESS(status)) {
      DisconnectInterrupts(device);
      (void)CallPower(device, "EvtDeviceD0Exit", callbacks.EvtDeviceD0Exit, WdfPowerDeviceD3Final);
    }
  }
  if (!NT_SUCCESS(status)) {
    node.policy.Enter(PowerPhase::Off);
    return status;
  }
  node.policy.Enter(PowerPhase::D0);
  node.power = DevicePower::D0;
  EmitPower(node, "D0");
  for (Queue* queue : device.queues) queue->PresentHeld();
  return STATUS_SUCCESS;
}

void LeaveD0(Device& device, WDF_POWER_DEVICE_STATE target) {
  DeviceNode& node = device.node;
  const WDF_PNPPOWER_EVENT_CALLBACKS& callbacks = device.callbacks;
  node.policy.Enter(PowerPhase::GoingDown);
  WaitForRequests(device, Requests::PowerManaged);
  RequireSuccess(
      device,
      CallPower(device, "EvtDeviceD0ExitPreInterruptsDisabled", callbacks.EvtDeviceD0ExitPreInterruptsDisabled, target),
      "a failing EvtDeviceD0ExitPreInterruptsDisabled");
  DisconnectInterrupts(device);
  RequireSuccess(device, CallPower(device, "EvtDeviceD0Exit", callbacks.EvtDeviceD0Exit, target),
                 "a failing EvtDeviceD0Exit");
  if (target == WdfPowerDeviceD3Final) {
    node.policy.Enter(PowerPhase::Off);
    return;
  }
  node.SetRegisterAccess(RegisterAccess::PoweredDown);
  const bool off = node.policy.action == SystemPowerAction::Hibernate;
  node.SetFunctionPower(off ? FunctionPower::Off : FunctionPower::D3Hot);
  node.power = off ? DevicePower::Off : DevicePower::D3;
  EmitPower(node, off ? "off" : "D3");
  node.policy.Enter(PowerPhase::Dx);
}

}  // namespace platform
