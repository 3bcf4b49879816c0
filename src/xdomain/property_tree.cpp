// Property trees in memory.
#include "xdomain/property_tree.h"

#include <cstring>

namespace {

// The NUL always has room: a text of 4 characters takes a second word.
std::uint64_t WordsForText(std::size_t characters) {
  return (characters + kPropertyWordBytes) / kPropertyWordBytes;
}

// An entry counts its words in 16 bits.
constexpr std::size_t kMostTextCharacters = 0xFFFF * std::size_t{kPropertyWordBytes} - 1;

// Characters up to the NUL, `most` without one.
std::size_t TextLength(const char* text, std::size_t most) {
  std::size_t length = 0;
  while (length < most && text[length] != '\0') ++length;
  return length;
}

bool KeysMatch(const char* first, const char* second) {
  for (;; ++first, ++second) {
    if (*first != *second) return false;
    if (*first == '\0') return true;
  }
}

// With zeroed bytes for `words` words; null without memory.
USB4_PROPERTY* AllocWithBytes(const char* key, USB4_PROPERTY_TYPE type, std::uint64_t words) {
  USB4_PROPERTY* entry = KivUsb4PropertyAlloc(key, type);
  if (entry == nullptr) return nullptr;
  entry->LengthWords = words;
  if (words == 0) return entry;
  entry->Value.Bytes = PoolNewArray<std::uint8_t>(words * kPropertyWordBytes, USB4_PROPERTY::kValueTag);
  if (entry->Value.Bytes != nullptr) return entry;
  PoolDelete(entry);
  return nullptr;
}

// As a string: what follows the NUL of a peer's text has no meaning, and is not carried on.
std::size_t BytesToCopy(const USB4_PROPERTY& entry) {
  const std::size_t most = entry.LengthWords * kPropertyWordBytes;
  if (entry.Type != USB4_PROPERTY_TEXT) return most;
  return TextLength(reinterpret_cast<const char*>(entry.Value.Bytes), most);
}

USB4_PROPERTY* CopyBytes(const USB4_PROPERTY& entry) {
  USB4_PROPERTY* copy = AllocWithBytes(entry.Key, entry.Type, entry.LengthWords);
  if (copy != nullptr && copy->Value.Bytes != nullptr) {
    std::memcpy(copy->Value.Bytes, entry.Value.Bytes, BytesToCopy(entry));
  }
  return copy;
}

USB4_PROPERTY* CopyDirectoryEntry(const USB4_PROPERTY& entry) {
  USB4_PROPERTY* copy = KivUsb4PropertyAlloc(entry.Key, entry.Type);
  if (copy == nullptr) return nullptr;
  copy->LengthWords = entry.LengthWords;
  copy->Value.Directory = KivUsb4PropertyCopyDir(entry.Value.Directory);
  if (copy->Value.Directory != nullptr) return copy;
  PoolDelete(copy);
  return nullptr;
}

USB4_PROPERTY* CopyImmediate(const USB4_PROPERTY& entry) {
  USB4_PROPERTY* copy = KivUsb4PropertyAlloc(entry.Key, entry.Type);
  if (copy == nullptr) return nullptr;
  copy->LengthWords = entry.LengthWords;
  copy->Value.Immediate = entry.Value.Immediate;
  return copy;
}

// Null without memory.
USB4_PROPERTY* CopyEntry(const USB4_PROPERTY& entry) {
  switch (entry.Type) {
    case USB4_PROPERTY_DIRECTORY:
      return CopyDirectoryEntry(entry);
    case USB4_PROPERTY_DATA:
    case USB4_PROPERTY_TEXT:
      return CopyBytes(entry);
    default:
      return CopyImmediate(entry);
  }
}

}  // namespace

USB4_PROPERTY_DIR* KivUsb4PropertyCreateDir(const std::uint8_t* uuid) {
  PoolPtr<USB4_PROPERTY_DIR> directory = PoolPtr<USB4_PROPERTY_DIR>::New();
  if (!directory) return nullptr;
  directory->Entries().Initialise();
  if (uuid == nullptr) return directory.Release();
  directory->Uuid = PoolNewArray<std::uint8_t>(kPropertyUuidBytes, USB4_PROPERTY_DIR::kUuidTag);
  if (directory->Uuid == nullptr) return nullptr;
  std::memcpy(directory->Uuid, uuid, kPropertyUuidBytes);
  return directory.Release();
}

USB4_PROPERTY* KivUsb4PropertyAlloc(const char* key, USB4_PROPERTY_TYPE type) {
  KivAssert(KivUsb4PropertyKeyValid(key));
  USB4_PROPERTY* entry = PoolNew<USB4_PROPERTY>();
  if (entry == nullptr) return nullptr;
  std::memcpy(entry->Key, key, TextLength(key, kPropertyKeyChars));
  entry->Type = type;
  return entry;
}

bool KivUsb4PropertyKeyValid(const char* key) {
  return key != nullptr && TextLength(key, kPropertyKeyChars + 1) <= kPropertyKeyChars;
}

KIV_RESULT KivUsb4PropertyAddImmediate(USB4_PROPERTY_DIR* directory, const char* key, std::uint32_t value) {
  if (!KivUsb4PropertyKeyValid(key)) return kKivInvalid;
  USB4_PROPERTY* entry = KivUsb4PropertyAlloc(key, USB4_PROPERTY_IMMEDIATE);
  if (entry == nullptr) return kKivNoMemory;
  entry->LengthWords = 1;
  entry->Value.Immediate = value;
  directory->Entries().Append(*entry);
  return kKivOk;
}

KIV_RESULT KivUsb4PropertyAddText(USB4_PROPERTY_DIR* directory, const char* key, const char* text) {
  if (text == nullptr || !KivUsb4PropertyKeyValid(key)) return kKivInvalid;
  const std::size_t characters = TextLength(text, kMostTextCharacters);
  USB4_PROPERTY* entry = AllocWithBytes(key, USB4_PROPERTY_TEXT, WordsForText(characters));
  if (entry == nullptr) return kKivNoMemory;
  std::memcpy(entry->Value.Bytes, text, characters);
  directory->Entries().Append(*entry);
  return kKivOk;
}

KIV_RESULT KivUsb4PropertyAddDir(USB4_PROPERTY_DIR* directory, const char* key, USB4_PROPERTY_DIR* subdirectory) {
  if (!KivUsb4PropertyKeyValid(key)) return kKivInvalid;
  USB4_PROPERTY* entry = KivUsb4PropertyAlloc(key, USB4_PROPERTY_DIRECTORY);
  if (entry == nullptr) return kKivNoMemory;
  entry->Value.Directory = subdirectory;
  directory->Entries().Append(*entry);
  return kKivOk;
}

USB4_PROPERTY* KivUsb4PropertyFind(USB4_PROPERTY_DIR* directory, const char* key, USB4_PROPERTY_TYPE type) {
  for (USB4_PROPERTY& entry : directory->Entries()) {
    if (entry.Type == type && KeysMatch(entry.Key, key)) return &entry;
  }
  return nullptr;
}

void KivUsb4PropertyRemove(USB4_PROPERTY_DIR* root, USB4_PROPERTY* entry) {
  KivAssert(KivUsb4PropertyFind(root, entry->Key, entry->Type) == entry);
  PropertyList::Remove(*entry);
  KivUsb4PropertyFree(entry);
}

USB4_PROPERTY_DIR* KivUsb4PropertyCopyDir(USB4_PROPERTY_DIR* directory) {
  USB4_PROPERTY_DIR* copy = KivUsb4PropertyCreateDir(directory->Uuid);
  if (copy == nullptr) return nullptr;
  for (const USB4_PROPERTY& entry : directory->Entries()) {
    if (entry.Type == USB4_PROPERTY_UNKNOWN) continue;
    USB4_PROPERTY* entryCopy = CopyEntry(entry);
    if (entryCopy == nullptr) {
      KivUsb4PropertyFreeDir(copy);
      return nullptr;
    }
    copy->Entries().Append(*entryCopy);
  }
  return copy;
}

void KivUsb4PropertyFree(USB4_PROPERTY* entry) {
  if (entry == nullptr) return;
  switch (entry->Type) {
    case USB4_PROPERTY_DIRECTORY:
      KivUsb4PropertyFreeDir(entry->Value.Directory);
      break;
    case USB4_PROPERTY_DATA:
    case USB4_PROPERTY_TEXT:
      PoolDeleteArray(entry->Value.Bytes, USB4_PROPERTY::kValueTag);
      break;
    default:
      break;
  }
  PoolDelete(entry);
}

void KivUsb4PropertyFreeDir(USB4_PROPERTY_DIR* directory) {
  if (directory == nullptr) return;
  while (USB4_PROPERTY* entry = directory->Entries().TakeFirst()) KivUsb4PropertyFree(entry);
  PoolDeleteArray(directory->Uuid, USB4_PROPERTY_DIR::kUuidTag);
  PoolDelete(directory);
}
