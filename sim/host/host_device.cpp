// The USB4 host interface of a host router: which register an offset names, and what power states do to them.
#include "sim/host/host_device.h"

#include <utility>

namespace sim {
namespace {

constexpr std::uint32_t kTransmitRings = 0x00000;
constexpr std::uint32_t kReceiveRings = 0x08000;
constexpr std::uint32_t kTransmitControl = 0x19800;
constexpr std::uint32_t kReceiveControl = 0x29800;
constexpr std::uint32_t kStatus = 0x37800;
constexpr std::uint32_t kMask = 0x38200;
constexpr std::uint32_t kThrottle = 0x38C00;
constexpr std::uint32_t kVectors = 0x38C40;
constexpr std::uint32_t kCapabilitiesRegister = 0x39640;
// Above the hop count the capabilities dword says more than the driver wants; it must mask.
constexpr std::uint32_t kCapabilitiesAboveHopCount = 0x00010000;

// Parts of it, as complaints call them.
constexpr const char* kWhole = "host interface";
constexpr const char* kPciFunction = "PCI function";

// Index of the dword that `offset` names in a block of `count` dwords at `base`.
bool InBlock(std::uint32_t offset, std::uint32_t base, std::uint32_t count, std::uint32_t& index) {
  if (offset < base || offset >= base + 4 * count) return false;
  index = (offset - base) / 4;
  return true;
}

}  // namespace

HostInterface::HostInterface(platform::Simulation& simulation, std::string name, HostInterfaceConfig config,
                             ProtocolErrors& errors)
    : simulation_(simulation),
      name_(std::move(name)),
      config_(config),
      errors_(errors),
      timing_(simulation),
      pci_(config.pci,
           [this](Complaint rule, ComplaintArguments arguments) { Misuse(kPciFunction, rule, std::move(arguments)); }),
      interrupts_(
          simulation, config.hopCount,
          [this](unsigned vector) {
            if (slot_ != nullptr) slot_->SignalMessage(vector);
          },
          [this](Complaint rule, ComplaintArguments arguments) { Misuse(kWhole, rule, std::move(arguments)); }) {
  lostByRing_.resize(config_.hopCount);
  RingBus& bus = *this;
  for (unsigned hop = 0; hop < config_.hopCount; ++hop) {
    transmitRings_.push_back(std::make_unique<TransmitRing>(bus, hop, hop));
    receiveRings_.push_back(std::make_unique<ReceiveRing>(bus, hop, config_.hopCount + hop));
  }
}

HostInterface::~HostInterface() = default;

void HostInterface::Misuse(const std::string& part, Complaint rule, ComplaintArguments arguments) {
  errors_.Report(simulation_.Now(), rule, name_ + " " + part, std::move(arguments));
}

RingRegister HostInterface::FindRingRegister(std::uint32_t offset) {
  using Register = Ring::Register;
  static constexpr Register kShape[4] = {Register::BaseLow, Register::BaseHigh, Register::Index, Register::Size};
  static constexpr Register kRun[2] = {Register::Control, Register::PdfMasks};
  auto find = [&](std::uint32_t base, std::uint32_t stride, auto& rings, const Register* names,
                  std::uint32_t named) -> RingRegister {
    if (offset < base || offset >= base + stride * config_.hopCount) return {};
    const std::uint32_t which = (offset - base) % stride / 4;
    if (which >= named) return {};
    return {rings[(offset - base) / stride].get(), names[which]};
  };
  if (RingRegister found = find(kTransmitRings, 16, transmitRings_, kShape, 4); found.ring != nullptr) return found;
  if (RingRegister found = find(kReceiveRings, 16, receiveRings_, kShape, 4); found.ring != nullptr) return found;
  if (RingRegister found = find(kTransmitControl, 32, transmitRings_, kRun, 2); found.ring != nullptr) return found;
  return find(kReceiveControl, 32, receiveRings_, kRun, 2);
}

std::uint32_t HostInterface::BadAccess(Complaint rule, ComplaintArguments arguments) {
  Misuse(kWhole, rule, std::move(arguments));
  return 0;
}

std::uint32_t HostInterface::ReadRegister(std::uint32_t offset) {
  if (power_ != platform::FunctionPower::D0) return ~0u;
  if (offset % 4 != 0) return BadAccess(Complaint::UnknownRegisterRead, {.offset = offset});
  if (offset == kCapabilitiesRegister) return kCapabilitiesAboveHopCount | config_.hopCount;
  std::uint32_t index = 0;
  if (InBlock(offset, kStatus, interrupts_.statusDwords(), index)) return interrupts_.ReadStatus(index);
  if (InBlock(offset, kMask, interrupts_.maskDwords(), index)) return interrupts_.ReadMask(index);
  if (InBlock(offset, kThrottle, InterruptUnit::kVectors, index)) return interrupts_.ReadThrottle(index);
  if (InBlock(offset, kVectors, interrupts_.vectorDwords(), index)) return interrupts_.ReadVectors(index);
  const RingRegister found = FindRingRegister(offset);
  return found.ring != nullptr ? found.ring->Read(found.which)
                               : BadAccess(Complaint::UnknownRegisterRead, {.offset = offset});
}

void HostInterface::WriteRegister(std::uint32_t offset, std::uint32_t value) {
  if (power_ != platform::FunctionPower::D0) return;
  std::uint32_t index = 0;
  if (offset % 4 != 0) {
    BadAccess(Complaint::UnknownRegisterWrite, {.value = value, .offset = offset});
  } else if (offset == kCapabilitiesRegister || InBlock(offset, kStatus, interrupts_.statusDwords(), index)) {
    BadAccess(Complaint::ReadOnlyRegister, {.value = value, .offset = offset});
  } else if (InBlock(offset, kMask, interrupts_.maskDwords(), index)) {
    interrupts_.WriteMask(index, value);
  } else if (InBlock(offset, kThrottle, InterruptUnit::kVectors, index)) {
    interrupts_.WriteThrottle(index, value);
  } else if (InBlock(offset, kVectors, interrupts_.vectorDwords(), index)) {
    interrupts_.WriteVectors(index, value);
  } else if (const RingRegister found = FindRingRegister(offset); found.ring != nullptr) {
    found.ring->Write(found.which, value);
  } else {
    BadAccess(Complaint::UnknownRegisterWrite, {.value = value, .offset = offset});
  }
}

// D3 stops DMA but keeps the registers; with the supply gone everything starts from reset.
void HostInterface::SetPower(platform::FunctionPower power) {
  if (power == power_) return;
  power_ = power;
  if (power != platform::FunctionPower::D0) {
    for (auto& ring : transmitRings_) ring->Quiesce();
    for (auto& ring : receiveRings_) ring->Quiesce();
  }
  if (power == platform::FunctionPower::Off) Reset();
  if (port_ != nullptr) port_->HostPowerChanged(power);
}

void HostInterface::Reset() {
  for (auto& ring : transmitRings_) ring->Reset();
  for (auto& ring : receiveRings_) ring->Reset();
  interrupts_.Reset();
}

bool HostInterface::Receive(unsigned hop, const Frame& frame, const WriteBackForgery& forgery) {
  const bool taken = power_ == platform::FunctionPower::D0 && hop < receiveRings_.size() &&
                     receiveRings_[hop]->Deliver(frame, forgery);
  if (taken) return true;
  ++lostFrames_;
  if (hop < lostByRing_.size()) ++lostByRing_[hop];
  return false;
}

std::uint64_t HostInterface::LostFrames(unsigned hop) const {
  return hop < lostByRing_.size() ? lostByRing_[hop] : 0;
}

bool HostInterface::ReceiveRingRunning(unsigned hop) const {
  return hop < receiveRings_.size() && receiveRings_[hop]->running();
}

void HostInterface::FrameFetched(unsigned hop, Frame frame) {
  if (port_ != nullptr) port_->FrameFromHost(hop, std::move(frame));
}

void HostInterface::SignalWake() {
  if (slot_ != nullptr) slot_->SignalWake();
}

bool HostInterface::Quiet() const {
  for (const auto& ring : transmitRings_) {
    if (!ring->Quiet()) return false;
  }
  for (const auto& ring : receiveRings_) {
    if (!ring->Quiet()) return false;
  }
  return interrupts_.Quiet();
}

bool HostInterface::ForgeDescriptor(bool transmit, unsigned hop, unsigned index, std::uint32_t dword2) {
  if (hop >= receiveRings_.size()) return false;
  Ring& ring = transmit ? static_cast<Ring&>(*transmitRings_[hop]) : static_cast<Ring&>(*receiveRings_[hop]);
  return ring.ForgeDescriptor(index, dword2);
}

}  // namespace sim
