// The device's work items: the connection manager's, drained from a list, and the generic ones, which carry one
// argument.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include <cstdint>

#include "include/device_context.h"
#include "include/work.h"

// Creates the main work item and initialises its event list.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    KivUsb4InitializeWorkItem(DEVICE_EXTENSION* context, PFN_WDF_WORKITEM callback);
// Creates a work item without a list and stores it.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    KivUsb4InitializeGenericXDomainWorkItem(DEVICE_EXTENSION* context, WDFWORKITEM* where, PFN_WDF_WORKITEM callback);

// Appends the event to the list and queues the main work item unless it is queued or runs. Takes the event over; drops
// it when there is no memory for a node.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4QueueWorkItemData(WDFWORKITEM workItem, DEVICE_EXTENSION* context,
                                                                 USB4_HOTPLUG_EVENT* event);

// What generic work is for.
enum KIV_WORK_KIND : std::uint32_t {
  KIV_WORK_STATE = 0,
  KIV_WORK_PROPERTIES_CHANGED = 1,
  KIV_WORK_UNCONDITIONAL = 2,  // queued whether or not the control channel runs
  KIV_WORK_LOGIN = 3,
  KIV_WORK_CONNECTED = 4,
  KIV_WORK_DISCONNECT = 5,
};

inline const char* TraceWord(KIV_WORK_KIND kind) {
  constexpr const char* kWords[] = {"state", "properties changed", "unconditional", "login", "connected", "disconnect"};
  return kWords[kind];
}

// Stores the argument and queues the item; an item queued already keeps only the newest argument. 0xC0000033 while the
// device is not ready for this kind. A null item is ignored with success.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] NTSTATUS
    KivUsb4QueueXDomainGenericWorkItemData(WDFWORKITEM workItem, DEVICE_EXTENSION* object, void* data,
                                           KIV_WORK_KIND kind);

// Waits until no main work item is queued or runs, 5 s at most, then declares it gone and aborts every other flow.
// `free` is not looked at.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4FlushOrFreeWorkItem(DEVICE_EXTENSION* context, bool free);

// Flushes and deletes the items that the control channel created. Nothing queues to them any more.
_IRQL_requires_max_(PASSIVE_LEVEL) void DeleteSharedWorkItems(DEVICE_EXTENSION* context);
