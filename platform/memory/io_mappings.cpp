#include "platform/memory/io_mappings.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/scheduler/kept_range.h"

namespace platform {

IoMappings::~IoMappings() {
  for (const Mapping& mapping : mappings_) munmap(reinterpret_cast<void*>(mapping.range), mapping.rangeBytes);
}

void IoMappings::AddBar(DeviceModel& model, std::uint64_t start, std::size_t bytes) {
  bars_.push_back({&model, start, bytes, RegisterAccess::Allowed});
}

void IoMappings::RemoveBars(const DeviceModel& model) {
  std::erase_if(bars_, [&](const Bar& bar) { return bar.model == &model; });
}

void IoMappings::SetAccess(const DeviceModel& model, RegisterAccess access) {
  for (Bar& bar : bars_) {
    if (bar.model == &model) bar.access = access;
  }
}

const IoMappings::Bar* IoMappings::BarAt(std::uint64_t busAddress, std::size_t bytes) const {
  for (const Bar& bar : bars_) {
    if (busAddress >= bar.start && bytes <= bar.bytes && busAddress - bar.start <= bar.bytes - bytes) return &bar;
  }
  return nullptr;
}

void* IoMappings::Map(std::uint64_t busAddress, std::size_t bytes) {
  if (bytes == 0 || !BarAt(busAddress, bytes)) return nullptr;
  const std::size_t inPage = busAddress % kPageBytes;
  const std::size_t rangeBytes = (inPage + bytes + kPageBytes - 1) / kPageBytes * kPageBytes;
  void* range = mmap(nullptr, rangeBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (range == MAP_FAILED) {
    std::perror("reserving an address range for device memory");
    std::abort();
  }
  const auto address = reinterpret_cast<std::uintptr_t>(range);
  mappings_.push_back({address, rangeBytes, address + inPage, bytes, busAddress, true});
  return reinterpret_cast<void*>(address + inPage);
}

IoMappings::UnmapResult IoMappings::Unmap(void* address, std::size_t bytes) {
  for (Mapping& mapping : mappings_) {
    if (!mapping.live || mapping.start != reinterpret_cast<std::uintptr_t>(address)) continue;
    mapping.live = false;
    return mapping.bytes == bytes ? UnmapResult::Done : UnmapResult::WrongSize;
  }
  return UnmapResult::NotMapped;
}

// The newest mapping first: it is nearly always the only live one.
IoMappings::Target IoMappings::Find(const volatile void* address) const {
  const auto at = reinterpret_cast<std::uintptr_t>(address);
  for (auto mapping = mappings_.rbegin(); mapping != mappings_.rend(); ++mapping) {
    if (at - mapping->range >= mapping->rangeBytes) continue;
    if (!mapping->live) return {.broken = Rule::RegisterUnmapped};
    const std::uintptr_t offset = at - mapping->start;
    if (at < mapping->start || offset > mapping->bytes - 4 || mapping->bytes < 4) {
      return {.broken = Rule::RegisterOutsideBar};
    }
    const Bar* bar = BarAt(mapping->busAddress + offset, 4);
    if (!bar) return {.broken = Rule::RegisterUnmapped};  // the device has left the bus
    Target target{bar->model, static_cast<std::uint32_t>(mapping->busAddress + offset - bar->start), bar->access};
    if (bar->access == RegisterAccess::PoweredDown) target.broken = Rule::RegisterWhilePoweredDown;
    return target;
  }
  return {.broken = Rule::RegisterOutsideBar};
}

std::size_t IoMappings::Live() const {
  return static_cast<std::size_t>(
      std::count_if(mappings_.begin(), mappings_.end(), [](const Mapping& mapping) { return mapping.live; }));
}

void IoMappings::ReportLeaks() {
  if (const std::size_t live = Live(); live != 0) {
    simulation_.Report(Rule::MappingLeak, std::to_string(live) + " mapping(s) of device memory left");
  }
}

}  // namespace platform
