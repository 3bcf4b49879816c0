// The block in which a property tree travels: words in host order, the root directory first. Any IRQL up to
// DISPATCH_LEVEL.
//
//   root directory     0x55584401 | words of its entries
//   other directories  4 words of UUID
//   then the entries, 4 words each:
//     key, 8 characters, the first in the top byte | type 31:24, length 15:0 in words | value, or the offset of it
//
// Directory: offset of its header, length of header and entries. Data and text: offset of bytes, four to a word from
// the top. Words are counted from the start of the block.
#pragma once
#include <cstdint>

#include "include/property.h"
#include "include/status.h"

// Words of the header and the entries; with `recurse` those of all directories below, too. `counter`, if given, grows
// by the words of texts and data and by one for each directory entry.
[[nodiscard]] std::uint64_t KivUsb4PropertyDirLength(USB4_PROPERTY_DIR* directory, bool recurse,
                                                     std::uint64_t* counter);

// Without a buffer: the words that the tree needs. With one of `bufferWords` zeroed words: 0, or -22 when it is too
// short.
[[nodiscard]] KIV_RESULT KivUsb4PropertyFormat(USB4_PROPERTY_DIR* directory, std::uint32_t* buffer,
                                               std::uint32_t bufferWords);
// Writes the directory and all below it from `offset` on: the end of what it wrote, or -22 when that is behind `limit`.
[[nodiscard]] KIV_RESULT __KivUsb4PropertyFormatDir(USB4_PROPERTY_DIR* directory, std::uint32_t* buffer,
                                                    std::uint32_t offset, std::uint32_t limit);

struct USB4_PROPERTY_BLOCK {
  const std::uint32_t* Words;
  std::uint32_t Count;
};

// The tree that a block holds; null when any part of it is impossible, nested more than 8 directories deep or of more
// than 500 entries, and without memory.
[[nodiscard]] USB4_PROPERTY_DIR* KivUsb4PropertyParseDir(const std::uint32_t* block, std::uint32_t words);
// Whether an entry of 4 words fits a block of `words` words.
[[nodiscard]] bool KivUsb4PropertyEntryValid(const std::uint32_t* entry, std::uint32_t words);
