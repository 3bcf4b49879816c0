// What events and mutexes have in common: a signature, a signal state and waiters.
//
// The signature also binds the object to its address, so that a copied or moved one is as uninitialised as one that
// never saw its init call.
#pragma once
#include <optional>
#include <span>

#include "platform/include/wdm.h"
#include "platform/kernel/lock_order.h"
#include "platform/scheduler/scheduler.h"

namespace platform {

enum class ObjectKind : UCHAR { NotificationEvent = 1, SynchronizationEvent, Mutex };

void InitialiseObject(DISPATCHER_HEADER& header, ObjectKind kind, LONG signalState);

inline bool IsInitialised(const DISPATCHER_HEADER& header) {
  return header.Signature[0] == 'K' && header.Signature[1] == 'O' && header.Signature[2] == 'b' &&
         header.WaitListHead.Flink == &header.WaitListHead;
}

inline ObjectKind KindOf(const DISPATCHER_HEADER& header) {
  return static_cast<ObjectKind>(header.Type);
}

// Reports object-uninitialised unless `header` is an initialised event. True when it is one.
bool CheckEvent(KernelCall& call, const DISPATCHER_HEADER* header);
bool CheckMutex(KernelCall& call, const DISPATCHER_HEADER* header);

// Reports invalid-argument when the object that is about to be initialised is one that a task waits on.
void CheckNobodyWaits(KernelCall& call, const void* object);

// Parks the running task until it is granted the object or the deadline is reached. True when granted.
bool WaitForGrant(KernelCall& call, const DISPATCHER_HEADER& header, const char* why, Time deadline);
// The same for the first of several objects that is granted, each in the place of one wait; its index.
inline constexpr std::size_t kMostWaitObjects = THREAD_WAIT_OBJECTS;
std::optional<std::size_t> WaitForAnyGrant(KernelCall& call, std::span<void* const> objects, const char* why,
                                           Time deadline);
// Grants the object to the waiter that has waited longest. Null when nobody waits.
Task* GrantOldest(KernelCall& call, const DISPATCHER_HEADER& header);

// What a task that takes this lock holds then.
HeldLock HeldLockOf(KernelCall& call, const void* lock, bool spin, LockId id);
// Checks the lock's place and order against every lock that the task holds, and adds it to them.
void NoteLockTaken(KernelCall& call, const HeldLock& lock);

}  // namespace platform
