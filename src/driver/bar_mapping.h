// The mapping of BAR0.
#pragma once
#include <ntddk.h>

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
