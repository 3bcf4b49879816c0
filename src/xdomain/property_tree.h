// Building, searching, copying and freeing property trees. Any IRQL up to DISPATCH_LEVEL; whoever shares a tree guards
// it. A directory owns its entries, an entry its value.
#pragma once
#include <cstdint>

#include "include/property.h"
#include "include/status.h"

// Empty, with a copy of the UUID, or a root when it is null; null without memory.
[[nodiscard]] USB4_PROPERTY_DIR* KivUsb4PropertyCreateDir(const std::uint8_t* uuid);
// Without a value and on no list; null without memory. The key is valid.
[[nodiscard]] USB4_PROPERTY* KivUsb4PropertyAlloc(const char* key, USB4_PROPERTY_TYPE type);
// Not null, and at most 8 characters.
[[nodiscard]] bool KivUsb4PropertyKeyValid(const char* key);

// Each appends one entry: 0, -22 for an invalid key or a null text, -12 without memory. On a failure the directory is
// as it was. AddText copies the text; AddDir takes `subdirectory` over once it succeeds.
[[nodiscard]] KIV_RESULT KivUsb4PropertyAddImmediate(USB4_PROPERTY_DIR* directory, const char* key,
                                                     std::uint32_t value);
[[nodiscard]] KIV_RESULT KivUsb4PropertyAddText(USB4_PROPERTY_DIR* directory, const char* key, const char* text);
[[nodiscard]] KIV_RESULT KivUsb4PropertyAddDir(USB4_PROPERTY_DIR* directory, const char* key,
                                               USB4_PROPERTY_DIR* subdirectory);

// The first entry of this very directory with the key and type, or null.
[[nodiscard]] USB4_PROPERTY* KivUsb4PropertyFind(USB4_PROPERTY_DIR* directory, const char* key,
                                                 USB4_PROPERTY_TYPE type);
// Takes the entry off the root and frees it. It is the first of its key and type there.
void KivUsb4PropertyRemove(USB4_PROPERTY_DIR* root, USB4_PROPERTY* entry);

// The whole tree; entries of unknown type are left out. Null without memory.
[[nodiscard]] USB4_PROPERTY_DIR* KivUsb4PropertyCopyDir(USB4_PROPERTY_DIR* directory);

// Frees what it owns, too. The entry is on no list. Null is ignored, as by FreeDir.
void KivUsb4PropertyFree(USB4_PROPERTY* entry);
void KivUsb4PropertyFreeDir(USB4_PROPERTY_DIR* directory);
