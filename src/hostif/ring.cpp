// Rings: allocation, hop claims, references, start and stop; then the hot path, which posts frames to descriptors and
// takes completed ones off. The hot path neither allocates nor traces.
#include "hostif/ring.h"

#include "hostif/host_interface.h"
#include "hostif/ring_registers.h"
#include "include/locks.h"
#include "include/trace.h"

namespace {

USB4_RING*& SlotOf(USB4_HOST_INTERFACE* hostInterface, std::uint32_t hop, bool isTransmit) {
  return (isTransmit ? hostInterface->TransmitRings : hostInterface->ReceiveRings)[hop];
}

bool HasRingArrays(const USB4_HOST_INTERFACE* hostInterface) {
  return hostInterface->TransmitRings != nullptr && hostInterface->ReceiveRings != nullptr;
}

// The lowest free hop from 1; hop 0 belongs to the control channel. Negative when all are taken.
_Requires_lock_held_(hostInterface->HopLock) std::int32_t
    FirstFreeHop(USB4_HOST_INTERFACE* hostInterface, bool isTransmit) {
  _Analysis_assume_lock_held_(hostInterface->HopLock);
  for (std::uint32_t hop = 1; hop < hostInterface->HopCount; ++hop) {
    if (SlotOf(hostInterface, hop, isTransmit) == nullptr) return static_cast<std::int32_t>(hop);
  }
  return -1;
}

void StoreParameters(USB4_RING* ring, const USB4_RING_PARAMETERS& parameters) {
  ring->Size = parameters.Size;
  ring->Hop = parameters.Hop;
  ring->IsTransmit = parameters.IsTransmit ? 1 : 0;
  ring->Flags = parameters.Flags;
  ring->EndToEndHop = parameters.EndToEndHop;
  ring->StartPdfMask = parameters.StartPdfMask;
  ring->EndPdfMask = parameters.EndPdfMask;
}

void WriteRing(const USB4_RING& ring, std::uint32_t which, std::uint32_t value) {
  WriteHostRegister(*ring.HostInterface, RingRegister(ring, which), value);
}

void WriteRingControl(const USB4_RING& ring, std::uint32_t which, std::uint32_t value) {
  WriteHostRegister(*ring.HostInterface, RingControlRegister(ring, which), value);
}

void WriteTableAddress(const USB4_RING& ring, std::uint64_t address) {
  WriteRing(ring, kRingTableLow, static_cast<std::uint32_t>(address));
  WriteRing(ring, kRingTableHigh, static_cast<std::uint32_t>(address >> 32));
}

void WriteSizeAndMasks(const USB4_RING& ring) {
  std::uint32_t size = RingSizeWord::Descriptors::Of(ring.Size);
  std::uint32_t masks = 0;
  if (!ring.IsTransmit) {
    if ((ring.Flags & kRingFrameMode) == 0) size = RingSizeWord::BufferSize::Put(size, kRawBufferSize);
    masks = RingPdfMaskWord::Start::Of(ring.StartPdfMask) | RingPdfMaskWord::End::Of(ring.EndPdfMask);
  }
  WriteRing(ring, kRingSize, size);
  WriteRingControl(ring, kControlPdfMasks, masks);
}

void WriteControlWord(const USB4_RING& ring) {
  std::uint32_t control = RingControlWord::Valid::Of(1);
  if ((ring.Flags & kRingFrameMode) == 0) control = RingControlWord::RawMode::Put(control, 1);
  WriteRingControl(ring, kControlWord, control);
  if ((ring.Flags & kRingEndToEnd) == 0) return;
  control = RingControlWord::EndToEnd::Put(control, 1);
  if (!ring.IsTransmit) control = RingControlWord::EndToEndHop::Put(control, ring.EndToEndHop);
  WriteRingControl(ring, kControlWord, control);
}

// The register holds bits of other rings too.
_Requires_lock_held_(hostInterface.InterruptLock) void ReplaceInterruptBits(const USB4_HOST_INTERFACE& hostInterface,
                                                                            std::uint32_t offset, std::uint32_t bits,
                                                                            std::uint32_t value) {
  _Analysis_assume_lock_held_(hostInterface.InterruptLock);
  WriteHostRegister(hostInterface, offset, (ReadHostRegister(hostInterface, offset) & ~bits) | value);
}

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
    WriteHostRegister(
        *ring.HostInterface, RingRegister(ring, kRingIndex),
        ring.IsTransmit ? RingIndexWord::Producer::Of(ring.Head) : RingIndexWord::Consumer::Of(ring.Head));
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

USB4_RING* Usb4_ring_alloc(USB4_HOST_INTERFACE* hostInterface, const USB4_RING_PARAMETERS& parameters) {
  PoolPtr<USB4_RING> ring = PoolPtr<USB4_RING>::New();
  if (!ring) {
    TraceError("no memory for a ring", "hop", parameters.Hop, "transmit", parameters.IsTransmit);
    return nullptr;
  }
  StoreParameters(ring.Get(), parameters);
  ring->HostInterface = hostInterface;
  DMA_BUFFER table{};
  NTSTATUS status = CreateDmaBuffer(*hostInterface, ring->Size * sizeof(USB4_RING_DESCRIPTOR), &table);
  if (!NT_SUCCESS(status)) {
    TraceError("no descriptor table", "hop", parameters.Hop, "status", AsStatus(status));
    return nullptr;
  }
  ring->Descriptors = static_cast<volatile USB4_RING_DESCRIPTOR*>(table.Address);
  ring->DescriptorsBusAddress = table.BusAddress;
  ring->DescriptorTable = table.Handle;
  ring->Queued().Initialise();
  ring->Posted().Initialise();
  ring->Lock.Initialise();
  ring->Mutex.Initialise();
  ring->References.Store(1);
  if (KIV_RESULT result = KivUsb4AllocHop(hostInterface, ring.Get())) {
    TraceError("hop not claimed", "hop", parameters.Hop, "transmit", parameters.IsTransmit, "result", AsResult(result));
  }
  return ring.Release();
}

USB4_RING* Usb4TxRingAlloc(USB4_HOST_INTERFACE* hostInterface, std::int32_t hop, std::uint32_t size,
                           std::uint32_t flags) {
  return Usb4_ring_alloc(hostInterface, {hop, size, true, flags, 0, 0, 0});
}

USB4_RING* Usb4RxRingAlloc(USB4_HOST_INTERFACE* hostInterface, USB4_RING_PARAMETERS parameters) {
  parameters.IsTransmit = false;
  return Usb4_ring_alloc(hostInterface, parameters);
}

KIV_RESULT KivUsb4AllocHop(USB4_HOST_INTERFACE* hostInterface, USB4_RING* ring) {
  SpinLockGuard guard(hostInterface->HopLock);
  if (!HasRingArrays(hostInterface)) return kKivInvalid;
  if (ring->Hop < 0) ring->Hop = FirstFreeHop(hostInterface, ring->IsTransmit != 0);
  if (ring->Hop < 0 || static_cast<std::uint32_t>(ring->Hop) >= hostInterface->HopCount) return kKivInvalid;
  USB4_RING*& slot = SlotOf(hostInterface, static_cast<std::uint32_t>(ring->Hop), ring->IsTransmit != 0);
  if (slot != nullptr) return kKivBusy;
  slot = ring;
  ring->Claimed = 1;
  return kKivOk;
}

void Usb4RingStart(USB4_RING* ring) {
  {
    QueuedSpinLockGuard guard(ring->Lock);
    if (ring->Running) return;
    if (!ring->Claimed) {
      TraceError("ring without a hop not started", "hop", ring->Hop);
      return;
    }
    WriteTableAddress(*ring, ring->DescriptorsBusAddress);
    WriteSizeAndMasks(*ring);
    WriteControlWord(*ring);
    KivUsb4RingInterruptActive(*ring, true);
    ring->Running = 1;
  }
  TraceInfo("ring started", "hop", ring->Hop, "transmit", ring->IsTransmit != 0);
}

void USb4RingStop(USB4_RING* ring) {
  bool ran;
  {
    QueuedSpinLockGuard guard(ring->Lock);
    ran = ring->Running != 0;
    if (ran) {
      KivUsb4RingInterruptActive(*ring, false);
      WriteRingControl(*ring, kControlWord, 0);
      WriteTableAddress(*ring, 0);
      WriteRing(*ring, kRingIndex, 0);
      WriteRing(*ring, kRingSize, 0);
      ring->Head = 0;
      ring->Tail = 0;
      ring->Running = 0;
    }
  }
  // Only the control channel wants its packets back at once: it frees or keeps them. A network ring's buffers belong to
  // the data path, which takes them back itself when it tears down.
  if (ring->Hop == 0) ProcessRingData(ring);
  if (ran) TraceInfo("ring stopped", "hop", ring->Hop, "transmit", ring->IsTransmit != 0);
}

void Usb4RingFree(USB4_RING* ring) {
  {
    QueuedSpinLockGuard guard(ring->Lock);
    if (ring->Running) TraceWarning("ring freed while it runs", "hop", ring->Hop);
    SpinLockGuard hopGuard(ring->HostInterface->HopLock);
    if (ring->Claimed && HasRingArrays(ring->HostInterface)) {
      USB4_RING*& slot = SlotOf(ring->HostInterface, static_cast<std::uint32_t>(ring->Hop), ring->IsTransmit != 0);
      if (slot == ring) slot = nullptr;
    }
    ring->Claimed = 0;
    ring->Descriptors = nullptr;
    ring->DescriptorsBusAddress = 0;
  }
  RingRelease(ring);
}

USB4_RING* RingReference(USB4_HOST_INTERFACE* hostInterface, std::uint32_t hop, bool isTransmit) {
  SpinLockGuard guard(hostInterface->HopLock);
  if (!HasRingArrays(hostInterface) || hop >= hostInterface->HopCount) return nullptr;
  USB4_RING* ring = SlotOf(hostInterface, hop, isTransmit);
  if (ring != nullptr) ring->References.Increment();
  return ring;
}

void RingRelease(USB4_RING* ring) {
  if (ring->References.Decrement() == 0) PoolDelete(ring);
}

void KivUsb4RingInterruptActive(const USB4_RING& ring, bool active) {
  USB4_HOST_INTERFACE& hostInterface = *ring.HostInterface;
  const std::uint32_t number = RingInterrupt(ring);
  const std::uint32_t vectorRegister = kVectorBase + 4 * (number / 8);
  const std::uint32_t nibble = 4 * (number % 8);
  const std::uint32_t maskRegister = kInterruptMaskBase + 4 * (number / 32);
  const std::uint32_t maskBit = 1u << (number % 32);
  // Ring 0 raises messages 0 and 1, ring 1 messages 2 and 3.
  const std::uint32_t message = 2 * static_cast<std::uint32_t>(ring.Hop) + (ring.IsTransmit ? 0u : 1u);

  SpinLockGuard guard(hostInterface.InterruptLock);
  ReplaceInterruptBits(hostInterface, vectorRegister, 0xFu << nibble, active ? (message & 0xFu) << nibble : 0);
  ReplaceInterruptBits(hostInterface, maskRegister, maskBit, active ? maskBit : 0);
}

void ClearRingInterruptStatus(const USB4_RING& ring) {
  IgnoreResult(ReadHostRegister(*ring.HostInterface, InterruptStatusRegister(RingInterrupt(ring))));  // read to clear
}

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
