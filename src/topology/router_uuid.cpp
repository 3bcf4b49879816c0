// The UUID of a router: from its link controller, or made from its UID.
#include <cstring>

#include "include/locks.h"
#include "topology/drom.h"
#include "topology/link_controller.h"
#include "topology/router_lifecycle.h"
#include "topology/router_queries.h"

namespace {

constexpr std::uint32_t kUuidDwords = kUuidBytes / sizeof(std::uint32_t);

void UuidFromUid(std::uint64_t uid, std::uint32_t (&uuid)[kUuidDwords]) {
  uuid[0] = static_cast<std::uint32_t>(uid);
  uuid[1] = static_cast<std::uint32_t>(uid >> 32);
  uuid[2] = 0xFFFFFFFF;
  uuid[3] = 0xFFFFFFFF;
}

KIV_RESULT FindUuid(USB4_SWITCH* router, std::uint32_t (&uuid)[kUuidDwords]) {
  if (KivUsb4SwitchIsUsb4(router)) {
    const KIV_RESULT result = Usb4SwitchReadUid(router, router->Uid);
    if (result != kKivOk) return result;
  } else {
    const KIV_RESULT result = KivUsb4LcReadUuid(router, uuid);
    // -1 stands for a router without a link controller; its UID comes from the DROM, as far as it has one.
    if (result != kKivFailed) return result;
  }
  UuidFromUid(router->Uid, uuid);
  return kKivOk;
}

}  // namespace

KIV_RESULT KivUsb4SwitchSetUuid(USB4_SWITCH* router) {
  if (router->Uuid != nullptr) return kKivOk;
  std::uint32_t uuid[kUuidDwords] = {};
  const KIV_RESULT result = FindUuid(router, uuid);
  if (result != kKivOk) return result;
  std::uint8_t* copy = PoolNewArray<std::uint8_t>(kUuidBytes, kUuidTag);
  if (copy == nullptr) return kKivFailed;
  std::memcpy(copy, uuid, kUuidBytes);
  const SpinLockGuard guard(router->Domain->TopologyLock);
  router->Uuid = copy;
  return kKivOk;
}
