#include "platform/memory/dma_memory.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/scheduler/kept_range.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define KIV_POISON(address, bytes) __asan_poison_memory_region(address, bytes)
#define KIV_UNPOISON(address, bytes) __asan_unpoison_memory_region(address, bytes)
#else
#define KIV_POISON(address, bytes) ((void)(address), (void)(bytes))
#define KIV_UNPOISON(address, bytes) ((void)(address), (void)(bytes))
#endif

namespace platform {
namespace {

constexpr std::size_t kRegionBytes = std::size_t{1} << 30;
constexpr std::size_t kGranule = 64 * 1024;
constexpr std::size_t kSmallUnit = 16;
constexpr std::size_t kRedZoneBytes = 32;
constexpr std::size_t kRest = 64;  // frees for which a freed slot is not used again
// Above 4 GiB, so that a driver that keeps 32 bits of an address only is found out.
constexpr std::uint64_t kBusBase = 0x1'0000'0000;
constexpr unsigned char kFreshFill = 0xCC, kRedFill = 0xFD;

std::size_t RoundUp(std::size_t value, std::size_t unit) {
  return (value + unit - 1) / unit * unit;
}

}  // namespace

struct DmaMemory::SizeClass {
  std::size_t stride = 0;
  std::size_t first = 0;  // offset of the first slot in a slab
  Slab* growing = nullptr;
  std::size_t nextFresh = 0;  // in `growing`
  struct Freed {
    Slab* slab;
    std::size_t index;
  };
  std::deque<Freed> resting;
};

struct DmaMemory::Slab {
  std::size_t offset = 0, bytes = 0;
  const SizeClass* sizeClass = nullptr;
  std::vector<std::size_t> lengths;  // by slot; 0: not live
  std::size_t SlotOffset(std::size_t index) const { return offset + sizeClass->first + index * sizeClass->stride; }
};

DmaMemory::DmaMemory() : small_(kPageBytes / kSmallUnit + 1) {
  void* region = KeptRanges::Take(kRegionBytes);
  region_ = static_cast<std::byte*>(region);
}

DmaMemory::~DmaMemory() {
  KIV_UNPOISON(region_, used_);  // the sanitizer would touch its notes on every page of a wider range
  KeptRanges::Give(region_, kRegionBytes, used_);
}

DmaMemory::SizeClass& DmaMemory::ClassFor(std::size_t length) {
  const bool small = length < kPageBytes;
  std::unique_ptr<SizeClass>& found =
      small ? small_[RoundUp(length, kSmallUnit) / kSmallUnit] : pages_[RoundUp(length, kPageBytes) / kPageBytes];
  if (found == nullptr) {
    found = std::make_unique<SizeClass>();
    // A small slot starts at an odd multiple of 16, so that nobody comes to rely on more.
    found->stride = small ? RoundUp(length, kSmallUnit) + kRedZoneBytes : RoundUp(length, kPageBytes) + kPageBytes;
    found->first = small ? kSmallUnit : 0;
  }
  return *found;
}

DmaMemory::Slab* DmaMemory::NewSlab(SizeClass& sizeClass) {
  const std::size_t bytes = RoundUp(sizeClass.first + sizeClass.stride, kGranule);
  if (used_ + bytes > kRegionBytes) return nullptr;
  auto slab = std::make_unique<Slab>();
  slab->offset = used_;
  slab->bytes = bytes;
  slab->sizeClass = &sizeClass;
  slab->lengths.resize((bytes - sizeClass.first) / sizeClass.stride);
  granules_.resize((used_ + bytes) / kGranule);
  const auto granule = granules_.begin() + static_cast<std::ptrdiff_t>(used_ / kGranule);
  std::fill(granule, granule + static_cast<std::ptrdiff_t>(bytes / kGranule), slab.get());
  used_ += bytes;
  sizeClass.growing = slab.get();
  sizeClass.nextFresh = 0;
  slabs_.push_back(std::move(slab));
  return sizeClass.growing;
}

DmaMemory::Buffer DmaMemory::Allocate(std::size_t length) {
  SizeClass& sizeClass = ClassFor(length);
  Slab* slab;
  std::size_t index;
  if (sizeClass.resting.size() > kRest) {
    slab = sizeClass.resting.front().slab;
    index = sizeClass.resting.front().index;
    sizeClass.resting.pop_front();
  } else {
    slab = sizeClass.growing;
    if (slab == nullptr || sizeClass.nextFresh == slab->lengths.size()) slab = NewSlab(sizeClass);
    if (slab == nullptr) return {};
    index = sizeClass.nextFresh++;
  }
  slab->lengths[index] = length;
  ++live_;
  const std::size_t offset = slab->SlotOffset(index);
  KIV_UNPOISON(region_ + offset, sizeClass.stride);
  std::memset(region_ + offset, kFreshFill, length);
  std::memset(region_ + offset + length, kRedFill, kRedZoneBytes);
  return {region_ + offset, kBusBase + offset, length};
}

bool DmaMemory::Free(const Buffer& buffer) {
  const std::size_t offset = static_cast<std::size_t>(buffer.busAddress - kBusBase);
  Slab& slab = *granules_[offset / kGranule];
  const std::size_t index = (offset - slab.offset - slab.sizeClass->first) / slab.sizeClass->stride;
  const std::byte* behind = buffer.memory + buffer.length;
  const bool intact =
      std::all_of(behind, behind + kRedZoneBytes, [](std::byte value) { return value == std::byte{kRedFill}; });
  slab.lengths[index] = 0;
  --live_;
  KIV_POISON(buffer.memory, slab.sizeClass->stride);
  ClassFor(buffer.length).resting.push_back({&slab, index});
  return intact;
}

std::byte* DmaMemory::Find(std::uint64_t busAddress, std::size_t bytes) const {
  if (busAddress < kBusBase || busAddress - kBusBase >= kRegionBytes) return nullptr;
  const std::size_t offset = static_cast<std::size_t>(busAddress - kBusBase);
  if (offset / kGranule >= granules_.size()) return nullptr;
  const Slab* slab = granules_[offset / kGranule];
  if (slab == nullptr || offset < slab->offset + slab->sizeClass->first) return nullptr;
  const std::size_t index = (offset - slab->offset - slab->sizeClass->first) / slab->sizeClass->stride;
  if (index >= slab->lengths.size()) return nullptr;
  const std::size_t inside = offset - slab->SlotOffset(index);
  const std::size_t length = slab->lengths[index];
  return inside <= length && bytes <= length - inside && length != 0 ? region_ + offset : nullptr;
}

}  // namespace platform
