// Where hardware meets the kernel: what the model of a PCI function implements, and what it may ask of its slot.
// All calls in both directions run on the scheduler's stack; none of them may wait.
#pragma once
#include <cstddef>
#include <cstdint>

#include "platform/host/time.h"

namespace platform {

class HostKernel;
class Simulation;

enum class FunctionPower : std::uint8_t { D0, D3Hot, Off };

// Given to the model by the kernel that the function is plugged into.
class PciSlot {
 public:
  virtual ~PciSlot() = default;
  virtual Simulation& simulation() = 0;
  virtual HostKernel& kernel() = 0;
  // DMA by bus address. Legal only inside one live common buffer; anything else is a violation and transfers nothing.
  virtual bool DmaRead(std::uint64_t busAddress, void* to, std::size_t bytes) = 0;
  virtual bool DmaWrite(std::uint64_t busAddress, const void* from, std::size_t bytes) = 0;
  // Sends message-signalled interrupt `message`; dropped and counted while its vector is disconnected or does not
  // exist.
  virtual void SignalMessage(unsigned message) = 0;
  virtual std::uint64_t DroppedMessages() const = 0;
  // Power management event: asks the system to bring an idle (or sleeping, if armed) device back to D0.
  virtual void SignalWake() = 0;
};

class DeviceModel {
 public:
  virtual ~DeviceModel() = default;
  virtual void Attach(PciSlot& slot) = 0;  // once, before anything else
  // BAR0, aligned 32-bit accesses only. After surprise removal the kernel answers all ones itself and does not ask.
  virtual std::uint32_t ReadRegister(std::uint32_t offset) = 0;
  virtual void WriteRegister(std::uint32_t offset, std::uint32_t value) = 0;
  // PCI configuration space, aligned dwords, 0 .. 0xFC.
  virtual std::uint32_t ReadConfig(std::uint32_t offset) = 0;
  virtual void WriteConfig(std::uint32_t offset, std::uint32_t value) = 0;
  // The bus driver moves the function; Off is what hibernation and a system without auxiliary power do.
  virtual void SetPower(FunctionPower power) = 0;
};

}  // namespace platform
