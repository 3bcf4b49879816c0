// One PCI function of a host: its place in PnP and power, its resources, and what its hardware model may ask of the
// slot. For the platform's own files. PciSlot calls run on the scheduler's stack, everything else on tasks of the host.
#pragma once
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "platform/device/bus_device.h"
#include "platform/device/power_policy.h"
#include "platform/host/device_model.h"
#include "platform/host/host_kernel.h"
#include "platform/memory/io_mappings.h"
#include "platform/scheduler/scheduler.h"

namespace platform {

class Device;

// What a message of the function reaches: an interrupt that the framework has connected.
class MessageTarget {
 public:
  explicit MessageTarget(unsigned number) : message(number) {}
  // On the scheduler's stack.
  virtual void MessageArrived() = 0;

  const unsigned message;

 protected:
  ~MessageTarget() = default;
};

// Held by the task that moves a device between states; PnP and power transitions of one device never overlap.
class TransitionLock {
 public:
  void Acquire(Scheduler& scheduler);
  void Release(Scheduler& scheduler);
  bool Busy() const { return owner_ != nullptr; }

 private:
  Task* owner_ = nullptr;
  std::deque<Task*> waiters_;
};

class DeviceNode final : public PciSlot {
 public:
  DeviceNode(HostKernel& kernel, PowerTransitions& transitions, DeviceId id, DeviceConfig config);
  ~DeviceNode() override;

  Simulation& simulation() override;
  HostKernel& kernel() override { return kernel_; }
  bool DmaRead(std::uint64_t busAddress, void* to, std::size_t bytes) override;
  bool DmaWrite(std::uint64_t busAddress, const void* from, std::size_t bytes) override;
  void SignalMessage(unsigned message) override;
  std::uint64_t DroppedMessages() const override { return droppedMessages_; }
  void SignalWake() override { policy.WakeSignalled(); }

  void Attach();  // once: to the bus, the registry and the model
  void Appear();  // the function is there (again), in D0 as far as the bus is concerned

  DeviceId id() const { return id_; }
  const DeviceConfig& config() const { return config_; }
  DeviceModel& model() { return *config_.model; }
  const std::string& registryPath() const { return registryPath_; }  // of the device-parameters key

  // --- configuration space; all ones once the function is gone ---
  std::uint32_t ReadConfig(std::uint32_t offset);  // an aligned dword; runs the model on the scheduler's stack
  void WriteConfig(std::uint32_t offset, std::uint32_t value);

  // --- interrupts: vectors by message number
  void Connect(MessageTarget& target);
  void Disconnect(MessageTarget& target);

  // Registers answer, are a violation to touch (from D0 exit to Dx until the next D0 entry), or read all ones.
  void SetRegisterAccess(RegisterAccess access);
  // Moves the function itself, on the scheduler's stack; a function that is gone is not asked.
  void SetFunctionPower(FunctionPower state);

  Device* device = nullptr;  // the framework's device object, while there is one
  PnpState state = PnpState::Removed;
  DevicePower power = DevicePower::Off;
  bool gone = false;  // surprise-removed: registers and configuration space read all ones, writes go nowhere
  std::int64_t busInterfaceReferences = 0;  // handed out and not given back
  BusDevice bus{*this};
  PowerPolicy policy;
  TransitionLock transition;

 private:
  std::byte* FindDma(const char* verb, std::uint64_t busAddress, std::size_t bytes);

  HostKernel& kernel_;
  DeviceId id_;
  DeviceConfig config_;
  std::string registryPath_;
  std::vector<MessageTarget*> vectors_;  // by message; null: disconnected
  std::uint64_t droppedMessages_ = 0;
  std::optional<FunctionPower> functionPower_;  // as last set; unknown for one that has just appeared
};

}  // namespace platform
