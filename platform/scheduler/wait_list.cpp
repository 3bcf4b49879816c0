#include "platform/scheduler/wait_list.h"

#include <cstdint>

namespace platform {

void WaitList::Add(Wait& wait) {
  wait.previous = last_;
  wait.next = nullptr;
  (last_ ? last_->next : first_) = &wait;
  last_ = &wait;
}

void WaitList::Remove(Wait& wait) {
  (wait.previous ? wait.previous->next : first_) = wait.next;
  (wait.next ? wait.next->previous : last_) = wait.previous;
}

Wait* WaitList::OldestOn(const void* object) const {
  for (Wait* wait = first_; wait; wait = wait->next) {
    if (wait->object == object && !wait->granted && !wait->over) return wait;
  }
  return nullptr;
}

const Wait* WaitList::InRange(const void* start, std::size_t bytes) const {
  const auto from = reinterpret_cast<std::uintptr_t>(start);
  for (const Wait* wait = first_; wait; wait = wait->next) {
    if (reinterpret_cast<std::uintptr_t>(wait->object) - from < bytes && !wait->granted && !wait->over) return wait;
  }
  return nullptr;
}

}  // namespace platform
