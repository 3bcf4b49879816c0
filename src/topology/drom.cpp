// Reading, checking and keeping a router's DROM. Its bytes come by router operations on USB4 routers, from the EEPROM
// on Thunderbolt 3 ones.
#include "topology/drom.h"

#include <cstring>

#include "hostif/abort.h"
#include "hostif/crc32c.h"
#include "include/trace.h"
#include "topology/drom_image.h"
#include "topology/drom_parse.h"
#include "topology/eeprom.h"
#include "topology/router_access.h"
#include "topology/router_operation.h"
#include "topology/router_queries.h"

namespace {

constexpr std::uint32_t kSmallestImage = 23;
constexpr std::uint32_t kReadLengthMask = 0x3FF;  // narrower than the field that the check looks at
constexpr std::uint8_t kVersionUsb4 = 3;
constexpr ULONG kSecondAttemptMs = 100;

void DropImage(USB4_SWITCH* router) {
  PoolDeleteArray(router->Drom, USB4_SWITCH::kDromTag);
  router->Drom = nullptr;
  router->DromBytes = 0;
}

// The host router's image is kept as it is and not applied; nothing here can fail its add.
void ReadHostDrom(USB4_SWITCH* router) {
  KIV_RESULT result = kKivOk;
  if (KivUsb4SwitchIsUsb4(router)) {
    IgnoreResult(Usb4SwitchReadUid(router, router->Uid));  // read again, and checked, for the UUID
    std::uint32_t size = 0;
    result = Usb4CopyHostDrom(router, size);
  } else {
    result = KivUsb4DromReadUidOnly(router, router->Uid);
  }
  if (result != kKivOk) {
    TraceWarningBy(NAME_OF(KivUsb4DromRead), "host router without a DROM", "result", AsResult(result));
  }
}

KIV_RESULT ReadImage(USB4_SWITCH* router) {
  std::uint8_t lengthBytes[2] = {};
  const KIV_RESULT result = KivUsb4DromReadBytes(router, kDromLengthOffset, lengthBytes, sizeof lengthBytes);
  if (result != kKivOk) return result;
  const std::uint32_t size = (Le16(lengthBytes) & kReadLengthMask) + kDromDataOffset;
  if (size < kSmallestImage) {
    TraceErrorBy(NAME_OF(KivUsb4DromRead), "DROM is too short", "name", router->Info.Name, "bytes", size);
    return kKivFailed;
  }
  PoolArray<std::uint8_t, USB4_SWITCH::kDromTag> image(size);
  if (!image) return kKivFailed;
  if (KivUsb4DromReadBytes(router, 0, image.Get(), size) != kKivOk) return kKivFailed;
  router->Drom = image.Release();
  router->DromBytes = size;
  return kKivOk;
}

KIV_RESULT Parse(USB4_SWITCH* router) {
  return router->Drom[kDromVersionOffset] == kVersionUsb4 ? KIVUsb4DromParse(router) : KIVUsb4tbdromparse(router);
}

constexpr std::uint16_t kOpcodeDromRead = 0x24;
constexpr std::uint32_t kBytesPerDword = 4;
constexpr std::uint32_t kChunkBytes = kBytesPerDword * RouterOperationData::kCount;
constexpr std::uint32_t kRetries = 3;

}  // namespace

KIV_RESULT KivUsb4DromRead(USB4_SWITCH* router) {
  if (router->Drom != nullptr) return kKivOk;
  if (IsHostRouter(router)) {
    ReadHostDrom(router);
    return kKivOk;
  }
  // Behind a Thunderbolt 3 router's EEPROM lie 600 ms of clocking, and a dock drops its link unless it is enumerated by
  // then.
  if (!KivUsb4SwitchIsUsb4(router)) return kKivOk;
  KIV_RESULT result = ReadImage(router);
  if (result != kKivOk) return result;
  // Bits 11:10 of the length were not part of what was read; an image that needs them is not whole.
  if (DromDataLength(router) + kDromDataOffset != router->DromBytes) {
    TraceError("DROM length differs from what was read", "name", router->Info.Name);
    DropImage(router);
    return kKivFailed;
  }
  result = Parse(router);
  if (result == kKivFailed) {
    SleepMs(router->Domain, kSecondAttemptMs);
    result = Parse(router);
  }
  if (result != kKivOk) {
    TraceError("DROM dropped", "name", router->Info.Name, "result", AsResult(result));
    DropImage(router);
  }
  return kKivOk;
}

KIV_RESULT KivUsb4DromReadBytes(const USB4_SWITCH* router, std::uint16_t offset, std::uint8_t* buffer,
                                std::uint32_t length) {
  return KivUsb4SwitchIsUsb4(router) ? Usb4SwitchDromRead(router, offset, buffer, length)
                                     : KivUsb4EepromReadN(router, offset, buffer, length);
}

KIV_RESULT Usb4SwitchDromRead(const USB4_SWITCH* router, std::uint32_t offset, std::uint8_t* buffer,
                              std::uint32_t length) {
  // Skipped in every chunk, not only in the first: callers read from offset 0, or two bytes within one dword.
  const std::uint32_t skew = offset % kBytesPerDword;
  offset -= skew;
  std::uint32_t retries = kRetries;
  while (length > 0) {
    const std::uint32_t chunk = length < kChunkBytes ? length : kChunkBytes;
    // One dword of zeros behind the data, for a skewed chunk.
    std::uint32_t block[RouterOperationData::kCount + 1] = {};
    const DROM_BLOCK wanted = {offset / kBytesPerDword, (chunk + kBytesPerDword - 1) / kBytesPerDword};
    const KIV_RESULT result = Usb4SwitchDromReadBlock(router, wanted, block);
    if (result > 0) return result;
    if (result < 0) {
      if (retries == 0) return kKivFailed;
      --retries;
      continue;
    }
    std::memcpy(buffer, reinterpret_cast<const std::uint8_t*>(block) + skew, chunk);
    offset += chunk;
    buffer += chunk;
    length -= chunk;
  }
  return kKivOk;
}

KIV_RESULT Usb4SwitchDromReadBlock(const USB4_SWITCH* router, const DROM_BLOCK& block, std::uint32_t* buffer) {
  DromReadMetadata::Value metadata;
  metadata.Set<DromReadMetadata::DwordAddress>(block.Address);
  metadata.Set<DromReadMetadata::DwordCount>(block.Count);
  KIV_RESULT result = Usb4SwitchOpSetMetadata(router, metadata.Word());
  if (result != kKivOk) return result;
  std::uint8_t operationStatus = 0;
  result = Usb4SwitchOp(router, kOpcodeDromRead, operationStatus);
  if (result != kKivOk) return result;
  if (operationStatus != 0) return kKivFailed;
  return Usb4SwitchOpReadData(router, buffer, block.Count);
}

KIV_RESULT Usb4SwitchOpReadData(const USB4_SWITCH* router, std::uint32_t* buffer, std::uint32_t dwords) {
  if (dwords > RouterOperationData::kCount) return kKivFailed;
  return KivUsb4SwRead(router, buffer, {USB4_CFG_SPACE_ROUTER, RouterOperationData::kOffset, dwords});
}

KIV_RESULT Usb4SwitchReadUid(const USB4_SWITCH* router, std::uint64_t& uid) {
  std::uint32_t words[RouterUid::kCount] = {};
  const KIV_RESULT result = ReadArray<RouterUid>(router, 0, words);
  if (result != kKivOk) return result;
  uid = std::uint64_t{words[1]} << 32 | words[0];
  return kKivOk;
}

KIV_RESULT Usb4CopyHostDrom(USB4_SWITCH* router, std::uint32_t& size) {
  std::uint16_t length = 0;
  KIV_RESULT result =
      Usb4SwitchDromRead(router, kDromLengthOffset, reinterpret_cast<std::uint8_t*>(&length), sizeof length);
  if (result != kKivOk) return result;
  size = length + kDromDataOffset;
  PoolArray<std::uint8_t, USB4_SWITCH::kDromTag> image(size);
  if (!image) return kKivFailed;
  result = Usb4SwitchDromRead(router, 0, image.Get(), size);
  if (result != kKivOk) return result;
  router->Drom = image.Release();
  router->DromBytes = size;
  return kKivOk;
}

KIV_RESULT KivUsb4DromReadUidOnly(const USB4_SWITCH* router, std::uint64_t& uid) {
  std::uint8_t bytes[1 + kDromUidBytes] = {};
  const KIV_RESULT result = KivUsb4EepromReadN(router, 0, bytes, sizeof bytes);
  if (result != kKivOk) return result;
  // The check byte is taken over the UID as two dwords, most significant byte of each first.
  std::uint8_t swapped[kDromUidBytes];
  for (std::uint32_t i = 0; i < kDromUidBytes; ++i) swapped[i] = bytes[1 + (i ^ 3u)];
  if (static_cast<std::uint8_t>(Crc32c(swapped, sizeof swapped)) != bytes[0]) {
    TraceError("UID and its check byte differ", "name", router->Info.Name, "check", AsHex(bytes[0]));
    return kKivFailed;
  }
  std::memcpy(&uid, bytes + 1, sizeof uid);
  return kKivOk;
}
