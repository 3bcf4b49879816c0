// The hot path of a ring: posting frames to descriptors and taking completed ones off. No allocation, no tracing.
#include "hostif/ring.h"
#include "hostif/ring_registers.h"
#include "include/locks.h"

namespace {

using Attributes = DescriptorAttributes;

std::uint32_t PostedAttributes(const USB4_RING& ring, std::uint32_t frameWord) {
  std::uint32_t attributes = Attributes::kPosted;
  if (ring.IsTransmit) {
    attributes |= Attributes::Size::Of(FrameWord::Size::Get(frameWord)) |
                  Attributes::EndPdf::Of(FrameWord::EndPdf::Get(frameWord)) |
                  Attributes::StartPdf::Of(FrameWord::StartPdf::Get(frameWord));
  }
  return attributes;
}

// Moves waiting frames to free descriptors, oldest first, until the ring is full.
_Requires_lock_held_(ring.Lock) void PostQueued(USB4_RING& ring) {
  _Analysis_assume_lock_held_(ring.Lock);
  while (!ring.IsFull()) {
    USB4_RING_FRAME* frame = ring.Queued().TakeFirst();
    if (frame == nullptr) return;
    ring.Posted().Append(*frame);
    volatile USB4_RING_DESCRIPTOR& descriptor = ring.Descriptors[ring.Head];
    descriptor.BufferLow = static_cast<std::uint32_t>(frame->BufferBusAddress);
    descriptor.BufferHigh = static_cast<std::uint32_t>(frame->BufferBusAddress >> 32);
    descriptor.Reserved = 0;
    descriptor.Attributes = PostedAttributes(ring, frame->Word);
    ring.Head = ring.After(ring.Head);
    // The register write tells the hardware; it must see a whole descriptor, which the write's own barrier ensures.
    WriteHostRegister(*ring.HostInterface, RingRegister(ring, kRingIndex),
                      ring.IsTransmit ? ring.Head << 16 : ring.Head);
  }
}

// What the hardware wrote back, read once so that one look decides all.
std::uint32_t ReceivedFrameWord(std::uint32_t attributes) {
  return FrameWord::Size::Of(Attributes::Size::Get(attributes)) |
         FrameWord::EndPdf::Of(Attributes::EndPdf::Get(attributes)) |
         FrameWord::StartPdf::Of(Attributes::StartPdf::Get(attributes)) |
         FrameWord::Status::Of(Attributes::Status::Get(attributes));
}

// The oldest frame when the hardware is done with it, off the ring; else null. Later descriptors do not count: frames
// complete in order.
_Requires_lock_held_(ring.Lock) USB4_RING_FRAME* TakeCompleted(USB4_RING& ring) {
  _Analysis_assume_lock_held_(ring.Lock);
  if (ring.IsEmpty()) return nullptr;
  const std::uint32_t attributes = ring.Descriptors[ring.Tail].Attributes;
  if (Attributes::Done::Get(attributes) == 0) return nullptr;
  USB4_RING_FRAME* frame = ring.Posted().TakeFirst();
  if (frame == nullptr) return nullptr;
  if (!ring.IsTransmit) frame->Word = ReceivedFrameWord(attributes);
  ring.Tail = ring.After(ring.Tail);
  return frame;
}

_Requires_lock_held_(ring.Lock) KIV_RESULT EnqueueLocked(USB4_RING& ring, USB4_RING_FRAME& frame) {
  _Analysis_assume_lock_held_(ring.Lock);
  if (!ring.Running) return kKivFailed;
  ring.Queued().Append(frame);
  PostQueued(ring);
  return kKivOk;
}

// Moves finished frames to `finished`; true when they are cancelled rather than completed.
_Requires_lock_held_(ring.Lock) bool CollectFinished(USB4_RING& ring, const FrameList& finished) {
  _Analysis_assume_lock_held_(ring.Lock);
  if (!ring.Running) {
    ring.Posted().MoveAllTo(finished);
    ring.Queued().MoveAllTo(finished);
    return true;
  }
  while (USB4_RING_FRAME* frame = TakeCompleted(ring)) finished.Append(*frame);
  PostQueued(ring);
  return false;
}

}  // namespace

KIV_RESULT KivUsb4RingFrameEnqueue(USB4_RING* ring, USB4_RING_FRAME* frame) {
  QueuedSpinLockGuard guard(ring->Lock);
  return EnqueueLocked(*ring, *frame);
}

KIV_RESULT KivUsb4RingFrameTxNetEnqueue(USB4_RING* ring, USB4_RING_FRAME* frame) {
  return KivUsb4RingFrameEnqueue(ring, frame);
}

KIV_RESULT KivUsb4RingRx(USB4_RING* ring, USB4_RING_FRAME* frame) {
  if (ring->IsTransmit) return kKivFailed;
  return KivUsb4RingFrameEnqueue(ring, frame);
}

void ProcessRingData(USB4_RING* ring) {
  LIST_ENTRY finishedHead;
  const FrameList finished(finishedHead);
  finished.Initialise();
  bool cancelled;
  {
    QueuedSpinLockGuard guard(ring->Lock);
    cancelled = CollectFinished(*ring, finished);
  }
  while (USB4_RING_FRAME* frame = finished.TakeFirst()) frame->Completion(ring, frame, cancelled);
}

USB4_RING_FRAME* KivUsb4RingPoll(USB4_RING* ring) {
  QueuedSpinLockGuard guard(ring->Lock);
  if (ring->Running) return TakeCompleted(*ring);
  // The frames stay with their owner, who tears the data path down; the ring only forgets them.
  while (ring->Posted().TakeFirst() != nullptr) {
  }
  while (ring->Queued().TakeFirst() != nullptr) {
  }
  return nullptr;
}
