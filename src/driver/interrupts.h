// Creation of the device's message-signalled interrupts.
#pragma once
#include <ntddk.h>
#include <wdf.h>

// Creates the next interrupt. Its handler follows from its place in creation order: control transmit, control receive,
// network transmit, network receive; any further one is served like the first.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    KivUsb4InitializeInterrupt(WDFDEVICE device, PCM_PARTIAL_RESOURCE_DESCRIPTOR raw,
                               PCM_PARTIAL_RESOURCE_DESCRIPTOR translated);
