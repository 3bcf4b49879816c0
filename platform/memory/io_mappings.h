// Device memory: which bus addresses reach a device model, and where they are mapped.
//
// A mapping is a no-access range of the process: only the register access calls reach it, so a stray dereference
// faults.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/host/device_model.h"
#include "platform/host/rules.h"
#include "platform/host/simulation.h"

namespace platform {

// What an access to a function's registers means now; the PnP and power manager says.
enum class RegisterAccess : std::uint8_t {
  Allowed,
  PoweredDown,  // between D0 exit to D1..D3 and the next D0 entry: an access is a violation
  Gone,         // surprise-removed: reads give all ones, writes vanish
};

class IoMappings {
 public:
  explicit IoMappings(Simulation& simulation) : simulation_(simulation) {}
  ~IoMappings();
  IoMappings(const IoMappings&) = delete;
  IoMappings& operator=(const IoMappings&) = delete;

  // --- for the PnP and power manager ---
  // The device decodes [start, start + bytes) from now on, with full access.
  void AddBar(DeviceModel& model, std::uint64_t start, std::size_t bytes);
  void RemoveBars(const DeviceModel& model);  // mappings that are left fault from then on
  void SetAccess(const DeviceModel& model, RegisterAccess access);

  // --- for the calls ---
  // Null when no device decodes the whole range.
  void* Map(std::uint64_t busAddress, std::size_t bytes);
  enum class UnmapResult { Done, NotMapped, WrongSize };
  UnmapResult Unmap(void* address, std::size_t bytes);

  // Where an access lands.
  struct Target {
    DeviceModel* model = nullptr;
    std::uint32_t offset = 0;  // in the BAR
    RegisterAccess access = RegisterAccess::Allowed;
    Rule broken = Rule::Count;  // the rule that the address breaks, or Count
  };
  Target Find(const volatile void* address) const;

  std::size_t Live() const;
  void ReportLeaks();  // rule mapping-leak

 private:
  struct Bar {
    DeviceModel* model;
    std::uint64_t start;
    std::size_t bytes;
    RegisterAccess access;
  };
  struct Mapping {
    std::uintptr_t range;  // reserved for ever: an address is never used twice
    std::size_t rangeBytes;
    std::uintptr_t start;  // what the caller got
    std::size_t bytes;
    std::uint64_t busAddress;
    bool live;
  };
  const Bar* BarAt(std::uint64_t busAddress, std::size_t bytes) const;

  Simulation& simulation_;
  std::vector<Bar> bars_;
  std::vector<Mapping> mappings_;
};

}  // namespace platform
