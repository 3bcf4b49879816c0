// Who decides when a device leaves and enters D0 in a running system: power references, requests, the idle timer, wake.
// The transitions themselves are power_transition.cpp's. For the platform's own files.
#pragma once
#include <cstdint>
#include <vector>

#include "platform/host/host_kernel.h"
#include "platform/scheduler/scheduler.h"
#include "platform/scheduler/worker.h"

namespace platform {

class DeviceNode;

// Off: not started, or removed. D0 is the only phase in which queues present requests and waiters are let go.
enum class PowerPhase : std::uint8_t { Off, GoingUp, D0, GoingDown, Dx };

// What moves a device between its power states; the PnP manager of the host.
class PowerTransitions {
 public:
  virtual bool SystemAsleep() const = 0;        // from the beginning of system sleep to the beginning of resume
  virtual void IdleDown(DeviceNode& node) = 0;  // to Dx when still nobody holds it
  virtual void WakeUp(DeviceNode& node) = 0;    // from runtime idle to D0

 protected:
  ~PowerTransitions() = default;
};

struct IdleSettings {
  bool enabled = false;
  bool canWake = false;  // hardware may wake it from runtime idle
  Time timeout = 0;
};

class PowerPolicy {
 public:
  PowerPolicy(DeviceNode& node, HostKernel& kernel, PowerTransitions& transitions, DeviceId id);
  ~PowerPolicy();

  // --- from the driver
  void Assign(const IdleSettings& settings);  // restarts the idle timer
  void ArmForSystemWake(bool armed) { armedForSystemWake_ = armed; }
  // Takes a reference without waiting. True when the device is in D0 already.
  bool Reference();
  // Takes a reference and waits for D0. False, without a reference, when a power-down is in progress or begins.
  [[nodiscard]] bool ReferenceAndWait(Scheduler& scheduler);
  [[nodiscard]] bool Dereference();  // false when none is held
  bool WaitsForD0(const Task* task) const;
  std::int64_t References() const { return references_; }
  std::int64_t ReferencesLeft() const { return referencesLeft_; }  // at the last Reset

  // --- from power-managed queues: a request that is in one, or that the driver owns from one
  void RequestArrived();
  void RequestGone();
  std::int64_t Requests() const { return requests_; }

  // --- from the hardware, on the scheduler's stack
  void WakeSignalled();

  // --- from the transitions
  PowerPhase phase() const { return phase_; }
  void Enter(PowerPhase phase);  // lets waiters go (D0), fails them (GoingDown, Off), starts and stops the idle timer
  bool IdleDue() const;          // the idle time-out has run out and still nobody holds the device
  bool WantsD0() const;          // somebody holds it or its hardware has signalled, and the system is awake
  SystemPowerAction action = SystemPowerAction::None;  // of the transition in progress

  bool WorkerBusy() const { return worker_.Busy(); }
  void Reset();  // when the device object goes

 private:
  struct Waiter {
    Task* task;
    bool done = false;
    bool ok = false;
  };
  void RestartIdleTimer();
  void StopIdleTimer();
  void RunWorker();
  void ReleaseWaiters(bool ok);

  DeviceNode& node_;
  HostKernel& kernel_;
  PowerTransitions& transitions_;
  PowerPhase phase_ = PowerPhase::Off;
  IdleSettings idle_;
  bool armedForSystemWake_ = false;
  bool wakeSignalled_ = false;
  bool idleDue_ = false;
  std::int64_t references_ = 0;
  std::int64_t referencesLeft_ = 0;
  std::int64_t requests_ = 0;
  EventId idleTimer_ = 0;
  std::vector<Waiter*> waiters_;
  Worker worker_;
};

}  // namespace platform
