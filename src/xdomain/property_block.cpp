// Formatting and parsing of property blocks. What is parsed comes from another host and is believed in nothing.
#include "xdomain/property_block.h"

#include <cstring>

#include "include/bits.h"
#include "xdomain/property_tree.h"

namespace {

constexpr std::uint32_t kRootMark = 0x55584401;
constexpr std::uint32_t kRootHeaderWords = 2;
constexpr std::uint32_t kDirectoryHeaderWords = 4;
constexpr std::uint32_t kEntryWords = 4;
constexpr std::uint32_t kKeyWords = kPropertyKeyChars / kPropertyWordBytes;
constexpr std::uint32_t kKindWord = 2;
constexpr std::uint32_t kValueWord = 3;
constexpr std::uint32_t kImmediateWords = 1;
// A directory may name an enclosing one as its own part; a block that says so would unfold without an end.
constexpr std::uint32_t kMostNesting = 8;
constexpr std::uint32_t kMostEntries = 500;

// Word 2 of an entry.
struct KindWord {
  using Length = Bits<0, 16>;
  using Type = Bits<24, 8>;
};

std::uint32_t HeaderWords(const USB4_PROPERTY_DIR* directory) {
  return directory->Uuid == nullptr ? kRootHeaderWords : kDirectoryHeaderWords;
}

bool HasBytes(std::uint32_t type) {
  return type == USB4_PROPERTY_DATA || type == USB4_PROPERTY_TEXT;
}

// Four bytes to a word, the first on top.
void PackBytes(std::uint32_t* words, const std::uint8_t* bytes, std::uint64_t count) {
  for (std::uint64_t i = 0; i < count; ++i, bytes += kPropertyWordBytes) {
    words[i] = std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
  }
}

void UnpackBytes(std::uint8_t* bytes, const std::uint32_t* words, std::uint64_t count) {
  for (std::uint64_t i = 0; i < count; ++i, bytes += kPropertyWordBytes) {
    bytes[0] = static_cast<std::uint8_t>(words[i] >> 24);
    bytes[1] = static_cast<std::uint8_t>(words[i] >> 16);
    bytes[2] = static_cast<std::uint8_t>(words[i] >> 8);
    bytes[3] = static_cast<std::uint8_t>(words[i]);
  }
}

// A UUID is moved as it stands in memory, unlike texts.
void WriteDirectoryHeader(const USB4_PROPERTY_DIR* directory, std::uint32_t* words, std::uint32_t length) {
  if (directory->Uuid != nullptr) {
    std::memcpy(words, directory->Uuid, kPropertyUuidBytes);
    return;
  }
  words[0] = kRootMark;
  words[1] = length - kRootHeaderWords;
}

// Where the values of a directory go, and where the directories below it.
struct FormatCursors {
  std::uint32_t Data;
  std::uint32_t Directories;
};

// 0 or -22.
KIV_RESULT FormatEntry(const USB4_PROPERTY& entry, std::uint32_t* buffer, std::uint32_t* words, FormatCursors& cursors,
                       std::uint32_t limit) {
  PackBytes(words, reinterpret_cast<const std::uint8_t*>(entry.Key), kKeyWords);
  words[kKindWord] = KindWord::Type::Of(entry.Type);
  switch (entry.Type) {
    case USB4_PROPERTY_DIRECTORY: {
      const KIV_RESULT end = __KivUsb4PropertyFormatDir(entry.Value.Directory, buffer, cursors.Directories, limit);
      if (end < 0) return end;
      const std::uint64_t length = KivUsb4PropertyDirLength(entry.Value.Directory, false, nullptr);
      words[kKindWord] |= KindWord::Length::Of(static_cast<std::uint32_t>(length));
      words[kValueWord] = cursors.Directories;
      cursors.Directories = static_cast<std::uint32_t>(end);
      return kKivOk;
    }
    case USB4_PROPERTY_DATA:
    case USB4_PROPERTY_TEXT:
      PackBytes(buffer + cursors.Data, entry.Value.Bytes, entry.LengthWords);
      words[kKindWord] |= KindWord::Length::Of(static_cast<std::uint32_t>(entry.LengthWords));
      words[kValueWord] = cursors.Data;
      cursors.Data += static_cast<std::uint32_t>(entry.LengthWords);
      return kKivOk;
    case USB4_PROPERTY_IMMEDIATE:
      words[kKindWord] |= KindWord::Length::Of(static_cast<std::uint32_t>(entry.LengthWords));
      words[kValueWord] = entry.Value.Immediate;
      return kKivOk;
    default:
      return kKivOk;
  }
}

// Entries that may still be made of one block.
struct ParseBudget {
  std::uint32_t Entries;
};

struct DirectoryPlace {
  std::uint64_t Offset;
  std::uint64_t Words;  // header and entries; for the root the entries alone
  std::uint32_t Nesting;
};

USB4_PROPERTY_DIR* __KivUsb4PropertyParseDir(const USB4_PROPERTY_BLOCK& block, const DirectoryPlace& place,
                                             ParseBudget& budget);

bool ParseBytes(const USB4_PROPERTY_BLOCK& block, USB4_PROPERTY* entry, std::uint32_t offset) {
  if (entry->LengthWords == 0) return true;
  const std::uint64_t bytes = entry->LengthWords * kPropertyWordBytes;
  entry->Value.Bytes = PoolNewArray<std::uint8_t>(bytes, USB4_PROPERTY::kValueTag);
  if (entry->Value.Bytes == nullptr) return false;
  UnpackBytes(entry->Value.Bytes, block.Words + offset, entry->LengthWords);
  if (entry->Type == USB4_PROPERTY_TEXT) entry->Value.Bytes[bytes - 1] = 0;
  return true;
}

// The entry at these 4 words, or null.
USB4_PROPERTY* KivUsb4PropertyParse(const USB4_PROPERTY_BLOCK& block, const std::uint32_t* words, std::uint32_t nesting,
                                    ParseBudget& budget) {
  if (budget.Entries == 0 || !KivUsb4PropertyEntryValid(words, block.Count)) return nullptr;
  --budget.Entries;
  std::uint8_t key[kPropertyKeyChars + 1] = {};
  UnpackBytes(key, words, kKeyWords);
  const std::uint32_t type = KindWord::Type::Get(words[kKindWord]);
  USB4_PROPERTY* entry = KivUsb4PropertyAlloc(reinterpret_cast<const char*>(key), USB4_PROPERTY_UNKNOWN);
  if (entry == nullptr) return nullptr;
  entry->LengthWords = KindWord::Length::Get(words[kKindWord]);
  bool whole = true;
  if (type == USB4_PROPERTY_DIRECTORY) {
    entry->Type = USB4_PROPERTY_DIRECTORY;
    entry->Value.Directory =
        __KivUsb4PropertyParseDir(block, {words[kValueWord], entry->LengthWords, nesting + 1}, budget);
    whole = entry->Value.Directory != nullptr;
  } else if (HasBytes(type)) {
    entry->Type = static_cast<USB4_PROPERTY_TYPE>(type);
    whole = ParseBytes(block, entry, words[kValueWord]);
  } else if (type == USB4_PROPERTY_IMMEDIATE) {
    entry->Type = USB4_PROPERTY_IMMEDIATE;
    entry->Value.Immediate = words[kValueWord];
  }
  if (whole) return entry;
  KivUsb4PropertyFree(entry);
  return nullptr;
}

// Where the entries stand, and how many; false when they are not all in the block.
bool FindEntries(const USB4_PROPERTY_BLOCK& block, const DirectoryPlace& place, std::uint64_t* first,
                 std::uint64_t* count) {
  const bool isRoot = place.Nesting == 0;
  const std::uint32_t header = isRoot ? kRootHeaderWords : kDirectoryHeaderWords;
  if (!isRoot && place.Words < header) return false;
  *first = place.Offset + header;
  *count = (isRoot ? place.Words : place.Words - header) / kEntryWords;
  return *first + *count * kEntryWords <= block.Count;
}

USB4_PROPERTY_DIR* __KivUsb4PropertyParseDir(const USB4_PROPERTY_BLOCK& block, const DirectoryPlace& place,
                                             ParseBudget& budget) {
  std::uint64_t first = 0;
  std::uint64_t count = 0;
  if (place.Nesting > kMostNesting || !FindEntries(block, place, &first, &count)) return nullptr;
  std::uint8_t uuid[kPropertyUuidBytes] = {};
  if (place.Nesting != 0) std::memcpy(uuid, block.Words + place.Offset, sizeof uuid);
  USB4_PROPERTY_DIR* directory = KivUsb4PropertyCreateDir(place.Nesting == 0 ? nullptr : uuid);
  if (directory == nullptr) return nullptr;
  for (std::uint64_t i = 0; i < count; ++i) {
    USB4_PROPERTY* entry = KivUsb4PropertyParse(block, block.Words + first + i * kEntryWords, place.Nesting, budget);
    if (entry == nullptr) {
      KivUsb4PropertyFreeDir(directory);
      return nullptr;
    }
    directory->Entries().Append(*entry);
  }
  return directory;
}

}  // namespace

std::uint64_t KivUsb4PropertyDirLength(USB4_PROPERTY_DIR* directory, bool recurse, std::uint64_t* counter) {
  std::uint64_t length = HeaderWords(directory);
  std::uint64_t counted = 0;
  for (const USB4_PROPERTY& entry : directory->Entries()) {
    length += kEntryWords;
    if (entry.Type == USB4_PROPERTY_DIRECTORY) {
      if (recurse) length += KivUsb4PropertyDirLength(entry.Value.Directory, true, counter);
      // No value stands for it, but peers expect its word: a formatted block has one spare word for each directory
      // entry.
      ++counted;
    } else if (HasBytes(entry.Type)) {
      counted += entry.LengthWords;
    }
  }
  if (counter != nullptr) *counter += counted;
  return length;
}

KIV_RESULT KivUsb4PropertyFormat(USB4_PROPERTY_DIR* directory, std::uint32_t* buffer, std::uint32_t bufferWords) {
  if (buffer != nullptr) {
    const KIV_RESULT end = __KivUsb4PropertyFormatDir(directory, buffer, 0, bufferWords);
    return end < 0 ? end : kKivOk;
  }
  std::uint64_t counter = 0;
  const std::uint64_t length = KivUsb4PropertyDirLength(directory, true, &counter);
  return static_cast<KIV_RESULT>(length + counter);
}

KIV_RESULT __KivUsb4PropertyFormatDir(USB4_PROPERTY_DIR* directory, std::uint32_t* buffer, std::uint32_t offset,
                                      std::uint32_t limit) {
  std::uint64_t counter = 0;
  const std::uint64_t length = KivUsb4PropertyDirLength(directory, false, &counter);
  const std::uint64_t below = offset + length + counter;
  if (below > limit) return kKivInvalid;
  FormatCursors cursors = {static_cast<std::uint32_t>(offset + length), static_cast<std::uint32_t>(below)};
  WriteDirectoryHeader(directory, buffer + offset, static_cast<std::uint32_t>(length));
  std::uint32_t* words = buffer + offset + HeaderWords(directory);
  for (const USB4_PROPERTY& entry : directory->Entries()) {
    const KIV_RESULT result = FormatEntry(entry, buffer, words, cursors, limit);
    if (result != kKivOk) return result;
    words += kEntryWords;
  }
  return static_cast<KIV_RESULT>(cursors.Directories);
}

USB4_PROPERTY_DIR* KivUsb4PropertyParseDir(const std::uint32_t* block, std::uint32_t words) {
  if (words < kRootHeaderWords || block[0] != kRootMark || block[1] > words) return nullptr;
  ParseBudget budget = {kMostEntries};
  return __KivUsb4PropertyParseDir({block, words}, {0, block[1], 0}, budget);
}

bool KivUsb4PropertyEntryValid(const std::uint32_t* entry, std::uint32_t words) {
  const std::uint32_t type = KindWord::Type::Get(entry[kKindWord]);
  const std::uint64_t length = KindWord::Length::Get(entry[kKindWord]);
  if (type == USB4_PROPERTY_IMMEDIATE) return length == kImmediateWords;
  if (type != USB4_PROPERTY_DIRECTORY && !HasBytes(type)) return true;
  return length <= words && entry[kValueWord] + length <= words;
}
