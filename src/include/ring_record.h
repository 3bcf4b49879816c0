// A descriptor ring of the host interface and the frames that travel on it.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include <cstddef>
#include <cstdint>

#include "include/atomic.h"
#include "include/bits.h"
#include "include/list.h"
#include "include/locks.h"
#include "include/pool.h"

struct USB4_HOST_INTERFACE;
struct USB4_RING;
struct USB4_RING_FRAME;

// Called once for each completed or cancelled frame, after the ring lock has been dropped.
using USB4_RING_COMPLETION = void (*)(USB4_RING* ring, USB4_RING_FRAME* frame, bool cancelled);

struct FrameWord {
  using Size = Bits<0, 12>;     // bytes
  using Status = Bits<12, 12>;  // bits 20 to 31 of the descriptor's dword 2, on receive
  using EndPdf = Bits<24, 4>;
  using StartPdf = Bits<28, 4>;
};

// Embedded in its user's record. On exactly one of a ring's two lists or a local one.
struct USB4_RING_FRAME {
  std::uint64_t BufferBusAddress;
  USB4_RING_COMPLETION Completion;
  std::uint32_t Word;
  LIST_ENTRY Link;
};

using FrameList = ListView<USB4_RING_FRAME, offsetof(USB4_RING_FRAME, Link)>;
using RingFrameList = ListView<USB4_RING_FRAME, offsetof(USB4_RING_FRAME, Link), By<LockPlace::Ring>>;

// As the hardware reads and writes it.
struct USB4_RING_DESCRIPTOR {
  std::uint32_t BufferLow;
  std::uint32_t BufferHigh;
  std::uint32_t Attributes;
  std::uint32_t Reserved;
};
static_assert(sizeof(USB4_RING_DESCRIPTOR) == 16);

inline constexpr std::uint32_t kRingRawMode = 1;
inline constexpr std::uint32_t kRingFrameMode = 2;
inline constexpr std::uint32_t kRingEndToEnd = 4;

struct USB4_RING {
  static constexpr ULONG kPoolTag = PoolTag("Tag5");

  // Set at allocation.
  std::uint32_t Size;  // descriptors
  std::int32_t Hop;    // -1: none yet, one is to be chosen
  // Next descriptor to fill, next descriptor to complete. Equal: empty; one slot stays free when full.
  Guarded<std::uint32_t, By<LockPlace::Ring>> Head;
  Guarded<std::uint32_t, By<LockPlace::Ring>> Tail;
  USB4_HOST_INTERFACE* HostInterface;
  volatile USB4_RING_DESCRIPTOR* Descriptors;
  WDFCOMMONBUFFER DescriptorTable;  // outlives the ring: it goes with the DMA enabler, or with whoever replaces it
  std::uint64_t DescriptorsBusAddress;
  std::uint8_t IsTransmit;
  Guarded<std::uint8_t, By<LockPlace::Ring>> Running;
  std::uint8_t Claimed;  // the hop's slot in the host interface is this ring's; others never touch a register
  std::uint32_t Flags;
  std::uint32_t EndToEndHop;
  std::uint16_t StartPdfMask;
  std::uint16_t EndPdfMask;
  // Frames waiting for a descriptor, and frames posted to one, oldest first.
  _Guarded_by_(Lock) LIST_ENTRY Queue;
  _Guarded_by_(Lock) LIST_ENTRY InFlight;
  ::Mutex<LockPlace::RingMutex> Mutex;   // held by the network handlers around their processing
  QueuedSpinLock<LockPlace::Ring> Lock;  // queued: transmission wants waiters served in order
  AtomicLong References;                 // the allocator's, and one for each handler at work

  RingFrameList Queued() { return RingFrameList(Queue); }
  RingFrameList Posted() { return RingFrameList(InFlight); }
  bool IsEmpty() const { return Head == Tail; }
  std::uint32_t After(std::uint32_t index) const { return index + 1 == Size ? 0 : index + 1; }
  bool IsFull() const { return After(Head) == Tail; }
};
