// The simulation's event list: actions and task time-outs in (time, insertion) order; cancelling is lazy.
#pragma once
#include <cstdint>
#include <vector>

#include "platform/host/simulation.h"

namespace platform {

class EventQueue {
 public:
  struct Due {
    Time when = 0;
    const char* name = "";
    Task* task = nullptr;  // a time-out of this task; otherwise `action` is to run
    Action action;
  };

  EventId Add(Time when, const char* name, Action&& action);
  EventId AddTimeout(Time when, Task& task);
  void Cancel(EventId id);

  bool Empty();  // nothing but cancelled entries left
  // Of the first live entry; kNever when empty.
  Time NextTime() {
    const Time action = NextTimeOf(false), timeout = NextTimeOf(true);
    return timeout < action ? timeout : action;
  }
  // Of the first live time-out, or of the first live action.
  Time NextTimeOf(bool timeouts) {
    Heap& heap = Of(timeouts);
    return Front(heap) ? heap.entries.front().when : kNever;
  }
  Due Pop();  // the first live entry; the queue must not be empty

 private:
  struct Slot {
    std::uint32_t generation = 0;
    bool live = false;
    const char* name = "";
    Task* task = nullptr;
    Action action;
  };
  struct Entry {
    Time when;
    std::uint64_t order;
    std::uint32_t slot, generation;
    bool operator>(const Entry& other) const { return when != other.when ? when > other.when : order > other.order; }
  };
  EventId Insert(Time when, const char* name, Task* task, Action&& action);
  bool Live(const Entry& entry) const {
    return slots_[entry.slot].live && slots_[entry.slot].generation == entry.generation;
  }
  // Time-outs apart from actions: most of them are cancelled, and who wants the next action must not look through them.
  struct Heap {
    std::vector<Entry> entries;  // smallest first
    std::size_t dead = 0;        // cancelled ones among them
  };
  Heap& Of(bool timeouts) { return heaps_[timeouts ? 1 : 0]; }
  // Drops what is dead before the first live entry; false when nothing is left.
  bool Front(Heap& heap) {
    if (heap.entries.empty()) return false;
    return Live(heap.entries.front()) || FrontAfterDead(heap);
  }
  bool FrontAfterDead(Heap& heap);
  void Release(std::uint32_t slot);
  void Compact(Heap& heap);

  std::vector<Slot> slots_;
  std::vector<std::uint32_t> freeSlots_;
  Heap heaps_[2];
  std::uint64_t order_ = 0;
};

}  // namespace platform
