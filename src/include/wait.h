// Waiting by named deadlines in milliseconds. PASSIVE_LEVEL.
#pragma once
#include <ntddk.h>

#include "include/status.h"

inline LARGE_INTEGER RelativeMs(ULONG ms) {
  LARGE_INTEGER due;
  due.QuadPart = -static_cast<LONGLONG>(ms) * 10000;
  return due;
}

// 0 when the event was signalled, 0x102 when the time ran out; any other value is the platform's own.
[[nodiscard]] inline NTSTATUS WaitForEventMs(KEVENT& event, ULONG ms) {
  LARGE_INTEGER due = RelativeMs(ms);
  return KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &due);
}

// A point in time from which waits count down.
class Deadline {
 public:
  explicit Deadline(ULONG ms) {
    LARGE_INTEGER frequency;
    const LONGLONG now = KeQueryPerformanceCounter(&frequency).QuadPart;
    ticksPerSecond_ = frequency.QuadPart;
    end_ = now + ticksPerSecond_ * ms / 1000;
  }
  // Rounded up; 0 once it has passed.
  ULONG RemainingMs() const {
    const LONGLONG left = end_ - KeQueryPerformanceCounter(nullptr).QuadPart;
    return left <= 0 ? 0 : static_cast<ULONG>((left * 1000 + ticksPerSecond_ - 1) / ticksPerSecond_);
  }

 private:
  LONGLONG ticksPerSecond_;
  LONGLONG end_;
};

inline void InitialiseAutoResetEvent(KEVENT& event) {
  KeInitializeEvent(&event, SynchronizationEvent, FALSE);
}

inline void InitialiseManualResetEvent(KEVENT& event) {
  KeInitializeEvent(&event, NotificationEvent, FALSE);
}

inline void SetEvent(KEVENT& event) {
  KeSetEvent(&event, IO_NO_INCREMENT, FALSE);
}
