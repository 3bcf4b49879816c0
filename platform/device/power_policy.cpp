#include "platform/device/power_policy.h"

#include <algorithm>
#include <utility>

#include "platform/device/device_node.h"

namespace platform {

PowerPolicy::PowerPolicy(DeviceNode& node, HostKernel& kernel, PowerTransitions& transitions, DeviceId id)
    : node_(node),
      kernel_(kernel),
      transitions_(transitions),
      worker_(kernel, "power policy of device " + std::to_string(id), [this] { RunWorker(); }) {}

PowerPolicy::~PowerPolicy() {
  StopIdleTimer();
}

void PowerPolicy::Reset() {
  StopIdleTimer();
  idle_ = {};
  armedForSystemWake_ = wakeSignalled_ = false;
  referencesLeft_ = std::exchange(references_, 0);
}

void PowerPolicy::Assign(const IdleSettings& settings) {
  idle_ = settings;
  RestartIdleTimer();
}

bool PowerPolicy::Reference() {
  ++references_;
  StopIdleTimer();
  if (phase_ == PowerPhase::Dx && WantsD0()) worker_.Queue();
  return phase_ == PowerPhase::D0;
}

bool PowerPolicy::ReferenceAndWait(Scheduler& scheduler) {
  // A power-down that has begun may itself wait for the caller, so that it is refused, not queued behind it.
  if (phase_ == PowerPhase::Off || phase_ == PowerPhase::GoingDown || transitions_.SystemAsleep()) return false;
  if (Reference()) return true;
  Waiter waiter{Scheduler::Current()};
  waiters_.push_back(&waiter);
  while (!waiter.done) scheduler.Park("waits for D0", &node_);
  return waiter.ok;
}

bool PowerPolicy::Dereference() {
  if (references_ == 0) return false;
  if (--references_ == 0) RestartIdleTimer();
  return true;
}

bool PowerPolicy::WaitsForD0(const Task* task) const {
  return std::any_of(waiters_.begin(), waiters_.end(), [task](const Waiter* waiter) { return waiter->task == task; });
}

void PowerPolicy::RequestArrived() {
  ++requests_;
  StopIdleTimer();
  if (phase_ == PowerPhase::Dx && WantsD0()) worker_.Queue();
}

void PowerPolicy::RequestGone() {
  if (--requests_ == 0) RestartIdleTimer();
}

void PowerPolicy::WakeSignalled() {
  if (action != SystemPowerAction::None || transitions_.SystemAsleep()) {
    if (armedForSystemWake_ && !wakeSignalled_) kernel_.SystemResumeAsync();
    wakeSignalled_ = armedForSystemWake_;
  } else if (idle_.canWake && (phase_ == PowerPhase::Dx || phase_ == PowerPhase::GoingDown)) {
    wakeSignalled_ = true;
    if (phase_ == PowerPhase::Dx) worker_.Queue();
  }
}

void PowerPolicy::Enter(PowerPhase phase) {
  phase_ = phase;
  switch (phase) {
    case PowerPhase::D0:
      wakeSignalled_ = false;
      ReleaseWaiters(true);
      RestartIdleTimer();
      break;
    case PowerPhase::GoingDown:
    case PowerPhase::Off:
      StopIdleTimer();
      ReleaseWaiters(false);
      break;
    case PowerPhase::Dx:
      if (WantsD0()) worker_.Queue();
      break;
    case PowerPhase::GoingUp:
      break;
  }
}

bool PowerPolicy::IdleDue() const {
  return idleDue_ && references_ == 0 && requests_ == 0;
}

bool PowerPolicy::WantsD0() const {
  if (transitions_.SystemAsleep() || action != SystemPowerAction::None) return false;
  return references_ > 0 || requests_ > 0 || wakeSignalled_;
}

void PowerPolicy::RestartIdleTimer() {
  StopIdleTimer();
  if (phase_ != PowerPhase::D0 || !idle_.enabled || references_ != 0 || requests_ != 0) return;
  idleTimer_ = kernel_.simulation().After(idle_.timeout, "idle time-out", [this] {
    idleTimer_ = 0;
    idleDue_ = true;
    worker_.Queue();
  });
}

void PowerPolicy::StopIdleTimer() {
  idleDue_ = false;
  if (idleTimer_ != 0) kernel_.simulation().Cancel(std::exchange(idleTimer_, 0));
}

void PowerPolicy::RunWorker() {
  if (idleDue_) transitions_.IdleDown(node_);
  if (phase_ == PowerPhase::Dx && WantsD0()) transitions_.WakeUp(node_);
}

void PowerPolicy::ReleaseWaiters(bool ok) {
  for (Waiter* waiter : std::exchange(waiters_, {})) {
    waiter->done = true;
    waiter->ok = ok;
    if (!ok) --references_;
    kernel_.simulation().scheduler().Wake(*waiter->task);
  }
}

}  // namespace platform
