// The domain record's life.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/domain_record.h"
#include "include/host_interface_record.h"
#include "include/status.h"

// Null when there is no memory. `kind` is 0 for every domain there is.
_IRQL_requires_max_(DISPATCH_LEVEL)
    [[nodiscard]] USB4_DOMAIN* KivUSB4DomainAlloc(USB4_HOST_INTERFACE* hostInterface, std::uint32_t kind);
// Builds and starts the control channel and starts the bus. 0xC00000A0 when there is no channel. A bus that does not
// start is no failure: it only releases whoever waits for it.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS KivUSB4DomainAdd(USB4_DOMAIN* domain);
// Control channel, routers and tunnels are gone. Null is ignored.
_IRQL_requires_max_(DISPATCH_LEVEL) void KivUSB4DomainFree(USB4_DOMAIN* domain);
// Starts an existing channel, and lets generic work be queued; stopping undoes both. Null is ignored by the stop.
_IRQL_requires_max_(PASSIVE_LEVEL) void StartControlChannel(USB4_DOMAIN* domain);
_IRQL_requires_max_(PASSIVE_LEVEL) void StopControlChannel(USB4_DOMAIN* domain);
// The bus starts, and whoever waits for it goes on even when it fails.
_IRQL_requires_max_(PASSIVE_LEVEL) void StartBus(USB4_DOMAIN* domain, bool resuming);
// The control channel's event callback; `context` is the domain.
_IRQL_requires_max_(PASSIVE_LEVEL)
    [[nodiscard]] bool USB4DomainEventCallback(void* context, std::uint32_t pdf, const std::uint32_t* packet,
                                               std::uint32_t bytes);

// Whether the diagnostics tree of files is kept up to date.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] inline bool KivUsb4DiagnosticsEnabled(const USB4_DOMAIN* domain) {
  return domain->HostInterface->DiagnosticsEnabled.IsSet();
}
