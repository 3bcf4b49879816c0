// Property trees: how a host describes itself to a peer, as named and typed values in directories. Every record is
// valid when all zero but for a directory's list head.
#pragma once
#include <ntddk.h>

#include <cstddef>
#include <cstdint>

#include "include/list.h"
#include "include/pool.h"

struct USB4_PROPERTY_DIR;

inline constexpr std::uint32_t kPropertyKeyChars = 8;  // without the NUL
inline constexpr std::uint32_t kPropertyUuidBytes = 16;
inline constexpr std::uint32_t kPropertyWordBytes = 4;
inline constexpr std::uint32_t kMostPropertyWords = 500;  // of a block that is taken from a peer

// The character that stands in an entry.
enum USB4_PROPERTY_TYPE : std::uint32_t {
  USB4_PROPERTY_UNKNOWN = 0,  // an entry of a peer whose type is none of these; it has no value
  USB4_PROPERTY_DIRECTORY = 'D',
  USB4_PROPERTY_DATA = 'd',
  USB4_PROPERTY_TEXT = 't',
  USB4_PROPERTY_IMMEDIATE = 'v',
};

// One named value. The entry owns its bytes or its directory; which member is meant follows from the type.
struct USB4_PROPERTY {
  static constexpr ULONG kPoolTag = PoolTag("PRP1");
  static constexpr ULONG kValueTag = PoolTag("PRV1");

  LIST_ENTRY Link;
  char Key[kPropertyKeyChars + 1];  // NUL-terminated
  USB4_PROPERTY_TYPE Type;
  std::uint64_t LengthWords;  // of the value
  union {
    std::uint32_t Immediate;
    std::uint8_t* Bytes;  // data and text, LengthWords x 4 bytes; null for a length of 0
    USB4_PROPERTY_DIR* Directory;
  } Value;
};

using PropertyList = ListView<USB4_PROPERTY, offsetof(USB4_PROPERTY, Link)>;

struct USB4_PROPERTY_DIR {
  static constexpr ULONG kPoolTag = PoolTag("PRD1");
  static constexpr ULONG kUuidTag = PoolTag("PRU1");

  std::uint8_t* Uuid;          // kPropertyUuidBytes, or null for a root
  LIST_ENTRY EntriesListHead;  // in the order in which they were added

  PropertyList Entries() { return PropertyList(EntriesListHead); }
};
