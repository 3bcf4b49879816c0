#include "platform/event_queue.h"

#include <algorithm>
#include <utility>

namespace platform {

EventId EventQueue::Add(Time when, const char* name, std::function<void()> action) {
  return Insert(when, name, nullptr, std::move(action));
}

EventId EventQueue::AddTimeout(Time when, Task& task) {
  return Insert(when, "time-out", &task, {});
}

EventId EventQueue::Insert(Time when, const char* name, Task* task, std::function<void()> action) {
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
  heap_.push_back({when, order_++, index, slot.generation});
  std::push_heap(heap_.begin(), heap_.end(), std::greater<>());
  return (static_cast<EventId>(slot.generation) << 32) | (index + 1u);
}

void EventQueue::Cancel(EventId id) {
  const auto index = static_cast<std::uint32_t>(id & 0xFFFFFFFFu) - 1u;
  if (id == 0 || index >= slots_.size()) return;
  Slot& slot = slots_[index];
  if (!slot.live || slot.generation != static_cast<std::uint32_t>(id >> 32)) return;
  Release(index);
  if (++dead_ > 64 && dead_ > heap_.size() / 2) Compact();
}

void EventQueue::Release(std::uint32_t index) {
  slots_[index].live = false;
  slots_[index].action = {};
  freeSlots_.push_back(index);
}

void EventQueue::Compact() {
  std::erase_if(heap_, [this](const Entry& entry) { return !Live(entry); });
  std::make_heap(heap_.begin(), heap_.end(), std::greater<>());
  dead_ = 0;
}

void EventQueue::DropDead() {
  while (!heap_.empty() && !Live(heap_.front())) {
    std::pop_heap(heap_.begin(), heap_.end(), std::greater<>());
    heap_.pop_back();
    --dead_;
  }
}

bool EventQueue::Empty() {
  DropDead();
  return heap_.empty();
}

Time EventQueue::NextTime() {
  return Empty() ? kNever : heap_.front().when;
}

Time EventQueue::NextTimeOf(bool timeouts) const {
  Time first = kNever;
  for (const Entry& entry : heap_) {
    if (Live(entry) && (slots_[entry.slot].task != nullptr) == timeouts) first = std::min(first, entry.when);
  }
  return first;
}

EventQueue::Due EventQueue::Pop() {
  DropDead();
  const Entry entry = heap_.front();
  std::pop_heap(heap_.begin(), heap_.end(), std::greater<>());
  heap_.pop_back();
  Slot& slot = slots_[entry.slot];
  Due due{entry.when, slot.name, slot.task, std::move(slot.action)};
  Release(entry.slot);
  return due;
}

}  // namespace platform
