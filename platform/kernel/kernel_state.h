// State of the kernel's own calls that belongs to a host and to no single object: the waits in progress, the order in
// which its locks were taken, its trace providers, its boot time.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/kernel/companions.h"
#include "platform/kernel/lock_order.h"
#include "platform/kernel/request_packet.h"
#include "platform/scheduler/scheduler.h"
#include "platform/scheduler/wait_list.h"

namespace platform {

// Registrations with the tracing facility. A handle is an index, never reused.
class TraceProviders {
 public:
  std::uint64_t Register();
  bool Unregister(std::uint64_t handle);
  bool IsRegistered(std::uint64_t handle) const;
  std::size_t Registered() const;

 private:
  std::vector<bool> registered_;  // handle n stands at n - 1
};

class KernelState {
 public:
  KernelState(Simulation& simulation, const std::string& kernelName);

  WaitList waits;
  LockOrder lockOrder;
  TraceProviders traceProviders;
  IoRequests ioRequests;
  Companions companions;
  std::vector<std::byte> tracePayload;  // scratch, kept for its capacity
  Time upTimeAtStart;                   // what the performance counter shows at virtual time 0

  // At unload: trace registrations and request packets that were not given back (rule handle-leak).
  void ReportLeaks();

 private:
  Simulation& simulation_;
};

}  // namespace platform
