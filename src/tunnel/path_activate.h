// Programming a path into the routers along it, and taking it out again. PASSIVE_LEVEL, under the domain's path lock.
#pragma once
#include <cstdint>

#include "include/path_record.h"
#include "include/router_record.h"
#include "include/status.h"

// Programs counters, credits and entries, each from the last hop to the first, so that a hop is valid only when all
// beyond it are. -1 for an active path; else the error of the first write that fails, after what was written is undone
// (cleared counters stay cleared).
_Requires_lock_held_(path->Owner->PathLock) [[nodiscard]] KIV_RESULT KivUsb4PathActivate(USB4_PATH* path);
// Nothing happens to an inactive path; a hop that fails is traced and passed over.
_Requires_lock_held_(path->Owner->PathLock) void KivUsb4PathDeactivate(USB4_PATH* path);

// Switches one entry off and waits until the router has no packet of it left: 0 also for one that is not valid; -1
// when the router stays busy for 100,001 polls of 100 ms; the error of a failed access.
[[nodiscard]] KIV_RESULT __KivUsb4PathDeactivateHop(const USB4_PORT* adapter, std::uint32_t inputHopId,
                                                    bool clearFlowControl);
// The hops from index `firstHop` to the last; failures are traced.
void KivUsb4PathDeactivateHopsFrom(const USB4_PATH* path, std::uint32_t firstHop);
// Takes the path's credits off the hops from index `firstHop` to the last; failures are traced.
void __KivUsb4PathDeallocateNfc(const USB4_PATH* path, std::uint32_t firstHop);
[[nodiscard]] KIV_RESULT KivUsb4PathClearCounter(const USB4_PORT* adapter, std::uint32_t counterIndex);
