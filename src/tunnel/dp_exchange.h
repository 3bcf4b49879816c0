// What DP adapters tell each other before their tunnel comes up. PASSIVE_LEVEL, under the domain's path lock.
#pragma once
#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

// The init callback: handshake, then each adapter is told what the other can do, reduced to what the tunnel may take. 0
// without an access when one of the routers is older than generation 2. -1 when the handshake is not answered, and when
// no mode is small enough; the error of a failed access.
[[nodiscard]] KIV_RESULT KivUsb4DpXchgCaps(USB4_TUNNEL* tunnel);
// Announces the connection manager to the DP OUT: 0, also without an access when one of the routers takes no part; -1
// when it does not answer within 11 polls of 100 ms.
[[nodiscard]] KIV_RESULT KivUsb4DpCmHandshake(const USB4_ENDS& ends);
[[nodiscard]] bool KivUsb4SwitchSupportsDpHandshake(const USB4_SWITCH* router);
