// Driver-wide state: the context of the WDFDRIVER object. Everything that would be a global lives here, so that the
// image holds no writable data and several instances in one process stay apart.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include "include/atomic.h"

struct DRIVER_CONTEXT {
  REGHANDLE TraceHandle;          // 0 while tracing is not registered
  AtomicLong PowerOnSequenceRun;  // 1 once the power-on sequence of a PCI function 8086:9A1B has been run
  void* RegisterBase;             // the mapping of BAR0 made last, for the debugger; owned by its host interface
  ULONG RegisterLength;           // bytes
};

WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(DRIVER_CONTEXT, DriverContextOf)
