// Checking a DROM image and applying its entries to the router and its adapters.
#include "topology/drom_parse.h"

#include <cstring>

#include "hostif/crc32c.h"
#include "include/trace.h"
#include "topology/drom_image.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"

namespace {

constexpr std::uint32_t kGenericVendorName = 1;
constexpr std::uint32_t kGenericDeviceName = 2;
constexpr std::uint32_t kGenericProduct = 9;
constexpr std::uint32_t kProductEnd = 8;  // bytes of a product entry up to its model ID
constexpr std::uint32_t kLaneEntryBytes = 8;
constexpr std::uint32_t kNameOffset = 2;

// Byte 1 of an entry, and bytes 2 and 3 of a lane adapter's.
struct EntryKind {
  using GenericType = Bits<0, 6>;
  using Adapter = Bits<0, 6>;
  using Disabled = Bit<6>;
  using IsPort = Bit<7>;
};
struct LaneEntry {
  using SecondLane = Bit<4>;
  using HasPartner = Bit<7>;
  using Partner = Bits<0, 6>;
};

bool DataCrcIsGood(const USB4_SWITCH* router) {
  std::uint32_t stored = 0;
  std::memcpy(&stored, router->Drom + kDromCrc32Offset, sizeof stored);
  return Crc32c(router->Drom + kDromDataOffset, DromDataLength(router)) == stored;
}

bool IsWhole(const USB4_SWITCH* router) {
  return DromDataLength(router) + kDromDataOffset <= router->DromBytes;
}

// Copies the text behind the two header bytes, up to a NUL; an entry without room for one gives an empty name.
KIV_RESULT CopyName(const std::uint8_t* entry, char*& name, ULONG tag) {
  const std::uint32_t characters = entry[0] > kNameOffset ? entry[0] - kNameOffset : 0;
  char* copy = PoolNewArray<char>(characters + 1, tag);
  if (copy == nullptr) return kKivFailed;
  for (std::uint32_t i = 0; i < characters && entry[kNameOffset + i] != 0; ++i) {
    copy[i] = static_cast<char>(entry[kNameOffset + i]);
  }
  PoolDeleteArray(name, tag);
  name = copy;
  return kKivOk;
}

void TakeProduct(USB4_SWITCH* router, std::uint32_t entry) {
  if (entry + kProductEnd > router->DromBytes) return;
  if (router->DromVendorId != 0 || router->DromModelId != 0) return;
  router->DromVendorId = Le16(router->Drom + entry + 4);
  router->DromModelId = Le16(router->Drom + entry + 6);
}

}  // namespace

std::uint8_t Crc8(const std::uint8_t* data, std::uint32_t bytes) {
  std::uint32_t crc = 0xFF;
  for (std::uint32_t i = 0; i < bytes; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x80) != 0 ? (crc << 1 ^ 0x07) & 0xFF : crc << 1;
  }
  return static_cast<std::uint8_t>(crc);
}

KIV_RESULT KIVUsb4DromParse(USB4_SWITCH* router) {
  if (!IsWhole(router) || !DataCrcIsGood(router)) {
    TraceError("DROM data is corrupt", "name", router->Info.Name);
    return kKivFailed;
  }
  return KivUsb4DromParseEntries(router, kDromFirstEntryUsb4);
}

KIV_RESULT KIVUsb4tbdromparse(USB4_SWITCH* router) {
  const std::uint8_t* drom = router->Drom;
  if (Crc8(drom + kDromUidOffset, kDromUidBytes) != drom[0]) {
    TraceError("DROM header is corrupt", "name", router->Info.Name);
    return kKivFailed;
  }
  if (!IsWhole(router)) return kKivFailed;
  if (router->Uid == 0) std::memcpy(&router->Uid, drom + kDromUidOffset, sizeof router->Uid);
  router->DromVendorId = Le16(drom + kDromVendorOffset);
  router->DromModelId = Le16(drom + kDromModelOffset);
  // Images of this format are in the field with a data CRC that never was right.
  if (!DataCrcIsGood(router)) TraceWarning("DROM data CRC differs", "name", router->Info.Name);
  return KivUsb4DromParseEntries(router, kDromFirstEntryTbt3);
}

KIV_RESULT KivUsb4DromParseEntries(USB4_SWITCH* router, std::uint32_t first) {
  const std::uint32_t end = DromDataLength(router) + kDromDataOffset;
  for (std::uint32_t entry = first; entry < end;) {
    if (entry + 1 == end) return kKivFailed;  // a lone byte
    const std::uint32_t length = router->Drom[entry];
    if (entry + length > end || length == 0) return kKivFailed;
    const bool isPort = EntryKind::IsPort::Get(router->Drom[entry + 1]) != 0;
    const KIV_RESULT result =
        isPort ? KivUsb4DromParseEntryPort(router, entry) : KivUsb4DromParseEntryGeneric(router, entry);
    if (result != kKivOk) return result;
    entry += length;
  }
  return kKivOk;
}

KIV_RESULT KivUsb4DromParseEntryGeneric(USB4_SWITCH* router, std::uint32_t entry) {
  const std::uint8_t* bytes = router->Drom + entry;
  switch (EntryKind::GenericType::Get(bytes[1])) {
    case kGenericVendorName:
      return CopyName(bytes, router->VendorName, USB4_SWITCH::kVendorNameTag);
    case kGenericDeviceName:
      return CopyName(bytes, router->DeviceName, USB4_SWITCH::kDeviceNameTag);
    case kGenericProduct:
      TakeProduct(router, entry);
      return kKivOk;
    default:
      return kKivOk;
  }
}

KIV_RESULT KivUsb4DromParseEntryPort(USB4_SWITCH* router, std::uint32_t entry) {
  const std::uint8_t* bytes = router->Drom + entry;
  const std::uint32_t number = EntryKind::Adapter::Get(bytes[1]);
  if (number > router->MaximumAdapter()) return kKivOk;
  USB4_PORT* adapter = &router->Adapters[number];
  adapter->Disabled = EntryKind::Disabled::Get(bytes[1]) != 0;
  if (adapter->Disabled != 0) return kKivOk;
  AdpCs2::Value cs2;
  const KIV_RESULT result = ReadRegister<AdpCs2>(adapter, 0, cs2);
  if (result != kKivOk) return result;
  if (cs2.Get<AdpCs2::Type>() != USB4_ADAPTER_LANE) return kKivOk;
  if (bytes[0] != kLaneEntryBytes) return kKivFailed;
  adapter->Flags = LaneEntry::SecondLane::Get(bytes[2]) != 0 ? kPortLaneEntry | kPortSecondLane : kPortLaneEntry;
  if (LaneEntry::HasPartner::Get(bytes[2]) != 0) {
    const std::uint32_t partner = LaneEntry::Partner::Get(bytes[3]);
    // No record exists for a partner that the router does not have.
    if (partner <= router->MaximumAdapter()) adapter->DualLinkPartner = &router->Adapters[partner];
  }
  return kKivOk;
}
