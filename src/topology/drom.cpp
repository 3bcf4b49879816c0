// Reading, checking and keeping a router's DROM.
#include "topology/drom.h"

#include "hostif/abort.h"
#include "include/trace.h"
#include "topology/drom_image.h"
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
