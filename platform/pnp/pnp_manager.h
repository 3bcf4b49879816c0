// The devices of a host and their PnP and power transitions, in the framework's documented callback order.
// For the platform's own files. Every transition runs on a task of the host and holds its device's transition lock.
// Start and orderly removal keep the system from sleeping, and wait while it sleeps.
#pragma once
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "platform/device/device_node.h"

namespace platform {

class PnpManager final : public PowerTransitions {
 public:
  explicit PnpManager(HostKernel& kernel) : kernel_(kernel) {}

  DeviceNode& Add(const DeviceConfig& config);
  DeviceNode* Find(DeviceId id) const;

  // --- transitions; each takes the transition lock ---
  Status Start(DeviceNode& node);  // device add up to post-interrupts-enabled; the status of the first failure
  void Remove(DeviceNode& node);
  // The function is gone from now on; the driver is told by FinishSurpriseRemoval.
  void BeginSurpriseRemoval(DeviceNode& node);
  void FinishSurpriseRemoval(DeviceNode& node);
  // Sleeps and resumes happen in the order in which they were requested, whichever task gets to run first.
  void RequestSleep(SystemPowerAction action) { systemRequests_.push_back(action); }
  void RequestResume() { systemRequests_.push_back(std::nullopt); }
  void RunSystemRequests();
  // Asleep once these have happened.
  bool SleepIsAhead() const { return systemRequests_.empty() ? systemAsleep_ : systemRequests_.back().has_value(); }
  void IdleDown(DeviceNode& node) override;
  void WakeUp(DeviceNode& node) override;

  bool SystemAsleep() const override { return systemAsleep_; }
  bool HasDevice() const;  // of the driver
  bool WaitsForResume() const { return !waitingForResume_.empty(); }
  bool Busy() const;
  int verbs = 0;  // begun and not ended

 private:
  class AwakeScope;
  Status AddDevice(DeviceNode& node);
  Status StartDevice(DeviceNode& node);
  Status PrepareHardware(Device& device);
  void ReleaseHardware(Device& device);
  void TearDown(DeviceNode& node, PnpState endState);
  void Resume(DeviceNode& node);
  void SystemSleep(SystemPowerAction action);
  void SystemResume();

  HostKernel& kernel_;
  std::vector<std::unique_ptr<DeviceNode>> nodes_;
  TransitionLock systemTransition_;
  std::deque<std::optional<SystemPowerAction>> systemRequests_;  // nothing: resume
  std::vector<Task*> waitingForResume_;
  bool systemAsleep_ = false;
};

}  // namespace platform
