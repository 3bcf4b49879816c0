#include "platform/power_policy.h"

#include <algorithm>
#include <utility>

#include "platform/device_node.h"
#include "platform/pnp_manager.h"

namespace platform {

PowerPolicy::PowerPolicy(DeviceNode& node)
    : node_(node),
      worker_(node.kernel(), "power policy of device " + std::to_string(node.id()), [this] { RunWorker(); }) {}

PowerPolicy::~PowerPolicy() {
  StopIdleTimer();
}

void PowerPolicy::Stop() {
  StopIdleTimer();
  worker_.Stop();
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
  if (phase_ == PowerPhase::Off || phase_ == PowerPhase::GoingDown || node_.kernel().pnp().systemAsleep) return false;
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

void PowerPolicy::RequestArrived() {
  ++requests_;
  StopIdleTimer();
  if (phase_ == PowerPhase::Dx && WantsD0()) worker_.Queue();
}

void PowerPolicy::RequestGone() {
  if (--requests_ == 0) RestartIdleTimer();
}

void PowerPolicy::WakeSignalled() {
  HostKernel& kernel = node_.kernel();
  if (action != SystemPowerAction::None || kernel.pnp().systemAsleep) {
    if (!armedForSystemWake_) return;
    wakeSignalled_ = true;
    if (kernel.pnp().systemAsleep) kernel.SystemResumeAsync();
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
  if (node_.kernel().pnp().systemAsleep || action != SystemPowerAction::None) return false;
  return references_ > 0 || requests_ > 0 || wakeSignalled_;
}

bool PowerPolicy::WakesSystem() const {
  return armedForSystemWake_ && wakeSignalled_;
}

void PowerPolicy::RestartIdleTimer() {
  StopIdleTimer();
  if (phase_ != PowerPhase::D0 || !idle_.enabled || references_ != 0 || requests_ != 0) return;
  idleTimer_ = node_.kernel().simulation().After(idle_.timeout, "idle time-out", [this] {
    idleTimer_ = 0;
    idleDue_ = true;
    worker_.Queue();
  });
}

void PowerPolicy::StopIdleTimer() {
  idleDue_ = false;
  if (idleTimer_ != 0) node_.kernel().simulation().Cancel(std::exchange(idleTimer_, 0));
}

void PowerPolicy::RunWorker() {
  if (idleDue_) node_.kernel().pnp().IdleDown(node_);
  if (phase_ == PowerPhase::Dx && WantsD0()) node_.kernel().pnp().WakeUp(node_);
}

void PowerPolicy::ReleaseWaiters(bool ok) {
  for (Waiter* waiter : std::exchange(waiters_, {})) {
    waiter->done = true;
    waiter->ok = ok;
    if (!ok) --references_;
    node_.kernel().simulation().scheduler().Wake(*waiter->task);
  }
}

}  // namespace platform
