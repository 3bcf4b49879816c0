// Request packets that a driver builds itself and sends down a device stack. For the drivers below it that live here.
#pragma once
#include <cstddef>

#include "platform/include/wdm_io.h"
#include "platform/scheduler/scheduler.h"

namespace platform {

// Packets that were built and have not come back.
class IoRequests {
 public:
  IRP* Build(KernelCall& call, CCHAR stackSize);
  bool Known(const IRP* request) const;
  void Free(KernelCall& call, IRP* request);
  std::size_t Live() const { return live_.size(); }

 private:
  std::vector<IRP*> live_;
};

// The receiving driver is done: the sender gets status and information, its event is set, the packet is gone.
NTSTATUS CompleteIoRequest(KernelCall& call, IRP& request, NTSTATUS status, ULONG_PTR information);

}  // namespace platform
