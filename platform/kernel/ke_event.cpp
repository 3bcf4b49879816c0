// Events. A notification event stays signalled until it is cleared; a synchronisation event releases one waiter.
#include "platform/host/host_kernel.h"
#include "platform/kernel/dispatcher_object.h"

using namespace platform;

// Any IRQL.
VOID KeInitializeEvent(PRKEVENT Event, EVENT_TYPE Type, BOOLEAN State) {
  KernelCall call("KeInitializeEvent", HIGH_LEVEL);
  if (!Event || (Type != NotificationEvent && Type != SynchronizationEvent)) {
    return call.Report(Rule::InvalidArgument, "no event, or a type that does not exist");
  }
  CheckNobodyWaits(call, Event);
  const ObjectKind kind = Type == NotificationEvent ? ObjectKind::NotificationEvent : ObjectKind::SynchronizationEvent;
  InitialiseObject(Event->Header, kind, State ? 1 : 0);
}

// Up to DISPATCH_LEVEL. The priority boost has no effect here; a combined set-and-wait is not modelled.
LONG KeSetEvent(PRKEVENT Event, KPRIORITY Increment, BOOLEAN Wait) {
  KernelCall call("KeSetEvent", DISPATCH_LEVEL);
  if (!CheckEvent(call, &Event->Header)) return 0;
  if (Increment < 0) call.Report(Rule::InvalidArgument, "a priority boost is not negative");
  if (Wait) call.Report(Rule::NotModelled, "Wait is TRUE");
  DISPATCHER_HEADER& header = Event->Header;
  const LONG before = header.SignalState;
  if (KindOf(header) == ObjectKind::SynchronizationEvent) {
    if (before == 0 && !GrantOldest(call, header)) header.SignalState = 1;
  } else {
    header.SignalState = 1;
    while (GrantOldest(call, header)) {
    }
  }
  call.EffectVisible();
  return before;
}

// Up to DISPATCH_LEVEL. Returns the state before.
LONG KeResetEvent(PRKEVENT Event) {
  KernelCall call("KeResetEvent", DISPATCH_LEVEL);
  if (!CheckEvent(call, &Event->Header)) return 0;
  const LONG before = Event->Header.SignalState;
  Event->Header.SignalState = 0;
  return before;
}

// Up to DISPATCH_LEVEL.
VOID KeClearEvent(PRKEVENT Event) {
  KernelCall call("KeClearEvent", DISPATCH_LEVEL);
  if (CheckEvent(call, &Event->Header)) Event->Header.SignalState = 0;
}

// Up to DISPATCH_LEVEL.
LONG KeReadStateEvent(PRKEVENT Event) {
  KernelCall call("KeReadStateEvent", DISPATCH_LEVEL);
  return CheckEvent(call, &Event->Header) ? Event->Header.SignalState : 0;
}
