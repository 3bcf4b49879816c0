// What becomes of the resources that the bus hands out: the mapping of BAR0, and the message-signalled interrupts.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include "include/host_interface_record.h"

struct MEMORY_RANGE {
  PHYSICAL_ADDRESS Start;
  ULONG Length;  // bytes
};

// Maps the range non-cached and stores the mapping in the record and, for the debugger, driver-wide. 0xC000009A when
// the kernel has no room for it.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    MapBar0(USB4_HOST_INTERFACE* hostInterface, const MEMORY_RANGE& bar0);
// A second call does nothing.
_IRQL_requires_max_(PASSIVE_LEVEL) void UnmapBar0(USB4_HOST_INTERFACE* hostInterface);

// Creates the next interrupt. Its handler follows from its place in creation order: control transmit, control receive,
// network transmit, network receive; any further one is served like the first.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    KivUsb4InitializeInterrupt(WDFDEVICE device, PCM_PARTIAL_RESOURCE_DESCRIPTOR raw,
                               PCM_PARTIAL_RESOURCE_DESCRIPTOR translated);
