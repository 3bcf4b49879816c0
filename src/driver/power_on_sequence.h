// The power-on sequence that one PCI function needs before its registers answer.
#pragma once
#include <ntddk.h>
#include <wdf.h>

// Reads the function's PCI identity and, when it is 8086:9A1B, runs the sequence; at most once per driver load, however
// many devices there are. Failures are traced.
_IRQL_requires_max_(PASSIVE_LEVEL) void RunPowerOnSequenceOnce(WDFDEVICE device);
