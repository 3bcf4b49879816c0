#include "platform/pnp/pnp_manager.h"

#include <algorithm>
#include <utility>

#include "platform/framework/wdf_driver.h"
#include "platform/framework/wdf_interrupt.h"
#include "platform/framework/wdf_queue.h"
#include "platform/framework/wdf_resources.h"
#include "platform/pnp/power_transition.h"

namespace platform {
namespace {

class TransitionScope {
 public:
  TransitionScope(HostKernel& kernel, TransitionLock& lock) : scheduler_(kernel.simulation().scheduler()), lock_(lock) {
    lock_.Acquire(scheduler_);
  }
  ~TransitionScope() { lock_.Release(scheduler_); }
  TransitionScope(const TransitionScope&) = delete;
  TransitionScope& operator=(const TransitionScope&) = delete;

 private:
  Scheduler& scheduler_;
  TransitionLock& lock_;
};

}  // namespace

// Holds the system awake.
class PnpManager::AwakeScope {
 public:
  explicit AwakeScope(PnpManager& pnp) : pnp_(pnp), scheduler_(pnp.kernel_.simulation().scheduler()) {
    for (pnp_.systemTransition_.Acquire(scheduler_); pnp_.systemAsleep_; pnp_.systemTransition_.Acquire(scheduler_)) {
      pnp_.systemTransition_.Release(scheduler_);
      // Woken once for each resume, also when the next sleep has begun before this task gets to run.
      pnp_.waitingForResume_.push_back(Scheduler::Current());
      while (Waits(*Scheduler::Current())) scheduler_.Park("the system sleeps", &pnp_);
    }
  }
  ~AwakeScope() { pnp_.systemTransition_.Release(scheduler_); }
  AwakeScope(const AwakeScope&) = delete;
  AwakeScope& operator=(const AwakeScope&) = delete;

 private:
  bool Waits(const Task& task) const {
    return std::find(pnp_.waitingForResume_.begin(), pnp_.waitingForResume_.end(), &task) !=
           pnp_.waitingForResume_.end();
  }

  PnpManager& pnp_;
  Scheduler& scheduler_;
};

DeviceNode& PnpManager::Add(const DeviceConfig& config) {
  nodes_.push_back(std::make_unique<DeviceNode>(kernel_, *this, static_cast<DeviceId>(nodes_.size() + 1), config));
  nodes_.back()->Attach();
  return *nodes_.back();
}

DeviceNode* PnpManager::Find(DeviceId id) const {
  return id >= 1 && id <= nodes_.size() ? nodes_[id - 1].get() : nullptr;
}

bool PnpManager::HasDevice() const {
  return std::any_of(nodes_.begin(), nodes_.end(), [](const auto& node) { return node->device != nullptr; });
}

bool PnpManager::Busy() const {
  return verbs > 0 || systemTransition_.Busy() || std::any_of(nodes_.begin(), nodes_.end(), [](const auto& node) {
           return node->transition.Busy() || node->policy.WorkerBusy();
         });
}

// --- start ---

Status PnpManager::Start(DeviceNode& node) {
  AwakeScope awake(*this);
  TransitionScope scope(kernel_, node.transition);
  if (node.state == PnpState::Started) return STATUS_SUCCESS;
  node.Appear();
  Status status = AddDevice(node);
  if (NT_SUCCESS(status)) status = StartDevice(node);
  if (!NT_SUCCESS(status)) {
    node.state = PnpState::Failed;
    EmitPower(node, "failed");
  }
  return status;
}

Status PnpManager::AddDevice(DeviceNode& node) {
  KernelCall call("device add", PASSIVE_LEVEL, KernelCall::Silent);
  Driver& driver = *kernel_.driver().object;
  const PWDFDEVICE_INIT init = kernel_.deviceInits().Create(node);
  const Status status = CallDriver(kernel_, "EvtDriverDeviceAdd",
                                   [&] { return driver.config.EvtDriverDeviceAdd(driver.Handle<WDFDRIVER>(), init); });
  kernel_.deviceInits().Free(init);
  if (NT_SUCCESS(status)) {
    RequireArgument(call, node.device != nullptr, "device add succeeds without a device");
    node.state = PnpState::Added;
    node.device->acceptsRequests = true;
  } else {
    if (node.device) kernel_.objects().Delete(call, *node.device);
    node.SetFunctionPower(FunctionPower::D3Hot);
  }
  return status;
}

Status PnpManager::StartDevice(DeviceNode& node) {
  Status status = PrepareHardware(*node.device);
  if (NT_SUCCESS(status)) status = EnterD0(*node.device, WdfPowerDeviceD3Final);
  if (!NT_SUCCESS(status)) {
    TearDown(node, PnpState::Failed);
    return status;
  }
  node.state = PnpState::Started;
  EmitPower(node, "started");
  return STATUS_SUCCESS;
}

Status PnpManager::PrepareHardware(Device& device) {
  const std::vector<Resource>& resources = device.node.config().resources;
  const auto makeList = [&](ResourceList::Form form) {
    return &kernel_.objects().Add(std::make_unique<ResourceList>(kernel_, resources, form),
                                  ObjectOptions{.parent = &device});
  };
  device.rawResources = makeList(ResourceList::Form::Raw);
  device.translatedResources = makeList(ResourceList::Form::Translated);
  device.preparing = true;
  const Status status =
      CallPower(device, "EvtDevicePrepareHardware", device.callbacks.EvtDevicePrepareHardware,
                device.rawResources->Handle<WDFCMRESLIST>(), device.translatedResources->Handle<WDFCMRESLIST>());
  device.preparing = false;
  return status;
}

// --- removal ---

void PnpManager::ReleaseHardware(Device& device) {
  KernelCall call("release hardware", PASSIVE_LEVEL, KernelCall::Silent);
  const Status status = CallPower(device, "EvtDeviceReleaseHardware", device.callbacks.EvtDeviceReleaseHardware,
                                  device.translatedResources->Handle<WDFCMRESLIST>());
  if (!NT_SUCCESS(status)) EmitPower(device.node, "release hardware failed");
  const std::vector<Interrupt*> interrupts = device.interrupts;
  for (Interrupt* interrupt : interrupts) {
    if (interrupt->hardwareLifetime) kernel_.objects().Delete(call, *interrupt);
  }
  kernel_.objects().Delete(call, *device.rawResources);
  kernel_.objects().Delete(call, *device.translatedResources);
}

void PnpManager::TearDown(DeviceNode& node, PnpState endState) {
  KernelCall call("device removal", PASSIVE_LEVEL, KernelCall::Silent);
  Device& device = *node.device;
  device.acceptsRequests = false;
  node.policy.Enter(PowerPhase::Off);
  ReleaseHardware(device);
  for (Queue* queue : device.queues) queue->CancelAll(call);
  WaitForRequests(device, Requests::All);
  // One left over is what a driver that goes with its device may do; the sinks are told.
  if (node.policy.References() != 0) EmitPower(node, "power references left");
  kernel_.objects().Delete(call, device);
  if (node.busInterfaceReferences != 0) {
    call.Report(Rule::HandleLeak, "the bus interface is not given back", node.busInterfaceReferences);
  }
  node.policy.Reset();
  node.SetFunctionPower(FunctionPower::D3Hot);
  node.power = DevicePower::Off;
  node.state = endState;
  EmitPower(node, endState == PnpState::Failed ? "failed" : "removed");
}

void PnpManager::Remove(DeviceNode& node) {
  AwakeScope awake(*this);
  TransitionScope scope(kernel_, node.transition);
  // A device that idles is brought to D0 first, so that its driver can take leave of the hardware.
  if (node.state == PnpState::Started && node.policy.phase() == PowerPhase::Dx) Resume(node);
  if (node.state == PnpState::Started) {
    node.device->acceptsRequests = false;
    if (node.policy.phase() == PowerPhase::D0) LeaveD0(*node.device, WdfPowerDeviceD3Final);
    TearDown(node, PnpState::Removed);
  }
  node.state = PnpState::Removed;
}

// Torn out, and so without supply.
void PnpManager::BeginSurpriseRemoval(DeviceNode& node) {
  node.SetFunctionPower(FunctionPower::Off);
  node.SetRegisterAccess(RegisterAccess::Gone);
  node.gone = true;
}

void PnpManager::FinishSurpriseRemoval(DeviceNode& node) {
  TransitionScope scope(kernel_, node.transition);
  if (node.state == PnpState::Started) {
    Device& device = *node.device;
    device.acceptsRequests = false;
    if (device.callbacks.EvtDeviceSurpriseRemoval) {
      CallbackContextScope context(CallbackContext::Kind::Power, &node);
      CallDriver(kernel_, "EvtDeviceSurpriseRemoval",
                 [&] { device.callbacks.EvtDeviceSurpriseRemoval(device.handle()); });
    }
    if (node.policy.phase() == PowerPhase::D0) LeaveD0(device, WdfPowerDeviceD3Final);
    TearDown(node, PnpState::SurpriseRemoved);
  }
  node.state = PnpState::SurpriseRemoved;
}

// --- power ---

void PnpManager::IdleDown(DeviceNode& node) {
  TransitionScope scope(kernel_, node.transition);
  if (node.policy.phase() != PowerPhase::D0 || !node.policy.IdleDue() || systemAsleep_) return;
  LeaveD0(*node.device, WdfPowerDeviceD3);
}

void PnpManager::WakeUp(DeviceNode& node) {
  TransitionScope scope(kernel_, node.transition);
  if (node.policy.phase() == PowerPhase::Dx && node.policy.WantsD0()) Resume(node);
}

// A device that does not come back is removed.
void PnpManager::Resume(DeviceNode& node) {
  if (!NT_SUCCESS(EnterD0(*node.device, WdfPowerDeviceD3))) TearDown(node, PnpState::Failed);
}

void PnpManager::RunSystemRequests() {
  TransitionScope system(kernel_, systemTransition_);
  while (!systemRequests_.empty()) {
    const std::optional<SystemPowerAction> sleep = systemRequests_.front();
    systemRequests_.pop_front();
    sleep ? SystemSleep(*sleep) : SystemResume();
  }
}

void PnpManager::SystemSleep(SystemPowerAction action) {
  if (systemAsleep_) return;
  systemAsleep_ = true;
  for (auto node = nodes_.rbegin(); node != nodes_.rend(); ++node) {
    TransitionScope scope(kernel_, (*node)->transition);
    PowerPolicy& policy = (*node)->policy;
    if (policy.phase() == PowerPhase::D0) {
      policy.action = action;
      LeaveD0(*(*node)->device, WdfPowerDeviceD3);
      policy.action = SystemPowerAction::None;
    } else if (policy.phase() == PowerPhase::Dx && action == SystemPowerAction::Hibernate) {
      (*node)->SetFunctionPower(FunctionPower::Off);
      (*node)->power = DevicePower::Off;
    }
  }
}

void PnpManager::SystemResume() {
  if (!systemAsleep_) return;
  systemAsleep_ = false;
  for (Task* task : std::exchange(waitingForResume_, {})) kernel_.simulation().scheduler().Wake(*task);
  for (const auto& node : nodes_) {
    TransitionScope scope(kernel_, node->transition);
    if (node->policy.phase() == PowerPhase::Dx) Resume(*node);
  }
}

}  // namespace platform
