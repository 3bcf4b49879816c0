// Message-signalled interrupts: service routine at device IRQL, DPC, and the one passive work item of each.
//
// Each interrupt has two tasks of its own, one for service routine and DPC and one for the work item, so that any
// number of handlers may block at the same time and a message is taken while the work item of the same interrupt runs.
#pragma once
#include "platform/device/device_node.h"
#include "platform/framework/wdf_object.h"
#include "platform/scheduler/worker.h"

namespace platform {

class Device;

constexpr unsigned kDeviceIrql = 5;

class Interrupt final : public Object, public MessageTarget {
 public:
  static constexpr ObjectType kType = ObjectType::Interrupt;
  Interrupt(Device& owner, const WDF_INTERRUPT_CONFIG& asked, unsigned messageNumber);
  void Release() override;

  // Messages that arrive before the service routine has begun are one, as in a processor's request register.
  void MessageArrived() override { service_.Queue(); }
  [[nodiscard]] bool InsertDpc();  // false when a DPC, or the work item behind it, is queued already
  // Connecting calls the enable callback, disconnecting the disable callback and waits for the handlers to end.
  Status Connect();
  Status Disconnect();

  Device& device;
  const WDF_INTERRUPT_CONFIG config;
  const bool hardwareLifetime;  // made in prepare hardware: goes after release hardware

 private:
  void Service();
  void RunDpc();
  void RunWorkItem();
  template <class Routine>
  auto AtIrql(unsigned irql, const char* name, Routine&& routine);

  bool connected_ = false;
  bool dpcQueued_ = false;
  Worker service_;
  Worker workItem_;
};

}  // namespace platform
