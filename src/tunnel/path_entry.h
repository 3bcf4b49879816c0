// One entry of an adapter's path space: what happens to packets that come in with one hop ID. PASSIVE_LEVEL.
#pragma once
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
