// A device of 4096 bytes of plain registers at bus address 0x80000000, for tests of device memory.
#pragma once
#include <ntddk.h>

#include <array>

#include "platform/host/host_kernel.h"
#include "platform/io_mappings.h"
#include "platform/registry.h"

namespace platform {

class PlainDevice : public DeviceModel {
 public:
  static constexpr std::uint64_t kStart = 0x80000000;
  static constexpr std::size_t kBytes = 4096;

  explicit PlainDevice(HostKernel& kernel) : kernel_(kernel) { kernel_.mappings().AddBar(*this, kStart, kBytes); }
  ~PlainDevice() override { kernel_.mappings().RemoveBars(*this); }

  // From a task.
  static ULONG* Map() {
    PHYSICAL_ADDRESS address;
    address.QuadPart = kStart;
    return static_cast<ULONG*>(MmMapIoSpaceEx(address, kBytes, PAGE_READWRITE | PAGE_NOCACHE));
  }
  void SetAccess(RegisterAccess access) { kernel_.mappings().SetAccess(*this, access); }

  void Attach(PciSlot&) override {}
  std::uint32_t ReadRegister(std::uint32_t offset) override { return registers[offset / 4]; }
  void WriteRegister(std::uint32_t offset, std::uint32_t value) override { registers[offset / 4] = value; }
  std::uint32_t ReadConfig(std::uint32_t) override { return 0; }
  void WriteConfig(std::uint32_t, std::uint32_t) override {}
  void SetPower(FunctionPower) override {}

  std::array<std::uint32_t, kBytes / 4> registers{};

 private:
  HostKernel& kernel_;
};

}  // namespace platform
