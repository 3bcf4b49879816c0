// How a peer is discovered: a state machine that runs in the peer's own work item, one step a run. PASSIVE_LEVEL; the
// waits of each operation are spent on the caller's thread.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include "include/device_context.h"
#include "include/peer_record.h"

// Puts the peer into the first state, waits 100 ms and queues its work. Nothing for a null peer.
_IRQL_requires_max_(PASSIVE_LEVEL) void StartInterDomainHandshake(USB4_XDOMAIN* xdomain);
// Waits until the peer's work and the answering of requests have ended; afterwards no attempts are left. Unless the
// peer is closed, its work may be queued again.
_IRQL_requires_max_(PASSIVE_LEVEL) void StopInterDomainHandshake(USB4_XDOMAIN* xdomain);

// Each enters the next state with 10 retries, waits, and queues the state work.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4XdomainQueueUuid(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context);
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4XdomainQueueLinkStatus(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context);
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4XdomainQueueLinkStatus2(USB4_XDOMAIN* xdomain,
                                                                       DEVICE_EXTENSION* context);
// The host of the lower UUID asks the other one to change the link; the other one waits for that.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4XdomainQueueBonding(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context);
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4XdomainQueueBondingUuidLow(USB4_XDOMAIN* xdomain,
                                                                          DEVICE_EXTENSION* context);
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4XdomainQueueProperties(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context);
// The same for the work that tells the peer of changed properties; the state stays.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4XdomainQueuePropertiesChanged(USB4_XDOMAIN* xdomain,
                                                                             DEVICE_EXTENSION* context);

// Queues the work as it stands, without a wait. Refused once the peer is closed.
_IRQL_requires_max_(DISPATCH_LEVEL) void QueueStateWork(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context);
_IRQL_requires_max_(DISPATCH_LEVEL) void QueuePropertiesChangedWork(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context);
void SetPeerState(USB4_XDOMAIN* xdomain, USB4_XDOMAIN_STATE state);
// The name of a state, for the trace.
[[nodiscard]] const char* PeerStateName(LONG state);

EVT_WDF_WORKITEM KivUsb4XdomainStateWork;
EVT_WDF_WORKITEM KivUsb4XdomainPropertiesChanged;
