// The work loop: the one place that handles hot-plug events, one at a time, on a system worker thread at PASSIVE_LEVEL.
//
// A record queued while the loop runs is handled in the same run. While a power-down is in progress records are taken
// off the list and freed unhandled.
#include "cm/hotplug.h"
#include "cm/idle.h"
#include "hostif/abort.h"
#include "hostif/control_channel.h"
#include "hostif/power.h"
#include "hostif/upcalls.h"
#include "include/device_context.h"
#include "include/locks.h"
#include "include/trace.h"
#include "include/wait.h"

namespace {

constexpr ULONG kBusStartMs = 5000;

USB4_EVENT_NODE* TakeEvent(DEVICE_EXTENSION* context) {
  MutexGuard guard(context->WorkListMutex);
  USB4_EVENT_NODE* node = context->Events().TakeFirst();
  if (node != nullptr && context->QueuedEventCount != 0) --context->QueuedEventCount;
  return node;
}

// The acknowledgement comes after the handling, whatever came of it: a router repeats its notification until then, and
// ignores an acknowledgement that it does not wait for.
void Handle(const USB4_HOTPLUG_EVENT& event) {
  USB4_DOMAIN* domain = event.Domain;
  RunGuard guard(*domain);
  TraceStepBy(NAME_OF(KivUsb4WorkItemCallback), "handle hot-plug", "route", AsRoute(event.Route), "adapter",
              event.Adapter, "unplug", event.Unplug != 0);
  KivUsb4HandleHotplug(event);
  const KIV_RESULT sent = KivUsb4CfgAckPlug(domain->ControlChannel, event.Route, event.Adapter, event.Unplug != 0);
  TraceInfoBy(NAME_OF(KivUsb4WorkItemCallback), "event handled", "route", AsRoute(event.Route), "adapter",
              event.Adapter, "unplug", event.Unplug != 0, "acknowledged", AsResult(sent));
}

void HandleAndFree(DEVICE_EXTENSION* context, USB4_EVENT_NODE* node) {
  if (context->Suspending.Load() == 0) {
    Handle(*node->Event);
  } else {
    TraceInfoBy(NAME_OF(KivUsb4WorkItemCallback), "event dropped, the device powers down", "route",
                AsRoute(node->Event->Route), "adapter", node->Event->Adapter);
  }
  PoolDelete(node->Event);
  PoolDelete(node);
}

void Drain(DEVICE_EXTENSION* context, USB4_DOMAIN* domain) {
  while (USB4_EVENT_NODE* node = TakeEvent(context)) HandleAndFree(context, node);
  RestIfIdle(domain);
}

// False while events wait. The flag falls under the mutex: an event that is queued later finds it down and enqueues the
// next run, and a flush never finds it down while this run goes on.
bool EndRun(DEVICE_EXTENSION* context) {
  MutexGuard guard(context->WorkListMutex);
  if (!context->Events().IsEmpty()) return false;
  context->WorkItemQueued.Exchange(0);
  return true;
}

}  // namespace

void KivUsb4WorkItemCallback(WDFWORKITEM workItem) {
  KIV_USB4_WORKER_ITEM_CONTEXT* itemContext = WorkItemContextOf(workItem);
  auto* context = itemContext == nullptr ? nullptr : static_cast<DEVICE_EXTENSION*>(itemContext->Owner);
  if (context == nullptr || context->Domain == nullptr) return;
  USB4_DOMAIN* domain = context->Domain;
  TakePowerReference(domain, {.WaitForD0 = false, .OnlyIfGranted = false});
  if (!domain->Started.IsSet() && WaitForEventOrAbort(domain, domain->BusEvent, kBusStartMs) != kStatusOk) {
    TraceWarning("the bus has not started in time", "timeout", AsMs(kBusStartMs));
  }
  do {
    Drain(context, domain);
  } while (!EndRun(context));
  if (context->Suspending.Load() != 0) SetEvent(context->WorkDoneEvent);
}
