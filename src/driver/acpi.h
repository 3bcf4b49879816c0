// The firmware's method that this driver evaluates once per device.
#pragma once
#include <ntddk.h>
#include <wdf.h>

// Evaluates "SDEP" with one argument of 0, at most 3 s; the framework's status, or 0xC000009A without memory.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS Acpi_EvaluateUSB4SDEP(WDFDEVICE device);
// The same; a failure is traced and changes nothing: not every machine's firmware has the method.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4SetDEPMethodFromSDEP(WDFDEVICE device);
