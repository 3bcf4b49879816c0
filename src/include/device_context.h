// The contexts of the framework's objects: what is driver-wide, and what callbacks, handlers and work items reach
// first.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include <cstdint>

#include "include/atomic.h"
#include "include/domain_record.h"
#include "include/host_interface_record.h"
#include "include/locks.h"
#include "include/work.h"

struct USB4_XDOMAIN;

inline constexpr std::uint32_t kInterruptCount = 4;
inline constexpr std::uint32_t kSecondController = 1;  // of a machine; its DP IN adapters are marked

// Of the WDFDRIVER object. Everything that would be a global lives here, so that the image holds no writable data and
// several instances in one process stay apart.
struct DRIVER_CONTEXT {
  REGHANDLE TraceHandle;          // 0 while tracing is not registered
  AtomicLong PowerOnSequenceRun;  // 1 once the power-on sequence of a PCI function 8086:9A1B has been run
  void* RegisterBase;             // the mapping of BAR0 made last, for the debugger; owned by its host interface
  ULONG RegisterLength;           // bytes
};

WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(DRIVER_CONTEXT, DriverContextOf)

// Of the function device of one host router.
struct DEVICE_EXTENSION {
  WDFDEVICE Device;
  WDFINTERRUPT Interrupts[kInterruptCount];  // in creation order, which is message order
  std::uint32_t InterruptCount;              // created so far; may exceed the array when the bus offers more
  USB4_HOST_INTERFACE* HostInterface;
  USB4_DOMAIN* Domain;
  KEVENT WorkDoneEvent;  // set by the main work callback when it ends a run while Suspending
  WDFWORKITEM WorkItem;
  _Guarded_by_(WorkListMutex) LIST_ENTRY EventListHead;
  AtomicLong WorkItemQueued;      // 1 while the main work item is queued or runs
  SharedFlag BusStartPending;     // 1 from the first start until the bus has started
  std::uint32_t ControllerIndex;  // 0 or 1
  SharedFlag PoweredDown;         // 1 while the device is in D3: requests are not sent again
  AtomicLong Suspending;          // 1 while a power-down runs: hot-plug events are ignored
  std::uint8_t PreOsCmWorkAroundEnable;
  Guarded<std::uint32_t, By<LockPlace::WorkList>> QueuedEventCount;
  Mutex<LockPlace::WorkList> WorkListMutex;
  WDFWORKITEM GenericXDomainWorkItem;
  Mutex<LockPlace::Handler> HandlerMutex;  // serialises the network receive handler
  WDFQUEUE IoctlQueue;
  WDFQUEUE InternalIoctlQueue;
  WDFQUEUE PendingQueue0;
  WDFQUEUE PendingQueue1;
  WDFQUEUE PendingQueue2;
  WDFQUEUE ReadQueue;
  WDFQUEUE WriteQueue;
  WDFWORKITEM NetCleanUpWorkItem;
  KEVENT DeviceEvent;
  // The peer host in use.
  Guarded<USB4_XDOMAIN*, ByBoth<LockPlace::XDomain, LockPlace::Topology>> XDomain;
  Mutex<LockPlace::XDomain> XDomainMutex;
  SharedFlag GenericWorkReady;   // 1 while the control channel runs: inter-domain work may be queued
  WDFWORKITEM ReaperWorkItem;    // removes peers whose own work has found that they must go
  LIST_ENTRY ReapListHead;       // those peers
  AtomicLong XDomainPending[2];  // by kind of work: queued and not yet begun; for the debugger
  // Requests of peers that wait for their answers, oldest first.
  _Guarded_by_(XDomainRequestLock) LIST_ENTRY XDomainRequestListHead;
  Guarded<std::uint32_t, By<LockPlace::PeerRequests>> XDomainRequestCount;
  Guarded<std::uint32_t, By<LockPlace::PeerRequests>> XDomainRequestPauses;  // while there are any, requests wait
  SpinLock<LockPlace::PeerRequests> XDomainRequestLock;

  EventNodeList Events() { return EventNodeList(EventListHead); }
};

WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(DEVICE_EXTENSION, DeviceContextOf)

// Null without a host interface.
inline DEVICE_EXTENSION* ContextOf(const USB4_HOST_INTERFACE* hostInterface) {
  return hostInterface == nullptr ? nullptr : DeviceContextOf(hostInterface->Device);
}

inline DEVICE_EXTENSION* ContextOf(const USB4_DOMAIN* domain) {
  return ContextOf(domain->HostInterface);
}

// 0, or kSecondController; 0 also without a device context.
inline std::uint32_t ControllerIndexOf(const USB4_HOST_INTERFACE* hostInterface) {
  const DEVICE_EXTENSION* context = ContextOf(hostInterface);
  return context == nullptr ? 0 : context->ControllerIndex;
}
