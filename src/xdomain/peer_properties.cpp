// The block served to a peer, and the one taken from it.
#include "xdomain/peer_properties.h"

#include <cstring>

#include "include/domain_record.h"
#include "include/locks.h"
#include "include/trace.h"
#include "xdomain/computer_name.h"
#include "xdomain/host_properties.h"
#include "xdomain/property_block.h"
#include "xdomain/property_tree.h"

namespace {

constexpr const char* kDefaultComputerName = "DESKTOP1";
constexpr std::uint32_t kDefaultHopLimit = 15;

const char* ComputerNameOf(USB4_DOMAIN* domain) {
  if (domain->ComputerName == nullptr) {
    const NTSTATUS status = KivUsb4ReadActiveComputerNameFromRegistry(domain);
    if (!NT_SUCCESS(status)) TraceInfoBy(NAME_OF(UpdatePropertyBlock), "no computer name", "status", AsStatus(status));
  }
  return domain->ComputerName == nullptr ? kDefaultComputerName : domain->ComputerName;
}

KIV_RESULT AddPeerEntries(const USB4_XDOMAIN* xdomain, USB4_PROPERTY_DIR* root) {
  const KIV_RESULT result = KivUsb4PropertyAddText(root, "deviceid", ComputerNameOf(xdomain->Domain));
  return result != kKivOk ? result : KivUsb4PropertyAddImmediate(root, "maxhopid", xdomain->InputHopLimit);
}

struct Formatted {
  std::uint32_t* Words;
  std::uint32_t Count;
};

// Null words when it fails.
Formatted Format(USB4_PROPERTY_DIR* root) {
  const auto count = static_cast<std::uint32_t>(KivUsb4PropertyFormat(root, nullptr, 0));
  std::uint32_t* words = PoolNewArray<std::uint32_t>(count, USB4_XDOMAIN::kBlockTag);
  if (words == nullptr) return {};
  if (KivUsb4PropertyFormat(root, words, count) == kKivOk) return {words, count};
  PoolDeleteArray(words, USB4_XDOMAIN::kBlockTag);
  return {};
}

// A new copy of the entry's text in place of `name`, or none.
KIV_RESULT TakeName(USB4_PROPERTY_DIR* root, const char* key, char*& name) {
  PoolDeleteArray(name, USB4_XDOMAIN::kNameTag);
  name = nullptr;
  const USB4_PROPERTY* entry = KivUsb4PropertyFind(root, key, USB4_PROPERTY_TEXT);
  if (entry == nullptr || entry->Value.Bytes == nullptr) return kKivOk;
  std::size_t characters = 0;
  while (entry->Value.Bytes[characters] != 0) ++characters;  // the last byte of a text is always NUL
  name = PoolNewArray<char>(characters + 1, USB4_XDOMAIN::kNameTag);
  if (name == nullptr) return kKivNoMemory;
  std::memcpy(name, entry->Value.Bytes, characters);
  return kKivOk;
}

}  // namespace

void UpdatePropertyBlock(USB4_XDOMAIN* xdomain) {
  USB4_HOST_INTERFACE* hostInterface = xdomain->Domain->HostInterface;
  const MutexGuard guard(xdomain->Lock);
  if (xdomain->Block != nullptr && xdomain->BlockGeneration >= HostPropertyGeneration(hostInterface)) return;
  std::uint32_t generation = 0;
  USB4_PROPERTY_DIR* root = CopyHostProperties(hostInterface, &generation);
  if (root == nullptr) return;
  Formatted block = {};
  if (AddPeerEntries(xdomain, root) == kKivOk) block = Format(root);
  KivUsb4PropertyFreeDir(root);
  if (block.Words == nullptr) {
    TraceError("property block not renewed", "name", xdomain->Info.Name, "generation", generation);
    return;
  }
  PoolDeleteArray(xdomain->Block.Read(), USB4_XDOMAIN::kBlockTag);
  xdomain->Block = block.Words;
  xdomain->BlockWords = block.Count;
  xdomain->BlockGeneration = generation;
}

KIV_RESULT KivUsb4XdomainParseProperties(USB4_XDOMAIN* xdomain, USB4_PROPERTY_DIR* root) {
  _Analysis_assume_lock_held_(xdomain->Lock);
  const USB4_PROPERTY* deviceId = KivUsb4PropertyFind(root, "deviceid", USB4_PROPERTY_IMMEDIATE);
  const USB4_PROPERTY* vendorId = KivUsb4PropertyFind(root, "vendorid", USB4_PROPERTY_IMMEDIATE);
  if (deviceId == nullptr || vendorId == nullptr) {
    TraceError("peer does not say what it is", "name", xdomain->Info.Name);
    return kKivInvalid;
  }
  xdomain->PeerDeviceId = static_cast<std::uint16_t>(deviceId->Value.Immediate);
  xdomain->PeerVendorId = static_cast<std::uint16_t>(vendorId->Value.Immediate);
  const USB4_PROPERTY* hopLimit = KivUsb4PropertyFind(root, "maxhopid", USB4_PROPERTY_IMMEDIATE);
  xdomain->OutputHopLimit = hopLimit == nullptr ? kDefaultHopLimit : hopLimit->Value.Immediate;
  const KIV_RESULT device = TakeName(root, "deviceid", xdomain->PeerDeviceName);
  const KIV_RESULT vendor = TakeName(root, "vendorid", xdomain->PeerVendorName);
  return device != kKivOk ? device : vendor;
}
