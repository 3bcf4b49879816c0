// Between a host interface's ring 0 and its host router: faults, scripts and the log.
#include "sim/host/control_wire.h"

#include <utility>

#include "sim/host/inter_domain_packet.h"

namespace sim {
namespace {

constexpr DelayRange kDelay{"sim.wire.delay", 20 * kMs, 1 * kMs, 60 * kMs};
// Longer than the 200 ms after which a manager gives a request up.
constexpr DelayRange kLate{"sim.wire.late", 250 * kMs, 201 * kMs, 900 * kMs};
constexpr DelayRange kHeld{"sim.wire.held", 5 * kMs, 1 * kMs, 30 * kMs};
constexpr unsigned kControlRing = 0;

bool IsAnswer(Pdf pdf) {
  return pdf == Pdf::Read || pdf == Pdf::Write || pdf == Pdf::Notification;
}

}  // namespace

ControlWire::ControlWire(platform::Simulation& simulation, HostInterface& host, PacketSink& sink,
                         ProtocolErrors& errors)
    : simulation_(simulation), host_(host), sink_(sink), errors_(errors), timing_(simulation) {
  host_.Connect(this);
}

RawPacket ControlWire::Raw(const ControlPacket& packet) {
  return {static_cast<std::uint8_t>(packet.pdf), EncodePacket(packet), 0, {}};
}

void ControlWire::AtPacket(std::uint64_t number, std::function<void()> action) {
  atPacket_.emplace(number, std::move(action));
}

void ControlWire::ReplaceAnswer(std::uint64_t n, Replacement replacement) {
  replacements_[answers_ + n] = std::move(replacement);
}

void ControlWire::FrameFromHost(unsigned hop, Frame frame) {
  if (hop != kControlRing) {
    sink_.FrameFromNetworkRing(hop, std::move(frame));
    return;
  }
  if (frame.startPdf != frame.endPdf) Misuse(Complaint::FramePdfs, {.index = frame.startPdf, .limit = frame.endPdf});
  Passage passage;
  passage.packet.pdf = frame.endPdf;
  passage.packet.bytes = std::move(frame.bytes);
  Pass(std::move(passage));
}

void ControlWire::Misuse(Complaint rule, ComplaintArguments arguments) {
  errors_.Report(simulation_.Now(), rule, host_.name() + " transmit ring 0", std::move(arguments));
}

void ControlWire::PacketToHost(const ControlPacket& packet) {
  Passage passage;
  passage.up = true;
  passage.packet = Raw(packet);
  if (IsAnswer(packet.pdf)) {
    auto found = replacements_.find(++answers_);
    if (found != replacements_.end()) {
      const std::optional<RawPacket> replaced = found->second(packet);
      replacements_.erase(found);
      if (!replaced) return;
      passage.packet = *replaced;
      passage.note = " scripted";
    }
  }
  Pass(std::move(passage));
}

void ControlWire::SendFromManager(const ControlPacket& packet) {
  Passage passage;
  passage.packet = Raw(packet);
  Pass(std::move(passage));
}

void ControlWire::Inject(const RawPacket& packet) {
  Passage passage;
  passage.up = true;
  passage.packet = packet;
  passage.note = " injected";
  Forward(std::move(passage));
}

// A block is asked for once only; what else is asked comes back to this sequence number.
bool ControlWire::SparedDiscovery(const Passage& passage) {
  const auto decoded = DecodePacket(static_cast<Pdf>(passage.packet.pdf), passage.packet.bytes);
  if (!decoded || !IsDiscovery(decoded->packet)) return false;
  const DiscoveryType type = TypeOf(decoded->packet);
  return type == DiscoveryType::PropertiesRequest || type == DiscoveryType::PropertiesResponse ||
         SequenceOf(decoded->packet) == 0;
}

bool ControlWire::Spared(const Passage& passage) const {
  if (!spared_) return false;
  const Pdf pdf = static_cast<Pdf>(passage.packet.pdf);
  if (pdf == Pdf::InterDomainRequest || pdf == Pdf::InterDomainResponse) return SparedDiscovery(passage);
  return (pdf == Pdf::Read || pdf == Pdf::Write) && HasHeader(passage.packet.bytes) &&
         AddressWord::Decode(PeekWord(passage.packet.bytes, 2)).sequence == *spared_;
}

bool ControlWire::EventThatMayOnlyBeLost(const Passage& passage) const {
  return spared_ && passage.packet.pdf == static_cast<std::uint8_t>(Pdf::HotPlug);
}

// A response of a peer reaches its request with a bad CRC as well.
bool ControlWire::TakenDamaged(const Passage& passage) const {
  const bool response = passage.packet.pdf == static_cast<std::uint8_t>(Pdf::InterDomainResponse);
  return EventThatMayOnlyBeLost(passage) || (spared_ && response);
}

// The damage that a fault does to an answer's content. True when the packet is late as well.
bool ControlWire::BendAnswer(Passage& passage) {
  const Pdf pdf = static_cast<Pdf>(passage.packet.pdf);
  if (!passage.up || !IsAnswer(pdf) || !HasHeader(passage.packet.bytes)) return false;
  platform::FaultPlan& faults = simulation_.faults();
  std::optional<ControlPacket> bent;  // most packets pass as they are
  const auto packet = [&]() -> ControlPacket& {
    if (!bent) bent = DecodePacket(pdf, passage.packet.bytes)->packet;
    return *bent;
  };
  const auto random = [this]() -> platform::RandomStream& { return simulation_.Random("sim.wire.bend"); };
  if (pdf != Pdf::Notification && faults.Fires("wire.wrong-sequence")) {
    AddressWord address = packet().Address();
    address.sequence += 1 + static_cast<std::uint32_t>(random().Below(3));
    packet().dwords[2] = address.Encode();
    passage.note += " fault=wire.wrong-sequence";
  }
  if (faults.Fires("wire.wrong-route")) {
    packet().dwords[1] ^= 1u << random().Below(32);
    passage.note += " fault=wire.wrong-route";
  }
  if (faults.Fires("wire.error-packet")) {
    const auto code = static_cast<ErrorCode>(random().Below(16));
    bent = ErrorPacket(packet().Route(), packet().Address().adapter, code);
    passage.note += " fault=wire.error-packet";
  }
  if (faults.Fires("wire.truncate")) {
    packet().dwords.resize(random().Below(packet().dwords.size()));
    passage.note += " fault=wire.truncate";
  }
  if (bent) passage.packet = Raw(*bent);
  return faults.Fires("wire.late");
}

void ControlWire::BreakBoth(Passage& passage, bool& lost) {
  platform::FaultPlan& faults = simulation_.faults();
  if (!TakenDamaged(passage) && !passage.packet.bytes.empty() && faults.Fires("wire.corrupt")) {
    platform::RandomStream& random = simulation_.Random("sim.wire.break");
    passage.packet.bytes[random.Below(passage.packet.bytes.size())] ^= static_cast<std::uint8_t>(1u << random.Below(8));
    passage.damaged = true;
    passage.note += " fault=wire.corrupt";
  }
  lost = faults.Fires("wire.lose");
  if (lost) passage.note += " fault=wire.lose";
}

void ControlWire::Pass(Passage passage) {
  if (Spared(passage)) return Forward(std::move(passage));
  platform::FaultPlan& faults = simulation_.faults();
  const bool late = passage.note.empty() && BendAnswer(passage);
  bool lost = false;
  BreakBoth(passage, lost);
  if (lost) {
    Log(passage, NextPacket());
    return;
  }
  if (passage.up && faults.Fires("wire.unsolicited")) Unsolicited();
  if (passage.up && faults.Fires("wire.storm")) Storm();
  // A request comes twice in a row: later it could undo what the manager has written since.
  if (faults.Fires("wire.duplicate")) {
    Passage again = passage;
    // The first one has answered its peer's request.
    again.damaged = again.damaged || passage.packet.pdf == static_cast<std::uint8_t>(Pdf::InterDomainResponse);
    ForwardLater(passage.up ? timing_.Draw(kHeld) : 0, std::move(again));
  }

  std::optional<Passage>& held = held_[passage.up ? 1 : 0];
  if (!held && faults.Fires("wire.reorder")) {
    const bool up = passage.up;
    held = std::move(passage);
    ++inFlight_;
    simulation_.After(timing_.Draw(kHeld), "packet held back", [this, up] {
      --inFlight_;
      if (std::optional<Passage> waiting = std::exchange(held_[up ? 1 : 0], std::nullopt)) Forward(std::move(*waiting));
    });
    return;
  }
  if (late) {
    passage.note += " fault=wire.late";
    ForwardLater(timing_.Draw(kLate), std::move(passage));
  } else if (!EventThatMayOnlyBeLost(passage) && faults.Fires("wire.delay")) {
    passage.note += " fault=wire.delay";
    ForwardLater(timing_.Draw(kDelay), std::move(passage));
  } else {
    const bool up = passage.up;
    Forward(std::move(passage));
    if (std::optional<Passage> waiting = std::exchange(held_[up ? 1 : 0], std::nullopt)) {
      waiting->note += " fault=wire.reorder";
      Forward(std::move(*waiting));
    }
  }
}

void ControlWire::ForwardLater(platform::Time delay, Passage passage) {
  ++inFlight_;
  simulation_.After(delay, "delayed packet", [this, passage = std::move(passage)] {
    --inFlight_;
    Forward(passage);
  });
}

// What is lost has a number too, and what waits for that number happens.
std::uint64_t ControlWire::NextPacket() {
  const std::uint64_t number = log_.NextNumber();
  if (atPacket_.empty()) return number;
  const auto range = atPacket_.equal_range(number);
  std::vector<std::function<void()>> actions;
  for (auto it = range.first; it != range.second; ++it) actions.push_back(it->second);
  atPacket_.erase(range.first, range.second);
  for (const auto& action : actions) action();
  return number;
}

void ControlWire::Forward(Passage passage) {
  const std::uint64_t number = NextPacket();
  if (passage.up && manager_ != nullptr) {
    Log(passage, number);
    const auto decoded = DecodePacket(static_cast<Pdf>(passage.packet.pdf), passage.packet.bytes);
    if (decoded && decoded->crcGood) manager_->PacketArrived(decoded->packet);
    return;
  }
  if (passage.up) {
    HandToHost(passage);
    Log(passage, number);
    return;
  }
  Log(passage, number);
  const auto decoded = DecodePacket(static_cast<Pdf>(passage.packet.pdf), passage.packet.bytes);
  if (!decoded) {
    return Misuse(Complaint::PacketBytes, {.count = static_cast<std::uint32_t>(passage.packet.bytes.size())});
  }
  sink_.PacketFromHost(*decoded, passage.damaged);
}

void ControlWire::HandToHost(Passage& passage) {
  const Pdf pdf = static_cast<Pdf>(passage.packet.pdf);
  const bool request = pdf == Pdf::InterDomainRequest;
  const Frame frame{passage.packet.startPdf, passage.packet.pdf,
                    log_.Wanted() || request ? passage.packet.bytes : std::move(passage.packet.bytes)};
  if (!host_.Receive(kControlRing, frame, passage.packet.forgery)) {
    passage.note += " no-buffer";
  } else if (request) {
    if (const auto decoded = DecodePacket(pdf, passage.packet.bytes)) {
      sink_.RequestHanded(decoded->packet, passage.damaged || !passage.packet.forgery.Nothing());
    }
  }
}

void ControlWire::Log(const Passage& passage, std::uint64_t number) {
  if (!log_.Wanted()) return;
  const auto decoded = DecodePacket(static_cast<Pdf>(passage.packet.pdf), passage.packet.bytes);
  std::string text =
      decoded ? DescribePacket(decoded->packet, passage.up)
              : "PDF" + std::to_string(passage.packet.pdf) + " bytes=" + std::to_string(passage.packet.bytes.size());
  if (decoded && !decoded->crcGood) text += " crc=bad";
  log_.Add({number, simulation_.Now(), passage.up, passage.packet.pdf, passage.packet.bytes, text + passage.note});
}

// A read response that nobody asked for, or a packet of a type that nobody sends.
void ControlWire::Unsolicited() {
  platform::RandomStream& random = simulation_.Random("sim.wire.unsolicited");
  ControlPacket packet;
  packet.pdf = static_cast<Pdf>(random.Below(16));
  packet.dwords = RouteHeader(random.Below(2) == 0 ? 0 : random.Next() & 0x3F3F, true);
  const std::uint64_t length = random.Below(20);
  for (std::uint64_t i = 0; i < length; ++i) packet.dwords.push_back(static_cast<std::uint32_t>(random.Next()));
  Passage passage;
  passage.up = true;
  passage.packet = Raw(packet);
  passage.note = " fault=wire.unsolicited";
  Forward(std::move(passage));
}

// A router with a bad contact: plug and unplug of one adapter, many times, without anything having changed.
void ControlWire::Storm() {
  platform::RandomStream& random = simulation_.Random("sim.wire.storm");
  const auto adapter = static_cast<unsigned>(random.Below(64));
  const std::uint64_t count = 2 * (4 + random.Below(20));
  for (std::uint64_t i = 0; i < count; ++i) {
    Passage passage;
    passage.up = true;
    passage.packet = Raw(HotPlugPacket(0, adapter, i % 2 == 0));
    passage.note = " fault=wire.storm";
    ForwardLater(static_cast<platform::Time>(i) * 50 * platform::kMicrosecond, std::move(passage));
  }
}

}  // namespace sim
