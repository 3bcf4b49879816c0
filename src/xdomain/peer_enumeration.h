// Who the peer is: its UUID and its properties. PASSIVE_LEVEL.
#pragma once
#include <ntddk.h>

#include "include/device_context.h"
#include "include/peer_record.h"
#include "include/status.h"

// Asks for the UUID and keeps it: 0; -19 when it is another one than before, and the peer is gone then; -11 and the
// failure as in peer_bonding.h.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdomainGetUuid(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context);
// Reads the peer's properties and brings networking up over them: 0; -11 and the failure of the transfer; -12, -22 a
// block that cannot be used; -19 a peer without names; -525 no network device within 5 s.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT KivUsb4XDomainGetProperties(USB4_XDOMAIN* xdomain);
