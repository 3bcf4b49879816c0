// One PCI function of a host: its place in PnP and power, its resources, and what its hardware model may ask of the
// slot. For the platform's own files. PciSlot calls run on the scheduler's stack, everything else on tasks of the host.
#pragma once
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "platform/host/device_model.h"
#include "platform/host/host_kernel.h"
#include "platform/power_policy.h"
#include "platform/scheduler.h"

namespace platform {

class Device;
class Interrupt;

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
  DeviceNode(HostKernel& kernel, DeviceId id, DeviceConfig config);
  ~DeviceNode() override;

  Simulation& simulation() override;
  HostKernel& kernel() override { return kernel_; }
  bool DmaRead(std::uint64_t busAddress, void* to, std::size_t bytes) override;
  bool DmaWrite(std::uint64_t busAddress, const void* from, std::size_t bytes) override;
  void SignalMessage(unsigned message) override;
  std::uint64_t DroppedMessages() const override { return droppedMessages_; }
  void SignalWake() override { policy.WakeSignalled(); }

  DeviceId id() const { return id_; }
  const DeviceConfig& config() const { return config_; }
  DeviceModel& model() { return *config_.model; }

  // --- registers: what the register access calls ask before they touch the model
  // --------------------------------------- Surprise-removed: every read of registers and of configuration space gives
  // all ones, writes go nowhere.
  bool Gone() const { return gone; }
  // False from the end of D0 exit (to D1 .. D3) until the next D0 entry: an access is a violation.
  bool RegistersReachable() const { return registersReachable; }
  // Offset of the bus address in this function's first memory resource; false when [busAddress, +bytes) is not inside
  // it.
  bool ContainsMemory(std::uint64_t busAddress, std::uint64_t bytes, std::uint32_t* offset) const;
  std::uint32_t ReadConfig(std::uint32_t offset);  // an aligned dword; runs the model on the scheduler's stack
  void WriteConfig(std::uint32_t offset, std::uint32_t value);

  // --- interrupts: vectors by message number
  void Connect(Interrupt& interrupt);
  void Disconnect(Interrupt& interrupt);

  // Moves the function itself, on the scheduler's stack; a function that is gone is not asked.
  void SetFunctionPower(FunctionPower state);

  Device* device = nullptr;  // the framework's device object, while there is one
  PnpState state = PnpState::Removed;
  bool gone = false;
  bool registersReachable = false;
  std::int64_t busInterfaceReferences = 0;  // handed out and not given back
  PowerPolicy policy;
  TransitionLock transition;

 private:
  HostKernel& kernel_;
  DeviceId id_;
  DeviceConfig config_;
  std::vector<Interrupt*> vectors_;  // by message; null: disconnected
  std::uint64_t droppedMessages_ = 0;
};

}  // namespace platform
