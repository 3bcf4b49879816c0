// The USB4 host interface of a host router: a PCI function with BAR0, rings, interrupts and a power-on sequence.
//
// Runs on the scheduler's stack. Strict: an unknown offset, a write to a read-only register or a misused ring is
// recorded.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/device_model.h"
#include "platform/host/simulation.h"
#include "sim/host/complaints.h"
#include "sim/host/frame.h"
#include "sim/host/interrupt_unit.h"
#include "sim/host/pci_function.h"
#include "sim/host/ring_engine.h"
#include "sim/host/timing.h"

namespace sim {

struct HostInterfaceConfig {
  PciFunctionConfig pci;
  std::uint32_t barBytes = 0x40000;
  std::uint32_t hopCount = 12;  // 0 .. 1023
  unsigned messages = 4;        // message-signalled interrupts on offer
};

class HostInterface final : public platform::DeviceModel, private RingBus {
 public:
  // `name` of its host router.
  HostInterface(platform::Simulation& simulation, std::string name, HostInterfaceConfig config, ProtocolErrors& errors);
  ~HostInterface() override;

  const std::string& name() const { return name_; }
  const HostInterfaceConfig& config() const { return config_; }
  void Connect(FramePort* port) { port_ = port; }

  // platform::DeviceModel
  void Attach(platform::PciSlot& slot) override { slot_ = &slot; }
  std::uint32_t ReadRegister(std::uint32_t offset) override;
  void WriteRegister(std::uint32_t offset, std::uint32_t value) override;
  std::uint32_t ReadConfig(std::uint32_t offset) override { return pci_.Read(offset); }
  void WriteConfig(std::uint32_t offset, std::uint32_t value) override { pci_.Write(offset, value); }
  void SetPower(platform::FunctionPower power) override;

  platform::FunctionPower power() const { return power_; }
  PciFunction& pci() { return pci_; }
  InterruptUnit& interrupts() { return interrupts_; }

  // A frame arrives for the host on receive ring `hop`. False when it is lost: ring not running, or nothing posted.
  bool Receive(unsigned hop, const Frame& frame, const WriteBackForgery& forgery = {});
  bool ReceiveRingRunning(unsigned hop) const;
  // Asks the system to bring the function back to D0.
  void SignalWake();
  // No transfer or message is on its way.
  bool Quiet() const;
  std::uint64_t LostFrames() const { return lostFrames_; }
  std::uint64_t LostFrames(unsigned hop) const;  // on this ring; 0 for a ring that there is not

  // Hostile device: writes dword 2 of a descriptor without any frame, now. Returns false when the ring has no table.
  bool ForgeDescriptor(bool transmit, unsigned hop, unsigned index, std::uint32_t dword2);

 private:
  // RingBus
  platform::PciSlot* slot() override { return slot_; }
  platform::Simulation& simulation() override { return simulation_; }
  const Timing& timing() const override { return timing_; }
  void RaiseRingInterrupt(unsigned number) override { interrupts_.Raise(number); }
  void Misuse(const std::string& part, Complaint rule, ComplaintArguments arguments) override;
  void FrameFetched(unsigned hop, Frame frame) override;
  platform::Time RoomAfter(unsigned hop) override { return port_ == nullptr ? 0 : port_->RoomAfter(hop); }

  void Reset();
  RingRegister FindRingRegister(std::uint32_t offset);
  std::uint32_t BadAccess(Complaint rule, ComplaintArguments arguments);

  platform::Simulation& simulation_;
  std::string name_;
  HostInterfaceConfig config_;
  ProtocolErrors& errors_;
  Timing timing_;
  platform::PciSlot* slot_ = nullptr;
  FramePort* port_ = nullptr;
  platform::FunctionPower power_ = platform::FunctionPower::D0;
  PciFunction pci_;
  InterruptUnit interrupts_;
  std::vector<std::unique_ptr<TransmitRing>> transmitRings_;
  std::vector<std::unique_ptr<ReceiveRing>> receiveRings_;
  std::uint64_t lostFrames_ = 0;
  std::vector<std::uint64_t> lostByRing_;
};

}  // namespace sim
