// DMA rings of the host interface.
#include "sim/host/ring_engine.h"

#include <algorithm>

namespace sim {
namespace {

constexpr DelayRange kFetchDelay{"sim.ring.fetch", 2 * kUs, 5, 12 * kUs};
constexpr DelayRange kTransmitDone{"sim.ring.transmit-done", 2 * kUs, 5, 8 * kUs};
constexpr DelayRange kReceivePayload{"sim.ring.receive-payload", 1 * kUs, 1, 8 * kUs};
constexpr DelayRange kReceiveDone{"sim.ring.receive-done", 1 * kUs, 1, 5 * kUs};
constexpr DelayRange kMessageDelay{"sim.ring.message", 1 * kUs, 1, 5 * kUs};

std::uint32_t LoadLittle(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

void StoreLittle(std::uint8_t* bytes, std::uint32_t value) {
  for (unsigned i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

}  // namespace

Ring::Ring(RingBus& bus, bool transmit, unsigned hop, unsigned interrupt)
    : bus_(bus), transmit_(transmit), hop_(hop), interrupt_(interrupt) {}

std::string Ring::Name() const {
  return (transmit_ ? "transmit ring " : "receive ring ") + std::to_string(hop_);
}

std::uint32_t Ring::Read(Register which) const {
  switch (which) {
    case Register::BaseLow:
      return baseLow_;
    case Register::BaseHigh:
      return baseHigh_;
    case Register::Index:
      return index_;
    case Register::Size:
      return size_;
    case Register::Control:
      return control_;
    case Register::PdfMasks:
      return pdfMasks_;
  }
  return 0;
}

void Ring::Write(Register which, std::uint32_t value) {
  const bool shapesRing = which != Register::Index && which != Register::Control;
  if (shapesRing && running()) Misuse(Complaint::RingRunning, {.value = value});
  switch (which) {
    case Register::BaseLow:
      baseLow_ = value;
      break;
    case Register::BaseHigh:
      baseHigh_ = value;
      break;
    case Register::Size: {
      const std::uint32_t allowed = transmit_ ? 0x0000FFFF : 0x0FFFFFFF;
      if ((value & ~allowed) != 0) Misuse(Complaint::RingSize, {.value = value});
      size_ = value & allowed;
      break;
    }
    case Register::PdfMasks:
      if (transmit_ && value != 0) Misuse(Complaint::RingPdfMasks, {.value = value});
      pdfMasks_ = value;
      break;
    case Register::Index:
      WriteIndex(value);
      break;
    case Register::Control:
      WriteControl(value);
      break;
  }
}

void Ring::WriteIndex(std::uint32_t value) {
  const std::uint32_t index = transmit_ ? value >> 16 : value & 0xFFFF;
  const std::uint32_t other = transmit_ ? value & 0xFFFF : value >> 16;
  if (other != 0) Misuse(Complaint::RingIndexReserved, {.value = value});
  if (running() && index >= count()) {
    Misuse(Complaint::RingIndexRange, {.index = index, .limit = count()});
    return;
  }
  if (!running() && value != 0) Misuse(Complaint::RingIndexStopped, {.value = value});
  index_ = value;
  if (running()) IndexWritten(index);
}

void Ring::WriteControl(std::uint32_t value) {
  const std::uint32_t allowed = kValid | kRawMode | kEndToEnd | (transmit_ ? 0 : 0x007FF000u);
  if ((value & ~allowed) != 0) Misuse(Complaint::RingControl, {.value = value});
  const bool wasRunning = running();
  control_ = value & allowed;
  if (running() && !wasRunning) {
    if ((baseLow_ | baseHigh_) == 0 || (baseLow_ & 0xF) != 0) Misuse(Complaint::RingTable);
    if (count() < 2) Misuse(Complaint::RingShort, {.count = count()});
    Started();
  }
  if (!running() && wasRunning) Quiesce();
}

void Ring::Quiesce() {
  ++epoch_;
  pendingEvents_ = 0;
}

void Ring::Reset() {
  Quiesce();
  baseLow_ = baseHigh_ = index_ = size_ = control_ = pdfMasks_ = 0;
}

void Ring::RaiseLater() {
  Later(bus_.timing().Draw(kMessageDelay), "ring interrupt", [this] { bus_.RaiseRingInterrupt(interrupt_); });
}

bool Ring::ReadDescriptor(unsigned index, Descriptor& descriptor) {
  std::uint8_t raw[16];
  const std::uint64_t base = static_cast<std::uint64_t>(baseHigh_) << 32 | baseLow_;
  platform::PciSlot* slot = bus_.slot();
  if (slot == nullptr || !slot->DmaRead(base + 16ull * index, raw, sizeof raw)) return false;
  descriptor.buffer = static_cast<std::uint64_t>(LoadLittle(raw + 4)) << 32 | LoadLittle(raw);
  descriptor.word2 = LoadLittle(raw + 8);
  descriptor.word3 = LoadLittle(raw + 12);
  return true;
}

bool Ring::WriteBack(unsigned index, std::uint32_t word2) {
  std::uint8_t raw[4];
  StoreLittle(raw, word2);
  const std::uint64_t base = static_cast<std::uint64_t>(baseHigh_) << 32 | baseLow_;
  platform::PciSlot* slot = bus_.slot();
  return slot != nullptr && slot->DmaWrite(base + 16ull * index + 8, raw, sizeof raw);
}

bool Ring::ForgeDescriptor(unsigned index, std::uint32_t word2) {
  return running() && index < count() && WriteBack(index, word2);
}

void TransmitRing::Started() {
  next_ = index_ >> 16;
  fetching_ = false;
}

void TransmitRing::IndexWritten(std::uint32_t) {
  Kick();
}

void TransmitRing::Kick() {
  if (!running() || fetching_ || next_ == index_ >> 16) return;
  fetching_ = true;
  const platform::Time delay = std::max(bus_.timing().Draw(kFetchDelay), bus_.RoomAfter(hop_));
  Later(delay, "transmit fetch", [this] { Fetch(); });
}

void TransmitRing::CheckDescriptor(const Descriptor& descriptor) {
  if ((descriptor.word2 & 0xFFF00000) != (kRequestStatus | kInterruptEnable)) {
    Misuse(Complaint::DescriptorFlags, {.value = descriptor.word2 & 0xFFF00000});
  }
  if (descriptor.word3 != 0) Misuse(Complaint::DescriptorEnd, {.value = descriptor.word3});
  const std::uint32_t size = descriptor.word2 & 0xFFF;
  if ((control_ & kRawMode) != 0 && (size == 0 || size > 256)) Misuse(Complaint::FrameLength, {.count = size});
}

void TransmitRing::Fetch() {
  Descriptor descriptor;
  if (!ReadDescriptor(next_, descriptor)) return;
  CheckDescriptor(descriptor);
  Frame frame;
  frame.endPdf = static_cast<std::uint8_t>((descriptor.word2 >> 12) & 0xF);
  frame.startPdf = static_cast<std::uint8_t>((descriptor.word2 >> 16) & 0xF);
  const std::uint32_t size = descriptor.word2 & 0xFFF;
  frame.bytes.resize(size == 0 ? 4096 : size);
  platform::PciSlot* slot = bus_.slot();
  if (slot == nullptr || !slot->DmaRead(descriptor.buffer, frame.bytes.data(), frame.bytes.size())) return;
  Later(bus_.timing().Draw(kTransmitDone), "transmit done", [this, word2 = descriptor.word2] { Complete(word2); });
  bus_.FrameFetched(hop_, std::move(frame));
}

void TransmitRing::Complete(std::uint32_t word2) {
  if ((word2 & kRequestStatus) != 0) WriteBack(next_, word2 | kDone);
  if ((word2 & kInterruptEnable) != 0) RaiseLater();
  next_ = (next_ + 1) % count();
  fetching_ = false;
  Kick();
}

void ReceiveRing::Started() {
  next_ = index_ & 0xFFFF;
  busyUntil_ = 0;
}

std::uint32_t ReceiveRing::bufferBytes() const {
  const std::uint32_t field = (size_ >> 16) & 0xFFF;
  return field == 0 ? 4096 : field;
}

// A raw ring looks at the end-of-frame PDF only: control packets have no start-of-frame marker. Any other takes frames
// that begin and end as its masks say.
bool ReceiveRing::Admits(const Frame& frame) const {
  const bool end = (pdfMasks_ >> frame.endPdf & 1) != 0;
  const bool start = (pdfMasks_ >> (16 + frame.startPdf) & 1) != 0;
  return (control_ & kRawMode) != 0 ? end : end && start;
}

bool ReceiveRing::Deliver(const Frame& frame, const WriteBackForgery& forgery) {
  if (!running() || !Admits(frame)) return false;
  if (next_ == (index_ & 0xFFFF) || count() == 0) return false;
  const unsigned index = next_;
  next_ = (next_ + 1) % count();

  Descriptor descriptor;
  if (!ReadDescriptor(index, descriptor)) return false;
  if ((descriptor.word2 & 0xFFF00000) != (kRequestStatus | kInterruptEnable) || descriptor.word3 != 0) {
    Misuse(Complaint::DescriptorFlags, {.value = descriptor.word2 & 0xFFF00000});
  }

  const auto stored = std::min<std::size_t>(frame.bytes.size(), bufferBytes());
  const auto size = forgery.size.value_or(static_cast<std::uint32_t>(stored)) & 0xFFF;
  const std::uint32_t word2 = size | (forgery.endPdf.value_or(frame.endPdf) & 0xF) << 12 |
                              (forgery.startPdf.value_or(frame.startPdf) & 0xF) << 16 | kDone | kInterruptEnable |
                              (stored < frame.bytes.size() ? kOverrun : 0) | (forgery.statusBits & 0xFFF) << 20;

  const platform::Time now = bus_.simulation().Now();
  const platform::Time payloadAt = std::max(now, busyUntil_) + bus_.timing().Draw(kReceivePayload);
  const platform::Time doneAt = payloadAt + bus_.timing().Draw(kReceiveDone);
  busyUntil_ = doneAt;
  std::vector<std::uint8_t> payload(frame.bytes.begin(), frame.bytes.begin() + static_cast<std::ptrdiff_t>(stored));
  Later(payloadAt - now, "receive payload", [this, to = descriptor.buffer, payload = std::move(payload)] {
    platform::PciSlot* slot = bus_.slot();
    if (slot != nullptr && !payload.empty()) slot->DmaWrite(to, payload.data(), payload.size());
  });
  Later(doneAt - now, "receive done", [this, index, word2] {
    WriteBack(index, word2);
    RaiseLater();
  });
  return true;
}

}  // namespace sim
