// What this host tells its peers about itself.
#pragma once
#include <ntddk.h>

#include "include/domain_record.h"
#include "include/host_interface_record.h"

// Builds the host's property tree once per hardware preparation.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS KivUsb4XdomainInit(USB4_HOST_INTERFACE* hostInterface);
// Frees it; a second call does nothing.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4XdomainExit(USB4_HOST_INTERFACE* hostInterface);
// Reads the host's name into the domain.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    KivUsb4ReadActiveComputerNameFromRegistry(USB4_DOMAIN* domain);
