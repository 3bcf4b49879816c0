#include "platform/device/device_node.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "platform/kernel/registry.h"
#include "platform/memory/dma_memory.h"

namespace platform {

void TransitionLock::Acquire(Scheduler& scheduler) {
  if (owner_ == nullptr) {
    owner_ = Scheduler::Current();
    return;
  }
  waiters_.push_back(Scheduler::Current());
  while (owner_ != Scheduler::Current()) scheduler.Park("a transition of the device", this);
}

void TransitionLock::Release(Scheduler& scheduler) {
  owner_ = nullptr;
  if (waiters_.empty()) return;
  owner_ = waiters_.front();  // handed over, so that verbs keep their order
  waiters_.pop_front();
  scheduler.Wake(*owner_);
}

DeviceNode::DeviceNode(HostKernel& kernel, PowerTransitions& transitions, DeviceId id, DeviceConfig config)
    : policy(*this, kernel, transitions, id), kernel_(kernel), id_(id), config_(std::move(config)) {
  for (const Resource& resource : config_.resources) {
    if (resource.kind == Resource::Kind::Interrupt && vectors_.size() <= resource.message) {
      vectors_.resize(resource.message + 1);
    }
  }
}

DeviceNode::~DeviceNode() = default;

void DeviceNode::Attach() {
  registryPath_ =
      "\\Registry\\Machine\\System\\CurrentControlSet\\Enum\\PCI\\" + std::to_string(id_) + "\\Device Parameters";
  RegistryKey& key = kernel_.registry().Create(registryPath_);
  for (const auto& [path, number] : config_.parameters) {
    const std::size_t name = path.rfind('\\');
    RegistryKey& parent = name == std::string::npos ? key : key.Create(path.substr(0, name));
    parent.SetNumber(name == std::string::npos ? path : path.substr(name + 1), number);
  }
  // The first memory resource is BAR0, the only one with registers behind it.
  for (const Resource& resource : config_.resources) {
    if (resource.kind != Resource::Kind::Memory) continue;
    kernel_.mappings().AddBar(model(), resource.start, resource.length);
    break;
  }
  model().Attach(*this);
}

void DeviceNode::Appear() {
  if (gone) functionPower_.reset();
  gone = false;
  SetRegisterAccess(RegisterAccess::Allowed);
  SetFunctionPower(FunctionPower::D0);
}

Simulation& DeviceNode::simulation() {
  return kernel_.simulation();
}

bool DeviceNode::DmaRead(std::uint64_t busAddress, void* to, std::size_t bytes) {
  const std::byte* memory = FindDma("reads", busAddress, bytes);
  if (memory) std::memcpy(to, memory, bytes);
  return memory != nullptr;
}

bool DeviceNode::DmaWrite(std::uint64_t busAddress, const void* from, std::size_t bytes) {
  std::byte* memory = FindDma("writes", busAddress, bytes);
  if (memory) std::memcpy(memory, from, bytes);
  return memory != nullptr;
}

std::byte* DeviceNode::FindDma(const char* verb, std::uint64_t busAddress, std::size_t bytes) {
  if (gone) return nullptr;  // no cycle of a function that is gone reaches memory
  std::byte* memory = kernel_.dmaMemory().Find(busAddress, bytes);
  if (memory == nullptr) {
    char detail[96];
    std::snprintf(detail, sizeof(detail), "the device %s %zu bytes at 0x%llx, outside any live common buffer", verb,
                  bytes, static_cast<unsigned long long>(busAddress));
    simulation().Report(Rule::DmaOutsideBuffer, detail);
  }
  return memory;
}

void DeviceNode::SignalMessage(unsigned message) {
  if (gone || message >= vectors_.size() || vectors_[message] == nullptr) {
    ++droppedMessages_;
    return;
  }
  vectors_[message]->MessageArrived();
}

void DeviceNode::Connect(MessageTarget& target) {
  vectors_[target.message] = &target;
}

void DeviceNode::Disconnect(MessageTarget& target) {
  if (vectors_[target.message] == &target) vectors_[target.message] = nullptr;
}

std::uint32_t DeviceNode::ReadConfig(std::uint32_t offset) {
  std::uint32_t value = ~std::uint32_t{0};
  if (!gone) kernel_.simulation().scheduler().OnSchedulerStack([&] { value = model().ReadConfig(offset); });
  return value;
}

void DeviceNode::WriteConfig(std::uint32_t offset, std::uint32_t value) {
  if (!gone) kernel_.simulation().scheduler().OnSchedulerStack([&] { model().WriteConfig(offset, value); });
}

void DeviceNode::SetRegisterAccess(RegisterAccess access) {
  kernel_.mappings().SetAccess(model(), gone ? RegisterAccess::Gone : access);
}

void DeviceNode::SetFunctionPower(FunctionPower functionPower) {
  if (gone || functionPower_ == functionPower) return;
  functionPower_ = functionPower;
  kernel_.simulation().scheduler().OnSchedulerStack([&] { model().SetPower(functionPower); });
}

}  // namespace platform
