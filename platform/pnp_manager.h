// The devices of a host and their PnP and power transitions, in the framework's documented callback order.
// For the platform's own files. Every transition runs on a task of the host and holds its device's transition lock.
#pragma once
#include <memory>
#include <vector>

#include "platform/device_node.h"

namespace platform {

class PnpManager {
 public:
  explicit PnpManager(HostKernel& kernel);
  ~PnpManager();

  DeviceNode& Add(const DeviceConfig& config);
  DeviceNode* Find(DeviceId id);
  const std::vector<std::unique_ptr<DeviceNode>>& nodes() const { return nodes_; }
  // The function whose first memory resource holds [busAddress, +bytes); null when there is none.
  DeviceNode* FindMemory(std::uint64_t busAddress, std::uint64_t bytes, std::uint32_t* offset);

  // --- transitions; each takes the transition lock
  Status Start(DeviceNode& node);  // device add up to post-interrupts-enabled; the status of the first failure
  void Remove(DeviceNode& node);
  void SurpriseRemove(DeviceNode& node);
  void SystemSleep(SystemPowerAction action);
  void SystemResume();
  void IdleDown(DeviceNode& node);  // to Dx when still nobody holds it
  void WakeUp(DeviceNode& node);    // from runtime idle to D0

  bool Busy() const;
  int verbs = 0;  // begun and not ended
  bool systemAsleep = false;

 private:
  Status AddDevice(DeviceNode& node);
  Status StartDevice(DeviceNode& node);
  void TearDown(DeviceNode& node, PnpState endState);

  HostKernel& kernel_;
  std::vector<std::unique_ptr<DeviceNode>> nodes_;
};

}  // namespace platform
