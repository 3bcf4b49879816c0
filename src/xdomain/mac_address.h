// The address under which this host appears on the network of one link.
#pragma once
#include <ntddk.h>

#include "include/peer_record.h"

// Computes and stores it: a locally administered address that follows from this host's UUID and the port of the link.
_IRQL_requires_max_(DISPATCH_LEVEL) void KivUsb4XdomainMacAddress(USB4_XDOMAIN* xdomain);
