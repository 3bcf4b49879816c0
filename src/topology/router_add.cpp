// Adding a configured router: everything there is to know about it, hot-plug events, the device list. Its UUID comes
// from its link controller, or is made from its UID.
#include "topology/router_add.h"

#include <cstring>

#include "include/locks.h"
#include "include/trace.h"
#include "topology/adapter_init.h"
#include "topology/device_list.h"
#include "topology/drom.h"
#include "topology/link.h"
#include "topology/link_controller.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"
#include "topology/tmu.h"

namespace {

KIV_RESULT InitialiseAdapters(USB4_SWITCH* router) {
  for (std::uint32_t number = 0; number <= router->MaximumAdapter(); ++number) {
    USB4_PORT* adapter = &router->Adapters[number];
    if (adapter->Disabled != 0) continue;
    const KIV_RESULT result = KivUsb4InitPort(adapter);
    if (result != kKivOk) return result;
  }
  return kKivOk;
}

KIV_RESULT Initialise(USB4_SWITCH* router) {
  KIV_RESULT result = KivUsb4DromRead(router);
  if (result == kKivOk) result = KivUsb4SwitchSetUuid(router);
  if (result == kKivOk) result = InitialiseAdapters(router);
  if (result != kKivOk) return result;
  KivUsb4SwitchDefaultLinkPorts(router);
  result = KivUsb4SwitchUpdateLinkAttributes(router);
  if (result != kKivOk) return result;
  return KivUsb4SwitchTmuInit(router);
}

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

KIV_RESULT KivUsb4SwitchAdd(USB4_SWITCH* router) {
  if (router->AlreadyInitialised == 0) {
    const KIV_RESULT result = Initialise(router);
    if (result != kKivOk) {
      TraceError("router cannot be initialised", "name", router->Info.Name, "result", AsResult(result));
      return result;
    }
  }
  const KIV_RESULT result = KivUsb4SwitchEnableHotPlug(router);
  if (result != kKivOk) return result;
  KivUsb4UpdateSwitchInfoToList(router->Domain, {&router->Info, KivUsb4SwitchRoute(router), nullptr, router, nullptr});
  return kKivOk;
}

KIV_RESULT KivUsb4SwitchEnableHotPlug(USB4_SWITCH* router) {
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    if (adapter.Usb4PortCapability == 0) continue;
    const KIV_RESULT result =
        ModifyRegister<AdpCs5>(&adapter, 0, [](AdpCs5::Value& cs5) { cs5.Set<AdpCs5::DisableHotPlug>(0); });
    if (result != kKivOk) return result;
  }
  return kKivOk;
}

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
