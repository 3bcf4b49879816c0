// The memory of a host that its devices can reach: common buffers in recycled slots of one reserved region.
//
// A bus address comes from the slot, never from the virtual address, so that it is the same in every run. A device
// reaches memory only inside one live buffer.
#pragma once
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

namespace platform {

class DmaMemory {
 public:
  DmaMemory();
  ~DmaMemory();
  DmaMemory(const DmaMemory&) = delete;
  DmaMemory& operator=(const DmaMemory&) = delete;

  struct Buffer {
    std::byte* memory = nullptr;  // 16-byte aligned; page-aligned from a page on
    std::uint64_t busAddress = 0;
    std::size_t length = 0;
  };
  // Filled with 0xCC: what a driver has not written is not zero. `memory` is null when the region is used up.
  Buffer Allocate(std::size_t length);
  // False when bytes behind the buffer were overwritten. A freed slot rests for 64 frees of its size.
  [[nodiscard]] bool Free(const Buffer& buffer);
  // The memory behind [busAddress, +bytes); null unless one live buffer holds all of it.
  std::byte* Find(std::uint64_t busAddress, std::size_t bytes) const;
  std::size_t live() const { return live_; }

 private:
  struct Slab;
  struct SizeClass;
  SizeClass& ClassFor(std::size_t length);
  Slab* NewSlab(SizeClass& sizeClass);

  std::byte* region_;
  std::size_t used_ = 0;         // bytes of the region given to slabs
  std::vector<Slab*> granules_;  // by granule of the region: the slab that it belongs to
  std::vector<std::unique_ptr<Slab>> slabs_;
  std::vector<std::unique_ptr<SizeClass>> small_;            // by length in units of 16 bytes, below a page
  std::map<std::size_t, std::unique_ptr<SizeClass>> pages_;  // by length in pages
  std::size_t live_ = 0;
};

}  // namespace platform
