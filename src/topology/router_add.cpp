// Adding a configured router: everything there is to know about it, hot-plug events, the device list.
#include "include/trace.h"
#include "topology/device_list.h"
#include "topology/drom.h"
#include "topology/link.h"
#include "topology/router_access.h"
#include "topology/router_lifecycle.h"
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
