// What this host tells its peers about itself: the root directory of its property tree, and a generation that grows
// with each change. Both are guarded by the host interface's property lock. PASSIVE_LEVEL.
#pragma once
#include <ntddk.h>

#include "include/domain_record.h"
#include "include/host_interface_record.h"
#include "include/property.h"
#include "include/status.h"

// Builds the tree once per hardware preparation: 0, or -1 without memory for the root, -12 for an entry; then there is
// no tree.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT KivUsb4XdomainInit(USB4_HOST_INTERFACE* hostInterface);
// Frees it with every directory that is registered; a second call does nothing.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4XdomainExit(USB4_HOST_INTERFACE* hostInterface);

// Appends a directory, which belongs to the tree from then on. -11 without a tree, -22 for an invalid key, -17 when
// there is a directory with this key, -12 without memory: then the caller keeps the directory.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4PropertyRegisterDir(USB4_HOST_INTERFACE* hostInterface, const char* key, USB4_PROPERTY_DIR* directory);
// Removes and frees the directory if the tree holds this very one under this key.
_IRQL_requires_max_(PASSIVE_LEVEL) void KivUsb4PropertyUnregisterDir(USB4_HOST_INTERFACE* hostInterface,
                                                                     const char* key,
                                                                     const USB4_PROPERTY_DIR* directory);

_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] std::uint32_t
    HostPropertyGeneration(USB4_HOST_INTERFACE* hostInterface);
// A copy of the tree and the generation that it has; null without a tree or memory.
_IRQL_requires_max_(PASSIVE_LEVEL)
    [[nodiscard]] USB4_PROPERTY_DIR* CopyHostProperties(USB4_HOST_INTERFACE* hostInterface, std::uint32_t* generation);
