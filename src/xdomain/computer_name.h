// The name by which peers know this host.
#pragma once
#include <ntddk.h>

#include "include/domain_record.h"

// Reads the host's active name into the domain, unless it has one. The status of the last registry call, or of the
// conversion.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    KivUsb4ReadActiveComputerNameFromRegistry(USB4_DOMAIN* domain);
