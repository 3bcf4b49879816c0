// Scope guards over the platform's locks. A guard is the only way this driver takes a lock.
//
// Order, outer to inner: handler mutex, ring mutex, topology lock, then the spin locks ring, hop, interrupt registers.
// The request lock and WorkListMutex are leaves. Kernel mutexes are recursive, spin locks are not.
#pragma once
#include <ntddk.h>

#include "include/status.h"

class SpinLockGuard {
 public:
  explicit SpinLockGuard(KSPIN_LOCK& lock) : lock_(lock) { KeAcquireSpinLock(&lock_, &irql_); }
  ~SpinLockGuard() { KeReleaseSpinLock(&lock_, irql_); }
  SpinLockGuard(const SpinLockGuard&) = delete;
  SpinLockGuard& operator=(const SpinLockGuard&) = delete;

 private:
  KSPIN_LOCK& lock_;
  KIRQL irql_;
};

// The same lock in its queued form: waiters are served in order, each spinning on its own handle.
class QueuedSpinLockGuard {
 public:
  explicit QueuedSpinLockGuard(KSPIN_LOCK& lock) { KeAcquireInStackQueuedSpinLock(&lock, &handle_); }
  ~QueuedSpinLockGuard() { KeReleaseInStackQueuedSpinLock(&handle_); }
  QueuedSpinLockGuard(const QueuedSpinLockGuard&) = delete;
  QueuedSpinLockGuard& operator=(const QueuedSpinLockGuard&) = delete;

 private:
  KLOCK_QUEUE_HANDLE handle_;
};

class MutexGuard {
 public:
  explicit MutexGuard(KMUTEX& mutex) : mutex_(mutex) {
    // Without a time-out and not alertable, the wait for a mutex ends only with the mutex.
    IgnoreResult(KeWaitForSingleObject(&mutex_, Executive, KernelMode, FALSE, nullptr));
  }
  ~MutexGuard() { KeReleaseMutex(&mutex_, FALSE); }
  MutexGuard(const MutexGuard&) = delete;
  MutexGuard& operator=(const MutexGuard&) = delete;

 private:
  KMUTEX& mutex_;
};
