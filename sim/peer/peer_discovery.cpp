// The discovery of a scripted peer.
#include "sim/peer/peer_discovery.h"

#include <utility>

#include "sim/host/timing.h"
#include "sim/router/adapter.h"

namespace sim {
namespace {

constexpr platform::Time kFirstQuestion = 100 * kMs;
constexpr platform::Time kTimeout = 1000 * kMs;
constexpr platform::Time kPause = 1000 * kMs;  // before a question is repeated
constexpr platform::Time kLanePoll = 50 * kMs;
constexpr unsigned kRetries = 10;
constexpr unsigned kLanePolls = 200;
constexpr std::uint32_t kTwoLanes = 2;  // of supported widths
constexpr unsigned kDualWidth = 3;

std::array<std::uint8_t, 16> Bytes(const Uuid& uuid) {
  std::array<std::uint8_t, 16> bytes{};
  for (unsigned i = 0; i < 16; ++i) bytes[i] = static_cast<std::uint8_t>(uuid[i / 4] >> (8 * (i % 4)));
  return bytes;
}

}  // namespace

const char* PeerStepName(PeerStep step) {
  static constexpr const char* kNames[] = {
      "identity", "properties-changed", "link-status", "link-change", "await-link-change",
      "bonding",  "properties",         "known",       "gave-up"};
  return kNames[static_cast<unsigned>(step)];
}

PeerDiscovery::PeerDiscovery(PeerVoice& voice, const PeerConfig& config, Adapter& port)
    : voice_(voice), config_(config), port_(port), alive_(std::make_shared<bool>(true)) {}

PeerDiscovery::~PeerDiscovery() {
  *alive_ = false;
}

// Runs `action` unless the conversation has gone on or ended by then.
template <class F>
void PeerDiscovery::Later(platform::Time delay, F action) {
  voice_.simulation().After(delay, "peer", [alive = alive_, this, turn = turn_, action] {
    if (*alive && turn == turn_) action();
  });
}

void PeerDiscovery::Begin() {
  if (config_.asks) Enter(PeerStep::Identity, kFirstQuestion);
}

void PeerDiscovery::HostAsked() {
  if (config_.asks && step_ == PeerStep::GaveUp) Begin();
}

void PeerDiscovery::Enter(PeerStep step, platform::Time delay) {
  step_ = step;
  retries_ = step == PeerStep::Bonding ? kLanePolls : kRetries;
  asked_.reset();
  lanesAsked_ = false;
  ++turn_;
  voice_.Reached(port_, step);
  Later(delay, [this] { Run(); });
}

void PeerDiscovery::Run() {
  const Uuid own = voice_.uuid();
  std::vector<std::uint32_t> payload(own.begin(), own.end());
  switch (step_) {
    case PeerStep::Identity:
      return Ask(config_.oldUuidRequest ? DiscoveryType::OldUuidRequest : DiscoveryType::UuidRequest);
    case PeerStep::PropertiesChanged:
      return Ask(DiscoveryType::PropertiesChangedRequest, payload);
    case PeerStep::LinkStatus:
      return Ask(DiscoveryType::LinkStatusRequest);
    case PeerStep::LinkChange:
      return Ask(DiscoveryType::LinkChangeRequest,
                 {kDualWidth | (port_.space().Get(port_.laneCapability + 1) & 0xF) << 8});
    case PeerStep::AwaitLinkChange:
      return Failed();  // counts the seconds
    case PeerStep::Bonding:
      return Bond();
    case PeerStep::Properties:
      payload.insert(payload.end(), hostUuid_->begin(), hostUuid_->end());
      payload.push_back(static_cast<std::uint32_t>(hostBlock_.size()));
      return Ask(DiscoveryType::PropertiesRequest, payload);
    case PeerStep::Known:
    case PeerStep::GaveUp:
      return;
  }
}

void PeerDiscovery::Ask(DiscoveryType type, const std::vector<std::uint32_t>& payload) {
  ++turn_;
  asked_ = type;
  sequence_ = retries_ & 3;
  Later(kTimeout, [this] { Failed(); });
  voice_.Send(MakeDiscoveryPacket(Pdf::InterDomainRequest, port_.number(), sequence_, type, payload));
}

void PeerDiscovery::Answered(const ControlPacket& answer) {
  if (!asked_) return;
  if (answer.pdf == Pdf::Notification) return Failed();
  if (!IsDiscovery(answer) || !InterDomainFaults(answer).empty()) return;
  if (SequenceOf(answer) != sequence_ || !Answers(TypeOf(answer), *asked_)) return;
  if (TypeOf(answer) == DiscoveryType::ErrorResponse) {
    const bool never = answer.Word(8) == static_cast<std::uint32_t>(DiscoveryError::NotSupported);
    return never ? GiveUpStep() : Failed();
  }
  TakeAnswer(answer);
}

void PeerDiscovery::TakeAnswer(const ControlPacket& answer) {
  switch (step_) {
    case PeerStep::Identity:
      hostUuid_ = UuidAt(answer, kDiscoveryHeaderWords);
      return Enter(PeerStep::PropertiesChanged, 0);
    case PeerStep::PropertiesChanged:
      return AfterUuid();
    case PeerStep::LinkStatus:
      if (answer.Word(8) != 0 || (answer.Word(9) & 0xFF) < kTwoLanes) return GiveUpStep();
      if (!HasLowerUuid()) return Enter(PeerStep::AwaitLinkChange, kPause);
      return config_.asksLinkChange ? Enter(PeerStep::LinkChange, 0) : GiveUpStep();
    case PeerStep::LinkChange:
      return answer.Word(8) == 0 ? Enter(PeerStep::Bonding, kPause) : Failed();
    case PeerStep::Properties:
      return TakePiece(answer);
    default:
      return;
  }
}

void PeerDiscovery::AfterUuid() {
  Enter(TwoLanes() && hostUuid_ != voice_.uuid() ? PeerStep::LinkStatus : PeerStep::Properties, 0);
}

void PeerDiscovery::TakePiece(const ControlPacket& answer) {
  const std::size_t total = answer.Word(16) >> 16;
  if ((answer.Word(16) & 0xFFFF) != hostBlock_.size()) return Failed();
  hostBlock_.insert(hostBlock_.end(), answer.dwords.begin() + kPropertiesResponseWords, answer.dwords.end());
  hostGeneration_ = answer.Word(17);
  if (hostBlock_.size() < total) return Run();
  Enter(PeerStep::Known, 0);
}

void PeerDiscovery::Failed() {
  asked_.reset();
  ++turn_;
  if (retries_-- == 0) return GiveUpStep();
  Later(step_ == PeerStep::Bonding ? kLanePoll : kPause, [this] { Run(); });
}

// A link that stays as it is keeps nobody from talking.
void PeerDiscovery::GiveUpStep() {
  const bool over = step_ == PeerStep::Identity || step_ == PeerStep::Properties;
  if (step_ == PeerStep::PropertiesChanged) return AfterUuid();
  Enter(over ? PeerStep::GaveUp : PeerStep::Properties, 0);
}

// --- lanes

bool PeerDiscovery::TwoLanes() const {
  return config_.lanes == 2 && port_.pair() != nullptr;
}

bool PeerDiscovery::HasLowerUuid() const {
  return Bytes(voice_.uuid()) <= Bytes(*hostUuid_);
}

bool PeerDiscovery::ReadyForLinkChange() const {
  return TwoLanes() && (!config_.asks || step_ == PeerStep::AwaitLinkChange);
}

void PeerDiscovery::LinkChangeAccepted(unsigned width) {
  if (step_ == PeerStep::AwaitLinkChange) {
    retries_ = kLanePolls;
    asked_.reset();
    step_ = PeerStep::Bonding;
  }
  ++turn_;
  Later(100 * kMs, [this, width] {
    SetTargetWidth(width);
    if (step_ == PeerStep::Bonding) Run();
  });
}

// Goes on once the link has two lanes. With the lower UUID it asks for them as soon as its second lane is up.
void PeerDiscovery::Bond() {
  if (port_.negotiatedWidth() == 2) return Enter(PeerStep::Properties, 0);
  Adapter& second = *port_.pair();
  if (HasLowerUuid()) {
    if (second.laneDisabled()) WriteLane(second, kLaneDisable, 0);
    if (second.laneState() == LaneState::Up && !std::exchange(lanesAsked_, true)) SetTargetWidth(kDualWidth);
  }
  Failed();
}

void PeerDiscovery::SetTargetWidth(unsigned width) {
  for (Adapter* lane : {port_.pair(), &port_}) WriteLane(*lane, 0x3F << 4, width << 4 | kLaneBonding);
}

void PeerDiscovery::WriteLane(Adapter& lane, std::uint32_t clear, std::uint32_t set) {
  const unsigned control = lane.laneCapability + 1;
  const std::uint32_t value = (lane.space().Get(control) & ~clear) | set;
  lane.space().Write(control, std::span(&value, 1), [](Complaint, const ComplaintArguments&) {});
}

}  // namespace sim
