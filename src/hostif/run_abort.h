// Sleeping and giving up on the thread that handles events. When a power-down has waited in vain for the work loop, the
// loop's accesses and sleeps fail at once, so that the power-down gets the run lock soon.
#pragma once
#include <ntddk.h>

#include "include/domain.h"

// Whether the calling thread is the one that handles events and has been told to give up. False without a domain.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] bool RunIsAborted(const USB4_DOMAIN* domain);

// Sleeps; returns at once when the run is aborted.
_IRQL_requires_max_(PASSIVE_LEVEL) void SleepMs(const USB4_DOMAIN* domain, ULONG ms);

// Holds the domain's run lock: the topology changes only under it. Whoever gets it ends an abort.
class RunGuard {
 public:
  explicit RunGuard(USB4_DOMAIN& domain);
  RunGuard(const RunGuard&) = delete;
  RunGuard& operator=(const RunGuard&) = delete;

 private:
  MutexGuard guard_;
};
