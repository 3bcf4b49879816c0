// The buffers that an adapter sets aside for paths without flow control. PASSIVE_LEVEL.
#pragma once
#include <cstdint>

#include "include/router_record.h"
#include "include/status.h"

// Adds to the adapter's count, in the record and in the hardware; `credits` may be negative. 0 without an access when
// there is nothing to add, when the router is gone, and on adapters of USB4 routers that are not lane adapters, which
// manage their own. Else the result of the write.
[[nodiscard]] KIV_RESULT KivUsb4PortAddNfcCredits(USB4_PORT* adapter, std::int32_t credits);
