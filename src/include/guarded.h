// Data that a lock guards: its type names the lock, and every access checks that the caller holds it.
//
// The check is the verifier's; elsewhere it costs nothing. It goes by the lock's place in the order, so a caller that
// holds the same lock of another record passes.
#pragma once
#include <type_traits>

#include "include/locks.h"

// What an access needs: one of these stands as the guard of a field or a list.
struct NoGuard {
  static void Read() {}
  static void Write() {}
};

template <LockPlace Place>
struct By {
  static void Read() { _Lock_order_place_held_(PlaceBit(Place)); }
  static void Write() { Read(); }
};

// Changed under both locks, so that either is enough to read.
template <LockPlace First, LockPlace Second>
struct ByBoth {
  static void Read() { _Lock_order_place_held_(PlaceBit(First) | PlaceBit(Second)); }
  static void Write() {
    _Lock_order_place_held_(PlaceBit(First));
    _Lock_order_place_held_(PlaceBit(Second));
  }
};

// What ties the topology together changes under the run lock and the topology lock.
using TopologyGuard = ByBoth<LockPlace::Run, LockPlace::Topology>;

// A field of a record. Zero-filled memory is a valid one. Reads like its value and is assigned like it.
template <class T, class Guard>
class Guarded {
 public:
  Guarded() = default;
  Guarded(const Guarded&) = default;  // the copy of a record is nobody else's yet
  Guarded& operator=(const Guarded& other) {
    Change() = other.Read();
    return *this;
  }

  const T& Read() const {
    Guard::Read();
    return value_;
  }
  T& Change() {
    Guard::Write();
    return value_;
  }
  // Without a check, for tools that look at a driver which stands still. Nothing in the driver does.
  const T& Peek() const { return value_; }

  operator T() const requires std::is_scalar_v<T> { return Read(); }
  T operator->() const requires std::is_pointer_v<T> { return Read(); }
  void operator=(T value) requires std::is_scalar_v<T> { Change() = value; }
  void operator++() requires std::is_integral_v<T> { ++Change(); }
  void operator--() requires std::is_integral_v<T> { --Change(); }

 private:
  T value_;
};
