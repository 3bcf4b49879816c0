// A cable between two ports.
#include "sim/router/cable.h"

#include <utility>

#include "sim/router/router.h"

namespace sim {
namespace {

constexpr DelayRange kTraining{"sim.link.training", 20 * kMs, 5 * kMs, 120 * kMs};
constexpr DelayRange kBonding{"sim.link.bonding", 100 * kUs, 20 * kUs, 400 * kUs};
constexpr platform::Time kSlowBonding = 20 * kMs;

constexpr std::uint32_t kPort18Idle = 0x00000410;
constexpr unsigned kTargetDual = 3;
constexpr std::uint32_t kWidthDual = 2u << 20;  // of the supported widths in LANE_ADP_CS_0

unsigned ResetBuffers(const Adapter& adapter) {
  return (adapter.model().bufferWord >> 20) & 0x3FF;
}

}  // namespace

Link::Link(Surroundings& fabric, Adapter& first, Adapter& second, CableOptions options)
    : fabric_(fabric),
      ends_{&first, &second},
      options_(options),
      generation_(fabric.NewGeneration()),
      alive_(std::make_shared<bool>(true)) {
  speed_ = NegotiatedSpeed();
  for (unsigned lane = 0; lane < 2; ++lane) {
    lanes_[lane].wired = lane < options_.lanes && LaneAdapter(0, lane) != nullptr && LaneAdapter(1, lane) != nullptr;
    for (unsigned end = 0; end < 2; ++end) {
      if (Adapter* adapter = LaneAdapter(end, lane)) adapter->link = this;
    }
  }
}

Link::~Link() {
  *alive_ = false;
}

Adapter* Link::LaneAdapter(unsigned end, unsigned lane) const {
  return lane == 0 ? ends_[end] : ends_[end]->pair();
}

Link::Position Link::Find(const Adapter& adapter) const {
  for (unsigned end = 0; end < 2; ++end) {
    for (unsigned lane = 0; lane < 2; ++lane) {
      if (LaneAdapter(end, lane) == &adapter) return {end, lane};
    }
  }
  return {};
}

Adapter* Link::Opposite(const Adapter& adapter) const {
  const Position at = Find(adapter);
  return lanes_[at.lane].wired ? LaneAdapter(1 - at.end, at.lane) : nullptr;
}

bool Link::LaneUp(const Adapter& adapter) const {
  return lanes_[Find(adapter).lane].up;
}

bool Link::usb4() const {
  return ends_[0]->router().model().usb4() && ends_[1]->router().model().usb4();
}

bool Link::betweenDomains() const {
  const Router &first = ends_[0]->router(), &second = ends_[1]->router();
  if (first.place().host == nullptr || second.place().host == nullptr) return false;
  return first.upstreamAdapter() != ends_[0]->number() && second.upstreamAdapter() != ends_[1]->number();
}

bool Link::mayRun() const {
  return !betweenDomains() || (!fabric_.Asleep(ends_[0]->router()) && !fabric_.Asleep(ends_[1]->router()));
}

unsigned Link::NegotiatedSpeed() const {
  if (options_.gbpsPerLane != 0) return options_.gbpsPerLane;
  const std::uint32_t common = ends_[0]->router().model().laneSpeeds & ends_[1]->router().model().laneSpeeds;
  return (common & 0x4) != 0 ? 20 : 10;
}

// Runs `action` later, unless the cable is gone or the link went down meanwhile.
void Link::After(platform::Time delay, const char* name, void (Link::*action)()) {
  fabric_.simulation().After(delay, name, [this, alive = alive_, generation = generation_, action] {
    if (*alive && generation == generation_) (this->*action)();
  });
}

bool Link::Wanted(unsigned lane) const {
  return !held_ && mayRun() && lanes_[lane].wired && !LaneAdapter(0, lane)->laneDisabled() &&
         !LaneAdapter(1, lane)->laneDisabled();
}

void Link::Evaluate() {
  const bool wasAttached = attached();
  bool lost = false;
  for (unsigned lane = 0; lane < 2; ++lane) {
    if (Wanted(lane)) continue;
    lost = lost || lanes_[lane].up;
    lanes_[lane].up = lanes_[lane].training = false;
  }
  if (lost && bonded_) SetBonded(false);
  if (lost) asked_ = {};
  if (wasAttached && !attached()) TakeDown();
  for (unsigned lane = 0; lane < 2; ++lane) {
    if (Wanted(lane) && !paused_ && !lanes_[lane].up && !lanes_[lane].training) StartTraining(lane);
  }
  Show();
}

void Link::StartTraining(unsigned lane) {
  lanes_[lane].training = true;
  if (options_.trained) {
    LaneCameUp(lane);
    if (lane == 1 || !lanes_[1].wired) options_.trained = false;
    return;
  }
  const platform::Time time = fabric_.timing().Draw(kTraining);
  fabric_.simulation().After(time, "link training", [this, alive = alive_, generation = generation_, lane] {
    if (*alive && generation == generation_ && lanes_[lane].training) LaneCameUp(lane);
  });
}

void Link::LaneCameUp(unsigned lane) {
  if (fabric_.simulation().faults().Fires("link.never-trains")) return;
  lanes_[lane].training = false;
  lanes_[lane].up = true;
  Show();
  if (lane == 0) fabric_.LinkCameUp(*this);
  EvaluateBonding();
}

void Link::StopLanes() {
  for (Lane& lane : lanes_) lane.up = lane.training = false;
  paused_ = false;
  bondingPending_ = false;
  asked_ = {};
  generation_ = fabric_.NewGeneration();
  if (bonded_) SetBonded(false);
  ClearMarks();
  Show();
}

// A port forgets that its link is configured when the link goes down other than by sleep.
void Link::ClearMarks() {
  for (unsigned end = 0; end < 2; ++end) {
    for (unsigned lane = 0; lane < 2; ++lane) {
      Adapter* adapter = LaneAdapter(end, lane);
      if (adapter == nullptr || adapter->usb4Capability == 0) continue;
      adapter->space().SetBits(adapter->usb4Capability + kPortCs19, kPortConfigured, 0);
    }
  }
}

void Link::TakeDown() {
  StopLanes();
  fabric_.LinkWentDown(*this);
}

void Link::Drop(platform::Time backAfter) {
  held_ = true;
  heldUntil_ = fabric_.simulation().Now() + backAfter;
  fabric_.simulation().After(backAfter, "link comes back", [this, alive = alive_] {
    if (*alive && fabric_.simulation().Now() >= heldUntil_) Release();
  });
  Evaluate();
}

// A host that sleeps behind it is told as by a plug.
void Link::Release() {
  held_ = false;
  Evaluate();
  if (!mayRun()) fabric_.WakeSleepingEnds(*this);
}

void Link::Retrain() {
  if (attached()) {
    TakeDown();
  } else {
    StopLanes();
  }
  Evaluate();
}

void Link::Pause() {
  paused_ = true;
  generation_ = fabric_.NewGeneration();
  for (Lane& lane : lanes_) {
    lane.training = lane.up || lane.training;
    lane.up = false;
  }
  Show();
}

void Link::Resume(platform::Time after) {
  After(after, "lanes resume", &Link::BringUp);
}

void Link::BringUp() {
  paused_ = false;
  for (Lane& lane : lanes_) lane.up = std::exchange(lane.training, false);
  Evaluate();
}

void Link::ResumeUntrained() {
  StopLanes();
  Evaluate();
}

void Link::Unplugged() {
  const bool wasAttached = attached();
  held_ = true;
  for (unsigned end = 0; end < 2; ++end) {
    for (unsigned lane = 0; lane < 2; ++lane) {
      if (Adapter* adapter = LaneAdapter(end, lane)) adapter->link = nullptr;
    }
  }
  *alive_ = false;
  if (wasAttached) {
    TakeDown();
  } else {
    StopLanes();
  }
}

void Link::LaneControlWritten(const Adapter& adapter, bool bondingRequested) {
  Evaluate();
  if (!bondingRequested) return;
  asked_[Find(adapter).end] = true;
  EvaluateBonding();
}

bool Link::BondingWanted() const {
  if (!lanes_[0].up || !lanes_[1].up) return false;
  for (unsigned end = 0; end < 2; ++end) {
    if (!asked_[end]) return false;
    for (unsigned lane = 0; lane < 2; ++lane) {
      const Adapter& adapter = *LaneAdapter(end, lane);
      if (adapter.targetWidth() != kTargetDual || (adapter.space().Get(adapter.laneCapability) & kWidthDual) == 0) {
        return false;
      }
    }
  }
  return true;
}

bool Link::BondAtOnce() {
  if (!lanes_[0].up || !lanes_[1].up) return false;
  for (unsigned end = 0; end < 2; ++end) {
    for (unsigned lane = 0; lane < 2; ++lane) LaneAdapter(end, lane)->SetTargetWidth(kTargetDual);
  }
  asked_ = {true, true};
  if (!BondingWanted()) return false;
  if (!bonded_) SetBonded(true);
  return true;
}

void Link::EvaluateBonding() {
  if (bondingPending_ || BondingWanted() == bonded_) return;
  bondingPending_ = true;
  const bool slow = fabric_.simulation().faults().Fires("link.slow-bonding");
  After(slow ? kSlowBonding : fabric_.timing().Draw(kBonding), "lane bonding", &Link::FinishBonding);
}

void Link::FinishBonding() {
  bondingPending_ = false;
  if (BondingWanted() != bonded_) SetBonded(!bonded_);
  EvaluateBonding();
}

// Bonded lanes pool their buffers on lane 0.
void Link::SetBonded(bool bonded) {
  bonded_ = bonded;
  for (unsigned end = 0; end < 2; ++end) {
    Adapter& first = *ends_[end];
    Adapter* second = first.pair();
    if (second == nullptr) continue;
    first.SetTotalBuffers(ResetBuffers(first) + (bonded ? ResetBuffers(*second) : 0));
    second->SetTotalBuffers(bonded ? 0 : ResetBuffers(*second));
  }
  Show();
}

void Link::ShowLane(unsigned end, unsigned lane) {
  Adapter* adapter = LaneAdapter(end, lane);
  if (adapter == nullptr) return;
  LaneState state = LaneState::Disconnected;
  if (adapter->laneDisabled()) state = LaneState::Disabled;
  if (lanes_[lane].training) state = LaneState::Training;
  if (lanes_[lane].up) state = LaneState::Up;
  adapter->SetLaneState(state);
  adapter->SetNegotiatedWidth(bonded_ ? 2 : 1);
  adapter->SetSpeed(lanes_[lane].up ? speed_ : 10);
}

void Link::ShowPort(unsigned end) {
  Adapter& port = *ends_[end];
  port.SetPlugged(lanes_[0].up);
  const bool bondable = lanes_[0].up && lanes_[1].wired;
  std::uint32_t port18 = kPort18Idle | (bondable ? kPortBondingPossible : 0);
  if (lanes_[0].up && !usb4()) port18 |= kPortThunderboltMode;
  for (unsigned lane = 0; lane < 2; ++lane) {
    Adapter* adapter = LaneAdapter(end, lane);
    if (adapter == nullptr || adapter->usb4Capability == 0) continue;
    adapter->space().SetBits(adapter->usb4Capability + kPortCs18, ~kPortWakeStatus, port18);
  }
  port.router().services().ShowBondingPossible(port, bondable);
}

void Link::Show() {
  for (unsigned end = 0; end < 2; ++end) {
    for (unsigned lane = 0; lane < 2; ++lane) ShowLane(end, lane);
    ShowPort(end);
  }
}

}  // namespace sim
