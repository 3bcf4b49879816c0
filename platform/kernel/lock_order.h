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
  // A number for a lock that is being initialised by `where` (task and call, for reports).
  LockId NewLock(const char* kind, const std::string& task);

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
  std::vector<std::string> names_;  // lock n stands at n - 1
  std::unordered_map<LockId, std::vector<LockId>> after_;
};

}  // namespace platform
