// DMA rings of the host interface: descriptors fetched and written back by bus address, in events between which tasks
// may run.
#pragma once
#include <cstdint>
#include <functional>
#include <string>

#include "platform/host/device_model.h"
#include "platform/host/simulation.h"
#include "sim/host/complaints.h"
#include "sim/host/frame.h"
#include "sim/host/timing.h"

namespace sim {

// What a ring needs from the function that it is part of.
class RingBus {
 public:
  virtual ~RingBus() = default;
  virtual platform::PciSlot* slot() = 0;
  virtual platform::Simulation& simulation() = 0;
  virtual const Timing& timing() const = 0;
  virtual void RaiseRingInterrupt(unsigned number) = 0;
  // `part` of the host interface: "transmit ring 0".
  virtual void Misuse(const std::string& part, Complaint rule, ComplaintArguments arguments) = 0;
  virtual void FrameFetched(unsigned hop, Frame frame) = 0;
  virtual platform::Time RoomAfter(unsigned hop) = 0;  // until the fabric takes the next frame of this ring
};

class Ring {
 public:
  enum class Register { BaseLow, BaseHigh, Index, Size, Control, PdfMasks };

  Ring(RingBus& bus, bool transmit, unsigned hop, unsigned interrupt);
  virtual ~Ring() = default;

  std::uint32_t Read(Register which) const;
  void Write(Register which, std::uint32_t value);
  bool running() const { return (control_ & kValid) != 0; }
  bool Quiet() const { return pendingEvents_ == 0; }
  void Reset();
  // Stops DMA at once; what is on its way is forgotten. The registers keep their values.
  void Quiesce();
  bool ForgeDescriptor(unsigned index, std::uint32_t dword2);

 protected:
  static constexpr std::uint32_t kValid = 1u << 31;
  static constexpr std::uint32_t kRawMode = 1u << 30;
  static constexpr std::uint32_t kEndToEnd = 1u << 28;
  static constexpr std::uint32_t kDone = 1u << 21;
  static constexpr std::uint32_t kRequestStatus = 1u << 22;  // as posted
  static constexpr std::uint32_t kOverrun = 1u << 22;        // as written back: the frame was larger than its buffer
  static constexpr std::uint32_t kInterruptEnable = 1u << 23;

  struct Descriptor {
    std::uint64_t buffer = 0;
    std::uint32_t word2 = 0;
    std::uint32_t word3 = 0;
  };

  virtual void IndexWritten(std::uint32_t value) = 0;
  virtual void Started() = 0;
  std::uint32_t count() const { return size_ & 0xFFFF; }
  bool ReadDescriptor(unsigned index, Descriptor& descriptor);
  bool WriteBack(unsigned index, std::uint32_t word2);
  // Runs `action` after `delay` unless the ring has been quiesced by then.
  template <class F>
  void Later(platform::Time delay, const char* name, F action) {
    ++pendingEvents_;
    bus_.simulation().After(delay, name, [this, epoch = epoch_, action = std::move(action)]() mutable {
      if (epoch != epoch_) return;
      --pendingEvents_;
      action();
    });
  }
  // Completion interrupt of the ring, after its own short delay.
  void RaiseLater();
  std::string Name() const;
  void Misuse(Complaint rule, ComplaintArguments arguments = {}) const {
    bus_.Misuse(Name(), rule, std::move(arguments));
  }

  RingBus& bus_;
  const bool transmit_;
  const unsigned hop_;
  const unsigned interrupt_;
  std::uint32_t index_ = 0;  // producer or consumer as last written
  std::uint32_t size_ = 0;
  std::uint32_t control_ = 0;
  std::uint32_t pdfMasks_ = 0;

 private:
  void WriteControl(std::uint32_t value);
  void WriteIndex(std::uint32_t value);

  std::uint32_t baseLow_ = 0;
  std::uint32_t baseHigh_ = 0;
  unsigned epoch_ = 0;
  unsigned pendingEvents_ = 0;
};

// Fetches descriptor and buffer at a drawn moment after the doorbell, one frame after the other.
class TransmitRing final : public Ring {
 public:
  TransmitRing(RingBus& bus, unsigned hop, unsigned interrupt) : Ring(bus, true, hop, interrupt) {}

 private:
  void IndexWritten(std::uint32_t value) override;
  void Started() override;
  void Kick();
  void Fetch();
  void Complete(std::uint32_t word2);
  void CheckDescriptor(const Descriptor& descriptor);

  std::uint32_t next_ = 0;  // descriptor to fetch
  bool fetching_ = false;
};

// Fills posted descriptors: payload, then descriptor with done, then interrupt, as three events.
class ReceiveRing final : public Ring {
 public:
  ReceiveRing(RingBus& bus, unsigned hop, unsigned interrupt) : Ring(bus, false, hop, interrupt) {}
  bool Deliver(const Frame& frame, const WriteBackForgery& forgery);

 private:
  void IndexWritten(std::uint32_t) override {}
  void Started() override;
  bool Admits(const Frame& frame) const;
  std::uint32_t bufferBytes() const;

  std::uint32_t next_ = 0;  // descriptor that the next frame fills
  platform::Time busyUntil_ = 0;
};

// A ring's register as an offset of BAR0 names it; `ring` null when the offset is none.
struct RingRegister {
  Ring* ring = nullptr;
  Ring::Register which = Ring::Register::BaseLow;
};

}  // namespace sim
