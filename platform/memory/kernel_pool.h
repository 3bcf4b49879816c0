// The kernel's pool: tagged blocks in one reserved range, with red zones, a rest for freed blocks, and a mark per list
// entry that is linked. Also holds the memory of framework objects that a driver sees (contexts).
#pragma once
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/host/simulation.h"

struct _LIST_ENTRY;

namespace platform {

class WaitList;

class Pool {
 public:
  Pool(Simulation& simulation, const WaitList& waits);
  ~Pool();
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  // Null when the fault site "pool.allocate" fires or the range is used up. `site` is the caller's return address.
  void* Allocate(std::size_t bytes, std::uint32_t tag, bool zeroed, const void* site);
  // Reports what is wrong with the free and then leaves the block alone.
  void Free(void* block, std::uint32_t tag);
  void FreeAnyTag(void* block);

  // Memory of a framework object that the driver sees: zeroed, not counted, never failed, and checked like pool at its
  // end (red zones, waiters, linked list entries).
  void* AllocateInternal(std::size_t bytes);
  void FreeInternal(void* block);

  std::size_t LiveBytes() const;
  std::map<std::string, std::size_t> BytesByTag() const;
  // Rule pool-leak: every block still held, by tag, with where the first of each was allocated. Red zones are checked
  // too.
  void ReportLeaks();

  // List entries inside the range are marked while they are linked, heads while they are initialised.
  enum Mark : std::uint8_t { Unmarked, LinkedEntry, ListHead };
  bool Owns(const void* address) const { return reinterpret_cast<std::uintptr_t>(address) - base_ < kRangeBytes; }
  Mark MarkOf(const _LIST_ENTRY* entry) const { return static_cast<Mark>(marks_[GranuleOf(entry)]); }
  void SetMark(const _LIST_ENTRY* entry, Mark mark) { marks_[GranuleOf(entry)] = mark; }

 private:
  struct Block;
  struct SizeClass {
    std::vector<Block*> resting;  // freed blocks, a ring; the oldest at `oldest`
    std::size_t oldest = 0;
    std::size_t count = 0;
  };
  static constexpr std::size_t kRangeBytes = std::size_t{1} << 32;
  static constexpr std::size_t kGranule = 8;
  static constexpr unsigned kClasses = 104;

  std::size_t GranuleOf(const void* address) const {
    return (reinterpret_cast<std::uintptr_t>(address) - base_) / kGranule;
  }
  void* Take(std::size_t bytes, std::uint32_t tag, bool zeroed, const void* site);
  Block* TakeResting(unsigned sizeClass);
  void FreeLive(Block& block);
  void Rest(Block& block);
  Block* LiveBlock(void* address);
  void CheckContents(const Block& block);
  void CheckRedZones(const Block& block);
  void CheckMarks(const Block& block);
  std::string Describe(const Block& block) const;

  Simulation& simulation_;
  const WaitList& waits_;
  std::uintptr_t base_ = 0;
  std::uint8_t* marks_ = nullptr;
  std::size_t used_ = 0;  // bytes of the range that were ever handed out
  std::uint64_t allocations_ = 0;
  std::size_t liveBytes_ = 0;
  Block* live_ = nullptr;
  SizeClass classes_[kClasses];
};

}  // namespace platform
