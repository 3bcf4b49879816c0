// The waits of a host that are in progress: which task waits on which object.
#pragma once
#include <cstddef>

namespace platform {

class Task;

// One wait in progress. Lives on the waiter's own stack, so it costs no allocation.
struct Wait {
  Task* task;
  const void* object;       // the event, mutex or spin lock
  bool granted = false;     // by the one who ended the wait; else it timed out or must look again
  bool queued = false;      // spin locks: the releaser hands the lock over
  bool over = false;        // one of several objects, and another one has ended the wait
  Wait* sibling = nullptr;  // the next object of the same wait, in a ring; null for a wait for one object
  Wait* previous = nullptr;
  Wait* next = nullptr;
};

// All waits of a host, oldest first. There are few: one for each object that a parked task waits for.
class WaitList {
 public:
  void Add(Wait& wait);
  void Remove(Wait& wait);
  Wait* OldestOn(const void* object) const;
  // A wait whose object lies in the range: memory that must not be freed now.
  const Wait* InRange(const void* start, std::size_t bytes) const;

 private:
  Wait* first_ = nullptr;
  Wait* last_ = nullptr;
};

}  // namespace platform
