// Kernel calls with the arguments that every test gives them; from a task.
#pragma once
#include <ntddk.h>

namespace platform {

// Pool tags.
inline constexpr ULONG kTag = 0x74736554;       // Test
inline constexpr ULONG kOtherTag = 0x7265684f;  // Oher

inline LARGE_INTEGER RelativeMs(LONGLONG ms) {
  LARGE_INTEGER interval;
  interval.QuadPart = -10000 * ms;
  return interval;
}

inline void DelayMs(LONGLONG ms) {
  LARGE_INTEGER interval = RelativeMs(ms);
  (void)KeDelayExecutionThread(KernelMode, FALSE, &interval);
}

// 0 ms: a poll.
inline NTSTATUS Wait(void* object, LONGLONG ms) {
  LARGE_INTEGER due = RelativeMs(ms);
  return KeWaitForSingleObject(object, Executive, KernelMode, FALSE, &due);
}

inline void WaitForEver(void* object) {
  (void)KeWaitForSingleObject(object, Executive, KernelMode, FALSE, nullptr);
}

// The index of the event that ended the wait.
inline NTSTATUS WaitForEither(KEVENT* first, KEVENT* second, LONGLONG ms) {
  LARGE_INTEGER due = RelativeMs(ms);
  PVOID events[] = {first, second};
  return KeWaitForMultipleObjects(2, events, WaitAny, Executive, KernelMode, FALSE, &due, nullptr);
}

inline void Raise(KIRQL level) {
  KIRQL before;
  KeRaiseIrql(level, &before);
}

struct HeldSpinLock {
  HeldSpinLock() {
    KeInitializeSpinLock(&lock);
    Acquire();
  }
  void Acquire() { KeAcquireSpinLock(&lock, &before); }
  void Release() { KeReleaseSpinLock(&lock, before); }

  KSPIN_LOCK lock;
  KIRQL before = 0;
};

}  // namespace platform
