#include "platform/framework/wdf_interrupt.h"

#include "platform/device/device_node.h"
#include "platform/framework/wdf_device.h"
#include "platform/framework/wdf_resources.h"

namespace platform {

Interrupt::Interrupt(Device& owner, const WDF_INTERRUPT_CONFIG& asked, unsigned messageNumber)
    : Object(owner.kernel(), kType),
      MessageTarget(messageNumber),
      device(owner),
      config(asked),
      hardwareLifetime(owner.preparing),
      service_(kernel(), "interrupt " + std::to_string(messageNumber), [this] { Service(); }),
      workItem_(kernel(), "interrupt work item " + std::to_string(messageNumber), [this] { RunWorkItem(); }) {}

void Interrupt::Release() {
  std::erase(device.interrupts, this);
  service_.Stop();
  workItem_.Stop();
}

bool Interrupt::InsertDpc() {
  if (dpcQueued_ || workItem_.Queued()) return false;
  dpcQueued_ = true;
  return true;
}

template <class Routine>
auto Interrupt::AtIrql(unsigned irql, const char* name, Routine&& routine) {
  struct Raised {
    Task& task;
    ~Raised() { task.irql = PASSIVE_LEVEL; }
  } raised{*Scheduler::Current()};
  raised.task.irql = irql;
  return CallDriver(kernel(), name, routine);
}

void Interrupt::Service() {
  if (!connected_) return;
  const WDFINTERRUPT handle = Handle<WDFINTERRUPT>();
  AtIrql(kDeviceIrql, "EvtInterruptIsr", [&] { return config.EvtInterruptIsr(handle, message); });
  kernel().simulation().scheduler().SwitchPoint();
  if (dpcQueued_) RunDpc();
}

void Interrupt::RunDpc() {
  dpcQueued_ = false;
  if (config.EvtInterruptDpc == nullptr) {
    workItem_.Queue();
    return;
  }
  const WDFINTERRUPT handle = Handle<WDFINTERRUPT>();
  AtIrql(DISPATCH_LEVEL, "EvtInterruptDpc", [&] { config.EvtInterruptDpc(handle, device.handle()); });
}

void Interrupt::RunWorkItem() {
  const WDFINTERRUPT handle = Handle<WDFINTERRUPT>();
  CallDriver(kernel(), "EvtInterruptWorkItem", [&] { config.EvtInterruptWorkItem(handle, device.handle()); });
}

Status Interrupt::Connect() {
  device.node.Connect(*this);
  connected_ = true;
  if (config.EvtInterruptEnable == nullptr) return STATUS_SUCCESS;
  const WDFINTERRUPT handle = Handle<WDFINTERRUPT>();
  return AtIrql(kDeviceIrql, "EvtInterruptEnable", [&] { return config.EvtInterruptEnable(handle, device.handle()); });
}

Status Interrupt::Disconnect() {
  if (!connected_) return STATUS_SUCCESS;
  Status status = STATUS_SUCCESS;
  if (config.EvtInterruptDisable) {
    const WDFINTERRUPT handle = Handle<WDFINTERRUPT>();
    status =
        AtIrql(kDeviceIrql, "EvtInterruptDisable", [&] { return config.EvtInterruptDisable(handle, device.handle()); });
  }
  device.node.Disconnect(*this);
  connected_ = false;
  Scheduler& scheduler = kernel().simulation().scheduler();
  service_.WaitIdle(scheduler, "an interrupt's service routine");
  workItem_.WaitIdle(scheduler, "an interrupt's work item");
  return status;
}

namespace {

void CheckConfig(KernelCall& call, const WDF_INTERRUPT_CONFIG& config) {
  RequireArgument(call, config.Size == sizeof(config), "WDF_INTERRUPT_CONFIG.Size");
  RequireArgument(call, config.EvtInterruptIsr != nullptr, "an interrupt without a service routine");
  RequireArgument(call, !config.EvtInterruptDpc || !config.EvtInterruptWorkItem,
                  "an interrupt has a DPC routine or a work-item routine, not both");
  RequireModelled(call, !config.PassiveHandling && !config.WaitLock, "passive-level service routines");
  RequireModelled(call, !config.SpinLock && !config.AutomaticSerialization && !config.FloatingSave,
                  "an interrupt's own lock, automatic serialisation or floating point");
  RequireModelled(call, config.ShareVector != WdfTrue && !config.CanWakeDevice, "shared vectors or wake interrupts");
}

// The message whose descriptor the driver passes; without descriptors the next one in the device's list.
unsigned MessageFor(KernelCall& call, const Device& device, const WDF_INTERRUPT_CONFIG& config) {
  const std::vector<Resource>& resources = device.node.config().resources;
  if (device.preparing) {
    const std::size_t index = device.IndexOfDescriptors(config.InterruptRaw, config.InterruptTranslated);
    if (index >= resources.size() || resources[index].kind != Resource::Kind::Interrupt) {
      ReportAndStop(call, Rule::InvalidArgument, "InterruptRaw and InterruptTranslated are no interrupt of the device");
    }
    return resources[index].message;
  }
  std::size_t before = device.interrupts.size();
  for (const Resource& resource : resources) {
    if (resource.kind == Resource::Kind::Interrupt && before-- == 0) return resource.message;
  }
  ReportAndStop(call, Rule::InvalidArgument, "the device has no interrupt left");
}

}  // namespace
}  // namespace platform

using namespace platform;

NTSTATUS WdfInterruptCreate(WDFDEVICE Device, PWDF_INTERRUPT_CONFIG Configuration, PWDF_OBJECT_ATTRIBUTES Attributes,
                            WDFINTERRUPT* Interrupt) {
  KernelCall call("WdfInterruptCreate", PASSIVE_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  CheckConfig(call, *Configuration);
  RequireArgument(call, device.preparing || device.node.state == PnpState::Removed,
                  "interrupts are made in device add or in prepare hardware");
  const unsigned message = MessageFor(call, device, *Configuration);
  const ObjectOptions options = ReadAttributes(call, Attributes, &device);
  RequireArgument(call, options.parent == &device, "an interrupt's parent is its device");
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  auto object = std::make_unique<platform::Interrupt>(device, *Configuration, message);
  platform::Interrupt& interrupt = call.kernel().objects().Add(std::move(object), options);
  device.interrupts.push_back(&interrupt);
  *Interrupt = interrupt.Handle<WDFINTERRUPT>();
  return STATUS_SUCCESS;
}

WDFDEVICE WdfInterruptGetDevice(WDFINTERRUPT Interrupt) {
  KernelCall call("WdfInterruptGetDevice", HIGH_LEVEL);
  return Resolve<platform::Interrupt>(call, Interrupt).device.handle();
}

VOID WdfInterruptGetInfo(WDFINTERRUPT Interrupt, PWDF_INTERRUPT_INFO Info) {
  KernelCall call("WdfInterruptGetInfo", DISPATCH_LEVEL);
  RequireArgument(call, Info->Size == sizeof(WDF_INTERRUPT_INFO), "WDF_INTERRUPT_INFO.Size");
  const platform::Interrupt& interrupt = Resolve<platform::Interrupt>(call, Interrupt);
  Info->TargetProcessorSet = 1;
  Info->MessageNumber = interrupt.message;
  Info->Vector = FirstVector + interrupt.message;
  Info->Irql = kDeviceIrql;
  Info->Mode = Latched;
  Info->Polarity = WdfInterruptActiveHigh;
  Info->MessageSignaled = TRUE;
}

BOOLEAN WdfInterruptQueueDpcForIsr(WDFINTERRUPT Interrupt) {
  KernelCall call("WdfInterruptQueueDpcForIsr", HIGH_LEVEL);
  return Resolve<platform::Interrupt>(call, Interrupt).InsertDpc();
}

BOOLEAN WdfInterruptQueueWorkItemForIsr(WDFINTERRUPT Interrupt) {
  KernelCall call("WdfInterruptQueueWorkItemForIsr", HIGH_LEVEL);
  platform::Interrupt& interrupt = Resolve<platform::Interrupt>(call, Interrupt);
  RequireArgument(call, interrupt.config.EvtInterruptWorkItem != nullptr, "the interrupt has no work-item routine");
  return interrupt.InsertDpc();
}
