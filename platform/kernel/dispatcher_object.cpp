#include "platform/kernel/dispatcher_object.h"

#include <array>

#include "platform/host/host_kernel.h"
#include "platform/kernel/kernel_state.h"

namespace platform {

// The wait list of a header is not used as one: waits stand in the host's list. Its head only holds its own address.
void InitialiseObject(DISPATCHER_HEADER& header, ObjectKind kind, LONG signalState) {
  header.Type = static_cast<UCHAR>(kind);
  header.Signature[0] = 'K';
  header.Signature[1] = 'O';
  header.Signature[2] = 'b';
  header.SignalState = signalState;
  header.WaitListHead.Flink = header.WaitListHead.Blink = &header.WaitListHead;
}

bool CheckEvent(KernelCall& call, const DISPATCHER_HEADER* header) {
  if (header && IsInitialised(*header) && KindOf(*header) != ObjectKind::Mutex) [[likely]] {
    return true;
  }
  call.Report(Rule::ObjectUninitialised, "the event was never initialised, or its memory was written over or moved");
  return false;
}

bool CheckMutex(KernelCall& call, const DISPATCHER_HEADER* header) {
  if (header && IsInitialised(*header) && KindOf(*header) == ObjectKind::Mutex) [[likely]] {
    return true;
  }
  call.Report(Rule::ObjectUninitialised, "the mutex was never initialised, or its memory was written over or moved");
  return false;
}

void CheckNobodyWaits(KernelCall& call, const void* object) {
  if (const Wait* wait = call.kernel().state().waits.OldestOn(object)) {
    call.Report(Rule::InvalidArgument, "initialised again while task '" + wait->task->name() + "' waits on it");
  }
}

bool WaitForGrant(KernelCall& call, const DISPATCHER_HEADER& header, const char* why, Time deadline) {
  WaitList& waits = call.kernel().state().waits;
  Wait wait{&call.task(), &header};
  waits.Add(wait);
  while (!wait.granted) {
    if (!call.scheduler().Park(why, &header, deadline)) break;
  }
  waits.Remove(wait);
  return wait.granted;
}

std::optional<std::size_t> WaitForAnyGrant(KernelCall& call, std::span<void* const> objects, const char* why,
                                           Time deadline) {
  WaitList& list = call.kernel().state().waits;
  std::array<Wait, kMostWaitObjects> waits{};
  for (std::size_t i = 0; i < objects.size(); ++i) {
    waits[i].task = &call.task();
    waits[i].object = objects[i];
    waits[i].sibling = &waits[(i + 1) % objects.size()];
    list.Add(waits[i]);
  }
  std::optional<std::size_t> granted;
  const auto look = [&] {
    for (std::size_t i = 0; i < objects.size(); ++i) {
      if (waits[i].granted) granted = i;
    }
    return granted.has_value();
  };
  while (!look()) {
    if (!call.scheduler().Park(why, objects.front(), deadline)) break;
  }
  look();
  for (std::size_t i = 0; i < objects.size(); ++i) list.Remove(waits[i]);
  return granted;
}

Task* GrantOldest(KernelCall& call, const DISPATCHER_HEADER& header) {
  Wait* wait = call.kernel().state().waits.OldestOn(&header);
  if (!wait) return nullptr;
  wait->granted = true;
  for (Wait* other = wait->sibling; other && other != wait; other = other->sibling) other->over = true;
  call.scheduler().Wake(*wait->task);
  return wait->task;
}

HeldLock HeldLockOf(KernelCall& call, const void* lock, bool spin, LockId id) {
  const LockOrder& order = call.kernel().state().lockOrder;
  return {.lock = lock, .spin = spin, .id = id, .place = order.PlaceOf(id), .leaf = order.IsLeaf(id)};
}

namespace {

bool IsOutOfPlace(const HeldLock& outer, const HeldLock& inner) {
  return outer.place != 0 && inner.place != 0 && (outer.leaf || outer.place >= inner.place);
}

}  // namespace

void NoteLockTaken(KernelCall& call, const HeldLock& lock) {
  std::vector<HeldLock>& held = call.task().held;
  if (!held.empty()) {
    LockOrder& order = call.kernel().state().lockOrder;
    for (const HeldLock& outer : held) {
      if (IsOutOfPlace(outer, lock)) [[unlikely]] {
        call.Report(Rule::LockOutOfPlace, "takes the " + order.NameOf(lock.id) + " while it holds the " +
                                              order.NameOf(outer.id) +
                                              (outer.leaf ? ", which is a leaf" : ", which stands below it"));
      }
      std::string cycle = order.Note(outer.id, lock.id);
      if (!cycle.empty()) call.Report(Rule::LockOrder, std::move(cycle));
    }
  }
  held.push_back(lock);
  call.task().NoteHeldPlaces();
}

}  // namespace platform
