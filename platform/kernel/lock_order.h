// The order in which locks are taken, over the whole run: a cycle is a deadlock that has not happened yet.
#pragma once
#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace platform {

// A lock is known by the number it got when it was initialised; memory that is used again gets a new one.
using LockId = std::uint32_t;

class LockOrder {
 public:
  // A number for a lock that is being initialised at this address. `kind` and `task` are for reports.
  LockId NewLock(const void* lock, const char* kind, const std::string& task);

  // The driver's own order: the lock's place in it, and a name for reports. False when no lock was initialised there.
  bool SetPlace(const void* lock, std::uint16_t place, bool leaf, const char* name);
  std::uint16_t PlaceOf(LockId id) const { return locks_[id - 1].place; }
  bool IsLeaf(LockId id) const { return locks_[id - 1].leaf; }
  const std::string& NameOf(LockId id) const { return locks_[id - 1].name; }
  // What the driver calls the locks of these places; bit n stands for place n + 1.
  std::string NamesOf(unsigned places) const;

  // Notes that `taken` is taken while `held` is held. Returns the path taken -> ... -> held when it was seen the other
  // way round before, one lock a line; empty when all is well.
  std::string Note(LockId held, LockId taken) {
    const std::uint64_t edge = static_cast<std::uint64_t>(held) << 32 | taken;
    if (recent_[edge % kRecent] == edge) return {};
    recent_[edge % kRecent] = edge;
    return NoteEdge(held, taken);
  }

 private:
  std::string NoteEdge(LockId held, LockId taken);
  bool PathFrom(LockId from, LockId to, std::vector<LockId>& path, std::unordered_set<LockId>& seen) const;

  static constexpr std::size_t kRecent = 251;  // direct-mapped memory of edges that are known to be fine
  std::uint64_t recent_[kRecent] = {};
  struct Lock {
    const void* address;
    std::string name;
    std::uint16_t place = 0;  // 0: none was told
    bool leaf = false;
    const char* placeName = "";
  };
  std::vector<Lock> locks_;  // lock n stands at n - 1
  std::unordered_map<LockId, std::vector<LockId>> after_;
};

}  // namespace platform
