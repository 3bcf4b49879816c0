// Words that several flows of control change without a lock, over the platform's interlocked calls.
#pragma once
#include <ntddk.h>

// Sequentially consistent 32-bit word. Zero-filled memory is a valid one.
struct AtomicLong {
  volatile LONG Value;

  // A full barrier: a writer of one such word that then reads another is never overtaken by itself.
  LONG Load() { return InterlockedCompareExchange(&Value, 0, 0); }
  LONG Exchange(LONG value) { return InterlockedExchange(&Value, value); }
  void Store(LONG value) { InterlockedExchange(&Value, value); }
  // True when the word was `from` and is now `to`.
  bool ChangeFrom(LONG from, LONG to) { return InterlockedCompareExchange(&Value, to, from) == from; }
  LONG Increment() { return InterlockedIncrement(&Value); }  // the new value
  LONG Decrement() { return InterlockedDecrement(&Value); }  // the new value
};

// A byte that says something true or false to other flows, without ordering anything else.
struct SharedFlag {
  volatile UCHAR Value;

  bool IsSet() const { return Value != 0; }
  void Set(bool value) { Value = value ? 1 : 0; }
};
