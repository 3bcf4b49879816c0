// State of the kernel's own calls that belongs to a host and to no single object: the waits in progress, the order in
// which its locks were taken, its trace providers, its boot time.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/kernel/companions.h"
#include "platform/kernel/lock_order.h"
#include "platform/kernel/request_packet.h"
#include "platform/scheduler/scheduler.h"

namespace platform {

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

// Registrations with the tracing facility. A handle is an index, never reused.
class TraceProviders {
 public:
  std::uint64_t Register();
  bool Unregister(std::uint64_t handle);
  bool IsRegistered(std::uint64_t handle) const;
  std::size_t Registered() const;

 private:
  std::vector<bool> registered_;  // handle n stands at n - 1
};

class KernelState {
 public:
  KernelState(Simulation& simulation, const std::string& kernelName);

  WaitList waits;
  LockOrder lockOrder;
  TraceProviders traceProviders;
  IoRequests ioRequests;
  Companions companions;
  std::vector<std::byte> tracePayload;  // scratch, kept for its capacity
  Time upTimeAtStart;                   // what the performance counter shows at virtual time 0

  // At unload: trace registrations and request packets that were not given back (rule handle-leak).
  void ReportLeaks();

 private:
  Simulation& simulation_;
};

}  // namespace platform
