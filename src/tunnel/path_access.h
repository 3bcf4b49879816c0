// Access to what paths set in the adapters that they cross: the entries of path space, one for each hop ID by which
// packets come in, and the buffers that an adapter sets aside for paths without flow control. PASSIVE_LEVEL.
#pragma once
#include <cstdint>

#include "include/registers.h"
#include "include/router_record.h"
#include "include/status.h"

struct USB4_PATH_ENTRY {
  PathCs0::Value Word0;
  PathCs1::Value Word1;
};

// Both words in one access. A read that fails leaves `entry` as it is.
[[nodiscard]] KIV_RESULT ReadPathEntry(const USB4_PORT* adapter, std::uint32_t inputHopId, USB4_PATH_ENTRY& entry);
[[nodiscard]] KIV_RESULT WritePathEntry(const USB4_PORT* adapter, std::uint32_t inputHopId,
                                        const USB4_PATH_ENTRY& entry);

// Adds to the adapter's count of set-aside buffers, in the record and in the hardware; `credits` may be negative. 0
// without an access when there is nothing to add, when the router is gone, and on adapters of USB4 routers that are not
// lane adapters, which manage their own. Else the result of the write.
[[nodiscard]] KIV_RESULT KivUsb4PortAddNfcCredits(USB4_PORT* adapter, std::int32_t credits);
