// The abort: how a power-down or a removal gets past flows that take too long.
//
// The flow that powers the device down stands in a PowerDownScope. When it has waited in vain for another flow, it
// begins the abort; until its scope ends, each sleep, wait and access of every other flow ends at once with a failure.
// Whatever sleeps, or waits for an event or for a lock that is held over a wait, does so by the operations below.
#pragma once
#include <ntddk.h>

#include "include/domain_record.h"

// Whether the calling flow has to give up. False without a domain.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] bool IsAborted(USB4_DOMAIN* domain);

// Ends early when the flow is aborted. Without a domain it always takes its time.
_IRQL_requires_max_(PASSIVE_LEVEL) void SleepMs(USB4_DOMAIN* domain, ULONG ms);

// 0 when the event was signalled, 0x102 when the time ran out, kStatusAborted when the flow is aborted.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    WaitForEventOrAbort(USB4_DOMAIN* domain, KEVENT& event, ULONG ms);

// The flow of a power-down or removal. There is one at a time, since the framework serialises them.
class PowerDownScope {
 public:
  explicit PowerDownScope(USB4_DOMAIN& domain);
  ~PowerDownScope();
  PowerDownScope(const PowerDownScope&) = delete;
  PowerDownScope& operator=(const PowerDownScope&) = delete;

 private:
  USB4_DOMAIN& domain_;
};

// Whether the calling flow is the one of the PowerDownScope.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] bool PowersDown(const USB4_DOMAIN* domain);
// Begins the abort for every flow but that of the PowerDownScope.
_IRQL_requires_max_(DISPATCH_LEVEL) void AbortOtherFlows(USB4_DOMAIN& domain);

// Holds a lock that its holder may keep over waits. A flow that powers the device down begins the abort when it does
// not get the lock in 5000 ms.
class FlowGuard {
 public:
  FlowGuard(USB4_DOMAIN& domain, KMUTEX& lock);
  ~FlowGuard();
  FlowGuard(const FlowGuard&) = delete;
  FlowGuard& operator=(const FlowGuard&) = delete;

 private:
  KMUTEX& lock_;
};

// Holds the domain's run lock: the topology changes only under it.
class RunGuard : FlowGuard {
 public:
  explicit RunGuard(USB4_DOMAIN& domain) : FlowGuard(domain, domain.RunLock.Object) {}
};

// Holds the domain's path lock, for a whole walk or change of tunnels, paths or hop maps.
class PathGuard : FlowGuard {
 public:
  explicit PathGuard(USB4_DOMAIN& domain) : FlowGuard(domain, domain.PathLock.Object) {}
};
