// Blocks come from one reserved range in size classes. A freed block rests until enough others of its class were freed,
// filled with a pattern, so that a write through a stale pointer shows when the block is used again.
#include "platform/memory/kernel_pool.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/include/ntdef.h"
#include "platform/scheduler/backtrace.h"
#include "platform/scheduler/kept_range.h"
#include "platform/scheduler/scheduler.h"
#include "platform/scheduler/wait_list.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define POISON(address, bytes) __asan_poison_memory_region((address), (bytes))
#define UNPOISON(address, bytes) __asan_unpoison_memory_region((address), (bytes))
#else
#define POISON(address, bytes) ((void)(address), (void)(bytes))
#define UNPOISON(address, bytes) ((void)(address), (void)(bytes))
#endif

namespace platform {

// Stands before the caller's bytes; its last word is the front red zone.
struct Pool::Block {
  Block* previous;
  Block* next;
  std::size_t bytes;  // as asked for
  std::uint64_t ordinal;
  const void* site;
  std::uint32_t tag;
  std::uint32_t sizeClass;
  std::uint64_t state;
  std::uint64_t frontRedZone;

  std::byte* data() { return reinterpret_cast<std::byte*>(this + 1); }
  const std::byte* data() const { return reinterpret_cast<const std::byte*>(this + 1); }
};

namespace {

constexpr std::uint64_t kLive = 0x4c6976652e2e2e2e;
constexpr std::uint64_t kFree = 0x467265652e2e2e2e;
constexpr std::uint64_t kRedZoneWord = 0xfdfdfdfdfdfdfdfd;
constexpr std::byte kRedZoneByte{0xfd};
constexpr std::byte kFreed{0xdd};
constexpr std::byte kNeverWritten{0xcc};
constexpr std::size_t kMinRedZone = 16;
constexpr std::size_t kRestingBlocks = 64;         // of a class, at least
constexpr std::size_t kRestingBytes = 256 * 1024;  // of a class of large blocks, at most
constexpr std::uint32_t kInternalTag = 0;          // framework memory; no call allocates tag 0

// Four classes for each doubling: 64, 80, 96, 112, 128, 160, ...
constexpr std::size_t ClassBytes(unsigned sizeClass) {
  return (std::size_t{4} + sizeClass % 4) << (4 + sizeClass / 4);
}

constexpr unsigned ClassFor(std::size_t bytes) {
  if (bytes <= 64) return 0;
  const unsigned doublings = static_cast<unsigned>(std::bit_width((bytes - 1) / 64)) - 1;
  const std::size_t step = std::size_t{16} << doublings;
  return doublings * 4 + static_cast<unsigned>((bytes - (std::size_t{64} << doublings) + step - 1) / step);
}

std::string TagText(std::uint32_t tag) {
  std::string text;
  for (int i = 0; i < 4; ++i) {
    const char c = static_cast<char>(tag >> (8 * i));
    text += c >= ' ' && c <= '~' ? c : '?';
  }
  return text;
}

bool HoldsLockIn(const void* start, std::size_t bytes) {
  const Task* task = Scheduler::Current();
  if (!task) return false;
  const auto inside = [&](const HeldLock& held) {
    return reinterpret_cast<std::uintptr_t>(held.lock) - reinterpret_cast<std::uintptr_t>(start) < bytes;
  };
  return std::any_of(task->held.begin(), task->held.end(), inside);
}

bool AllBytesAre(const std::byte* from, std::size_t bytes, std::byte value) {
  return bytes == 0 || (*from == value && std::memcmp(from, from + 1, bytes - 1) == 0);
}

}  // namespace

Pool::Pool(Simulation& simulation, const WaitList& waits) : simulation_(simulation), waits_(waits) {
  base_ = reinterpret_cast<std::uintptr_t>(KeptRanges::Take(kRangeBytes));
  marks_ = static_cast<std::uint8_t*>(KeptRanges::Take(kRangeBytes / kGranule));
}

Pool::~Pool() {
  UNPOISON(reinterpret_cast<void*>(base_), used_);
  std::memset(marks_, Unmarked, used_ / kGranule);
  KeptRanges::Give(reinterpret_cast<void*>(base_), kRangeBytes, used_);
  KeptRanges::Give(marks_, kRangeBytes / kGranule, used_ / kGranule);
}

void* Pool::Allocate(std::size_t bytes, std::uint32_t tag, bool zeroed, const void* site) {
  if (simulation_.faults().Fires("pool.allocate")) return nullptr;
  return Take(bytes, tag, zeroed, site);
}

void* Pool::AllocateInternal(std::size_t bytes) {
  void* block = Take(bytes, kInternalTag, true, nullptr);
  if (!block) std::abort();  // the range is far larger than any run
  return block;
}

void* Pool::Take(std::size_t bytes, std::uint32_t tag, bool zeroed, const void* site) {
  constexpr std::size_t kLargest = kRangeBytes / 4;
  static_assert(ClassFor(kLargest + sizeof(Block) + kMinRedZone) < kClasses);
  if (bytes > kLargest) return nullptr;
  const unsigned sizeClass = ClassFor(sizeof(Block) + bytes + kMinRedZone);
  const std::size_t classBytes = ClassBytes(sizeClass);
  Block* block = TakeResting(sizeClass);
  if (!block) {
    if (used_ + classBytes > kRangeBytes) return nullptr;
    block = reinterpret_cast<Block*>(base_ + used_);
    used_ += classBytes;
  }
  UNPOISON(block, classBytes);
  *block = {nullptr, live_, bytes, ++allocations_, site, tag, sizeClass, kLive, kRedZoneWord};
  if (live_) live_->previous = block;
  live_ = block;
  if (tag != kInternalTag) liveBytes_ += bytes;
  std::memset(block->data(), zeroed ? 0 : std::to_integer<int>(kNeverWritten), bytes);
  std::byte* end = block->data() + bytes;
  const std::size_t redZone = classBytes - sizeof(Block) - bytes;
  std::memset(end, std::to_integer<int>(kRedZoneByte), redZone);
  POISON(end, redZone);
  return block->data();
}

Pool::Block* Pool::TakeResting(unsigned sizeClass) {
  SizeClass& freed = classes_[sizeClass];
  const std::size_t enough = std::clamp(kRestingBytes / ClassBytes(sizeClass), std::size_t{2}, kRestingBlocks);
  if (freed.count < enough) return nullptr;
  Block* block = freed.resting[freed.oldest];
  freed.oldest = (freed.oldest + 1) % freed.resting.size();
  --freed.count;
  const std::size_t bytes = ClassBytes(sizeClass) - sizeof(Block);
  UNPOISON(block, bytes + sizeof(Block));
  if (!AllBytesAre(block->data(), bytes, kFreed)) {
    simulation_.Report(Rule::PoolOverrun, "written after it was freed: " + Describe(*block));
  }
  return block;
}

void Pool::Rest(Block& block) {
  SizeClass& freed = classes_[block.sizeClass];
  if (freed.count == freed.resting.size()) {
    std::rotate(freed.resting.begin(), freed.resting.begin() + static_cast<std::ptrdiff_t>(freed.oldest),
                freed.resting.end());
    freed.oldest = 0;
    freed.resting.resize(freed.resting.size() * 2 + 16);
  }
  freed.resting[(freed.oldest + freed.count++) % freed.resting.size()] = &block;
  const std::size_t bytes = ClassBytes(block.sizeClass) - sizeof(Block);
  UNPOISON(block.data(), bytes);
  std::memset(block.data(), std::to_integer<int>(kFreed), bytes);
  block.state = kFree;
  POISON(block.data(), bytes);
}

void Pool::Free(void* address, std::uint32_t tag) {
  Block* block = LiveBlock(address);
  if (!block) return;
  if (block->tag != tag) {
    simulation_.Report(Rule::PoolWrongTag, "freed with tag '" + TagText(tag) + "': " + Describe(*block));
    return;
  }
  FreeLive(*block);
}

void Pool::FreeAnyTag(void* address) {
  Block* block = LiveBlock(address);
  if (block) FreeLive(*block);
}

void Pool::FreeLive(Block& block) {
  CheckContents(block);
  liveBytes_ -= block.bytes;
  (block.previous ? block.previous->next : live_) = block.next;
  if (block.next) block.next->previous = block.previous;
  Rest(block);
}

void Pool::FreeInternal(void* address) {
  Block& block = *(reinterpret_cast<Block*>(address) - 1);
  if (!Owns(address) || block.state != kLive || block.tag != kInternalTag) std::abort();
  CheckContents(block);
  (block.previous ? block.previous->next : live_) = block.next;
  if (block.next) block.next->previous = block.previous;
  Rest(block);
}

Pool::Block* Pool::LiveBlock(void* address) {
  const bool inRange = Owns(address) && reinterpret_cast<std::uintptr_t>(address) % 16 == 0;
  if (!inRange) {
    simulation_.Report(Rule::PoolBadFree, "the address is no pool block");
    return nullptr;
  }
  Block* block = static_cast<Block*>(address) - 1;
  if (block->state == kLive && block->tag != kInternalTag) return block;
  simulation_.Report(Rule::PoolBadFree, block->state == kFree ? "the block is free already: " + Describe(*block)
                                                              : "the address is not the start of a pool block");
  return nullptr;
}

// What must hold of memory that goes away: nobody waits in it, nothing is linked in it, nobody wrote past it.
void Pool::CheckContents(const Block& block) {
  if (const Wait* wait = waits_.InRange(block.data(), block.bytes)) {
    simulation_.Report(Rule::PoolWaitedOn,
                       "task '" + wait->task->name() + "' waits on an object in it: " + Describe(block));
  }
  if (HoldsLockIn(block.data(), block.bytes)) {
    simulation_.Report(Rule::PoolWaitedOn, "the task that frees it holds a lock in it: " + Describe(block));
  }
  CheckMarks(block);
  CheckRedZones(block);
}

void Pool::CheckRedZones(const Block& block) {
  const std::byte* end = block.data() + block.bytes;
  const std::size_t redZone = ClassBytes(block.sizeClass) - sizeof(Block) - block.bytes;
  UNPOISON(end, redZone);
  if (!AllBytesAre(end, redZone, kRedZoneByte)) {
    simulation_.Report(Rule::PoolOverrun, "written past its end: " + Describe(block));
  } else if (block.frontRedZone != kRedZoneWord) {
    simulation_.Report(Rule::PoolOverrun, "written before its start: " + Describe(block));
  }
  POISON(end, redZone);
}

void Pool::CheckMarks(const Block& block) {
  const std::size_t first = GranuleOf(block.data());
  const std::size_t count = (block.bytes + kGranule - 1) / kGranule;
  if (AllBytesAre(reinterpret_cast<const std::byte*>(marks_ + first), count, std::byte{Unmarked})) return;
  for (std::size_t granule = 0; granule < count; ++granule) {
    const auto* entry = reinterpret_cast<const LIST_ENTRY*>(block.data() + granule * kGranule);
    const Mark mark = static_cast<Mark>(marks_[first + granule]);
    if (mark == LinkedEntry) {
      simulation_.Report(Rule::ListEntryLinked, "the list entry at offset " + std::to_string(granule * kGranule) +
                                                    " is still linked: " + Describe(block));
    } else if (mark == ListHead && entry->Flink != entry) {
      simulation_.Report(Rule::ListEntryLinked, "the list head at offset " + std::to_string(granule * kGranule) +
                                                    " still has entries: " + Describe(block));
    }
  }
  std::memset(marks_ + first, Unmarked, count);
}

std::string Pool::Describe(const Block& block) const {
  std::string text =
      block.tag == kInternalTag ? "the context of a framework object" : "block of tag '" + TagText(block.tag) + "'";
  text += ", " + std::to_string(block.bytes) + " bytes, allocation " + std::to_string(block.ordinal);
  const std::string site = SymbolAt(block.site);
  return site.empty() ? text : text + " in " + site;
}

std::size_t Pool::LiveBytes() const {
  return liveBytes_;
}

std::map<std::string, std::size_t> Pool::BytesByTag() const {
  std::map<std::string, std::size_t> bytes;
  for (const Block* block = live_; block; block = block->next) {
    if (block->tag != kInternalTag) bytes[TagText(block->tag)] += block->bytes;
  }
  return bytes;
}

void Pool::ReportLeaks() {
  struct Leak {
    std::size_t blocks = 0;
    const Block* first = nullptr;
  };
  std::map<std::string, Leak> leaks;
  for (const Block* block = live_; block; block = block->next) {  // newest first
    CheckRedZones(*block);
    if (block->tag == kInternalTag) continue;
    Leak& leak = leaks[TagText(block->tag)];
    ++leak.blocks;
    leak.first = block;
  }
  if (leaks.empty()) return;
  std::string text;
  for (const auto& [tag, leak] : leaks) {
    text +=
        (text.empty() ? "" : "; ") + std::to_string(leak.blocks) + " x '" + tag + "', first: " + Describe(*leak.first);
  }
  simulation_.Report(Rule::PoolLeak, text);
}

}  // namespace platform
