#include "platform/scheduler/event_queue.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace platform {

EventId EventQueue::Add(Time when, const char* name, Action&& action) {
  return Insert(when, name, nullptr, std::move(action));
}

EventId EventQueue::AddTimeout(Time when, Task& task) {
  return Insert(when, "time-out", &task, {});
}

EventId EventQueue::Insert(Time when, const char* name, Task* task, Action&& action) {
  std::uint32_t index;
  if (freeSlots_.empty()) {
    index = static_cast<std::uint32_t>(slots_.size());
    slots_.emplace_back();
  } else {
    index = freeSlots_.back();
    freeSlots_.pop_back();
  }
  Slot& slot = slots_[index];
  ++slot.generation;
  slot.live = true;
  slot.name = name;
  slot.task = task;
  slot.action = std::move(action);
  std::vector<Entry>& entries = Of(task != nullptr).entries;
  entries.push_back({when, order_++, index, slot.generation});
  std::push_heap(entries.begin(), entries.end(), std::greater<>());
  return (static_cast<EventId>(slot.generation) << 32) | (index + 1u);
}

void EventQueue::Cancel(EventId id) {
  const auto index = static_cast<std::uint32_t>(id & 0xFFFFFFFFu) - 1u;
  if (id == 0 || index >= slots_.size()) return;
  Slot& slot = slots_[index];
  if (!slot.live || slot.generation != static_cast<std::uint32_t>(id >> 32)) return;
  Heap& heap = Of(slot.task != nullptr);
  Release(index);
  if (++heap.dead > 64 && heap.dead > heap.entries.size() / 2) Compact(heap);
}

void EventQueue::Release(std::uint32_t index) {
  slots_[index].live = false;
  slots_[index].action.Clear();
  freeSlots_.push_back(index);
}

void EventQueue::Compact(Heap& heap) {
  std::erase_if(heap.entries, [this](const Entry& entry) { return !Live(entry); });
  std::make_heap(heap.entries.begin(), heap.entries.end(), std::greater<>());
  heap.dead = 0;
}

bool EventQueue::FrontAfterDead(Heap& heap) {
  while (!heap.entries.empty() && !Live(heap.entries.front())) {
    std::pop_heap(heap.entries.begin(), heap.entries.end(), std::greater<>());
    heap.entries.pop_back();
    --heap.dead;
  }
  return !heap.entries.empty();
}

bool EventQueue::Empty() {
  return !Front(heaps_[0]) && !Front(heaps_[1]);
}

EventQueue::Due EventQueue::Pop() {
  const bool action = Front(heaps_[0]), timeout = Front(heaps_[1]);
  const bool timeoutFirst = timeout && (!action || heaps_[0].entries.front() > heaps_[1].entries.front());
  std::vector<Entry>& entries = Of(timeoutFirst).entries;
  const Entry entry = entries.front();
  std::pop_heap(entries.begin(), entries.end(), std::greater<>());
  entries.pop_back();
  Slot& slot = slots_[entry.slot];
  Due due{entry.when, slot.name, slot.task, std::move(slot.action)};
  Release(entry.slot);
  return due;
}

}  // namespace platform
