// The driver's locks: their one order, their types, and scope guards. A guard is the only way this driver takes a lock.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/status.h"

// Two annotations that the published set lacks: a lock's place in the order, and that the caller holds a lock of one of
// several places. A platform whose verifier checks them defines them; elsewhere they say nothing.
#ifndef _Lock_order_place_
#define _Lock_order_place_(lock, place, leaf, name)
#define _Lock_order_place_held_(places)
#endif

// X(place, leaf, name), outermost first. A lock is taken only while every lock that is held stands above it, and none
// at all while a leaf is held. Mutexes are recursive, spin locks are not.
#define KIV_LOCK_ORDER(X)                                \
  X(Run, false, "run lock")                              \
  X(XDomain, false, "peer host mutex")                   \
  X(PeerNetwork, false, "network lock of a peer host")   \
  X(NetworkContext, false, "mutex of a network context") \
  X(Peer, false, "lock of a peer host")                  \
  X(Path, false, "path lock")                            \
  X(Access, false, "access lock")                        \
  X(Handler, false, "handler mutex")                     \
  X(RingMutex, false, "ring mutex")                      \
  X(WorkList, true, "work list mutex")                   \
  X(PeerRequests, true, "peer request lock")             \
  X(Topology, true, "topology lock")                     \
  X(HostProperty, true, "host property lock")            \
  X(Ring, false, "ring lock")                            \
  X(Hop, false, "hop lock")                              \
  X(InterruptRegister, true, "interrupt register lock")  \
  X(Request, true, "request lock")

enum class LockPlace : std::uint32_t {
#define X(place, leaf, name) place,
  KIV_LOCK_ORDER(X)
#undef X
};

// Of a set of places.
constexpr std::uint32_t PlaceBit(LockPlace place) {
  return 1u << static_cast<std::uint32_t>(place);
}

struct LockDescription {
  bool IsLeaf;
  const char* Name;
};

constexpr LockDescription DescriptionOf(LockPlace place) {
  constexpr LockDescription kDescriptions[] = {
#define X(place, leaf, name) {leaf, name},
      KIV_LOCK_ORDER(X)
#undef X
  };
  return kDescriptions[static_cast<std::uint32_t>(place)];
}

// Object is the platform's lock and stands first, so that the address of the one is that of the other.
template <LockPlace Place>
struct Mutex {
  KMUTEX Object;

  void Initialise() {
    KeInitializeMutex(&Object, 0);
    _Lock_order_place_(Object, Place, DescriptionOf(Place).IsLeaf, DescriptionOf(Place).Name);
  }
};

template <LockPlace Place>
struct SpinLock {
  KSPIN_LOCK Object;

  void Initialise() {
    KeInitializeSpinLock(&Object);
    _Lock_order_place_(Object, Place, DescriptionOf(Place).IsLeaf, DescriptionOf(Place).Name);
  }
};

// Taken in its queued form everywhere: waiters are served in order, each spinning on its own handle. The two forms of
// one lock do not exclude each other, so the type decides.
template <LockPlace Place>
struct QueuedSpinLock : SpinLock<Place> {};

class SpinLockGuard {
 public:
  template <LockPlace Place>
  explicit SpinLockGuard(SpinLock<Place>& lock) : lock_(lock.Object) {
    KeAcquireSpinLock(&lock_, &irql_);
  }
  template <LockPlace Place>
  explicit SpinLockGuard(QueuedSpinLock<Place>& lock) = delete;
  ~SpinLockGuard() { KeReleaseSpinLock(&lock_, irql_); }
  SpinLockGuard(const SpinLockGuard&) = delete;
  SpinLockGuard& operator=(const SpinLockGuard&) = delete;

 private:
  KSPIN_LOCK& lock_;
  KIRQL irql_;
};

class QueuedSpinLockGuard {
 public:
  template <LockPlace Place>
  explicit QueuedSpinLockGuard(QueuedSpinLock<Place>& lock) {
    KeAcquireInStackQueuedSpinLock(&lock.Object, &handle_);
  }
  ~QueuedSpinLockGuard() { KeReleaseInStackQueuedSpinLock(&handle_); }
  QueuedSpinLockGuard(const QueuedSpinLockGuard&) = delete;
  QueuedSpinLockGuard& operator=(const QueuedSpinLockGuard&) = delete;

 private:
  KLOCK_QUEUE_HANDLE handle_;
};

class MutexGuard {
 public:
  template <LockPlace Place>
  explicit MutexGuard(Mutex<Place>& mutex) : mutex_(mutex.Object) {
    // Without a time-out and not alertable, the wait for a mutex ends only with the mutex.
    IgnoreResult(KeWaitForSingleObject(&mutex_, Executive, KernelMode, FALSE, nullptr));
  }
  ~MutexGuard() { KeReleaseMutex(&mutex_, FALSE); }
  MutexGuard(const MutexGuard&) = delete;
  MutexGuard& operator=(const MutexGuard&) = delete;

 private:
  KMUTEX& mutex_;
};
