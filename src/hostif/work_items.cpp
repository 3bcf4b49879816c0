// Work items: creation, queueing and flushing. The event list and its count are guarded by WorkListMutex;
// WorkItemQueued changes only atomically, so each busy period has one enqueue.
#include "hostif/work_items.h"

#include <utility>

#include "hostif/abort.h"
#include "include/domain_record.h"
#include "include/locks.h"
#include "include/trace.h"
#include "include/wait.h"

namespace {

constexpr ULONG kFlushMs = 5000;

// WorkDoneEvent says that some run has ended, perhaps an earlier one, and not that none is left: the flag decides.
// False when a run is still queued or at work after `ms`.
bool RunsEndWithin(DEVICE_EXTENSION* context, ULONG ms) {
  const Deadline deadline(ms);
  while (context->WorkItemQueued.Load() != 0) {
    const ULONG left = deadline.RemainingMs();
    if (left == 0) return false;
    IgnoreResult(WaitForEventMs(context->WorkDoneEvent, left));
  }
  return true;
}

void FlushAndDelete(WDFWORKITEM& item) {
  WDFWORKITEM taken = std::exchange(item, nullptr);
  if (taken == nullptr) return;
  WdfWorkItemFlush(taken);
  WdfObjectDelete(taken);
}

}  // namespace

NTSTATUS KivUsb4InitializeGenericXDomainWorkItem(DEVICE_EXTENSION* context, WDFWORKITEM* where,
                                                 PFN_WDF_WORKITEM callback) {
  WDF_WORKITEM_CONFIG config;
  WDF_WORKITEM_CONFIG_INIT(&config, callback);
  config.AutomaticSerialization = FALSE;  // the callbacks block for long; the device's lock is not theirs to hold
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, KIV_USB4_WORKER_ITEM_CONTEXT);
  attributes.ParentObject = context->Device;
  return WdfWorkItemCreate(&config, &attributes, where);
}

NTSTATUS KivUsb4InitializeWorkItem(DEVICE_EXTENSION* context, PFN_WDF_WORKITEM callback) {
  context->Events().Initialise();
  NTSTATUS status = KivUsb4InitializeGenericXDomainWorkItem(context, &context->WorkItem, callback);
  if (NT_SUCCESS(status)) WorkItemContextOf(context->WorkItem)->Owner = context;
  return status;
}

void KivUsb4QueueWorkItemData(WDFWORKITEM workItem, DEVICE_EXTENSION* context, USB4_HOTPLUG_EVENT* event) {
  PoolPtr<USB4_HOTPLUG_EVENT> owned(event);
  PoolPtr<USB4_EVENT_NODE> node = PoolPtr<USB4_EVENT_NODE>::New();
  if (!node || workItem == nullptr) {
    TraceError("event dropped", "route", AsRoute(event->Route), "adapter", event->Adapter, "unplug",
               event->Unplug != 0);
    return;
  }
  KIV_USB4_WORKER_ITEM_CONTEXT* itemContext = WorkItemContextOf(workItem);
  itemContext->Owner = context;
  itemContext->Data = node.Get();  // for the debugger: the loop takes nodes from the list alone
  node->Event = owned.Release();
  {
    MutexGuard guard(context->WorkListMutex);
    context->Events().Append(*node.Release());
    ++context->QueuedEventCount;
  }
  if (context->WorkItemQueued.ChangeFrom(0, 1)) WdfWorkItemEnqueue(workItem);
}

NTSTATUS KivUsb4QueueXDomainGenericWorkItemData(WDFWORKITEM workItem, DEVICE_EXTENSION* object, void* data,
                                                KIV_WORK_KIND kind) {
  if (workItem == nullptr) return kStatusOk;
  if (kind != KIV_WORK_UNCONDITIONAL && !object->GenericWorkReady.IsSet()) {
    TraceWarning("generic work refused, the device is not ready", "kind", kind);
    return kStatusNotReady;
  }
  KIV_USB4_WORKER_ITEM_CONTEXT* itemContext = WorkItemContextOf(workItem);
  itemContext->Owner = object;
  itemContext->Data = data;
  WdfWorkItemEnqueue(workItem);
  return kStatusOk;
}

void KivUsb4FlushOrFreeWorkItem(DEVICE_EXTENSION* context, bool) {
  if (!RunsEndWithin(context, kFlushMs)) {
    TraceError("the work loop did not end in time");
    if (context->Domain != nullptr) AbortOtherFlows(*context->Domain);
    context->WorkItemQueued.Store(0);
  }
  MutexGuard guard(context->WorkListMutex);
  context->QueuedEventCount = 0;
}

void DeleteSharedWorkItems(DEVICE_EXTENSION* context) {
  FlushAndDelete(context->WorkItem);
  FlushAndDelete(context->GenericXDomainWorkItem);
  FlushAndDelete(context->NetCleanUpWorkItem);
  FlushAndDelete(context->ReaperWorkItem);
}
