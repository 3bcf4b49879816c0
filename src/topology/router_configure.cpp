// Configuring a router: the header write that makes it answer to its route, the set-up of USB4 routers, the plug events
// of Thunderbolt 3 ones.
#include "topology/router_configure.h"

#include "include/trace.h"
#include "topology/adapter_state.h"
#include "topology/router_access.h"
#include "topology/router_operation.h"
#include "topology/router_queries.h"
#include "topology/sleep.h"

namespace {

constexpr std::uint32_t kManagerUsb4Version = 0x10;

// ROUTER_CS_1 onward, from the cached header.
KIV_RESULT WriteHeader(const USB4_SWITCH* router, std::uint32_t dwords) {
  return KivUsb4SwWrite(router, &router->Header[RouterCs1::kOffset],
                        {USB4_CFG_SPACE_ROUTER, RouterCs1::kOffset, dwords});
}

}  // namespace

KIV_RESULT KivUsb4SwitchConfigure(USB4_SWITCH* router) {
  RouterCs3::Value cs3(router->Header[RouterCs3::kOffset]);
  TraceInfo(cs3.IsSet<RouterCs3::ConfigurationValid>() ? "restoring" : "initializing", "name", router->Info.Name);
  cs3.Set<RouterCs3::ConfigurationValid>(1);
  router->Header[RouterCs3::kOffset] = cs3.Word();
  if (KivUsb4SwitchIsUsb4(router)) {
    RouterCs4::Value cs4(router->Header[RouterCs4::kOffset]);
    cs4.Set<RouterCs4::ManagerVersion>(kManagerUsb4Version);
    router->Header[RouterCs4::kOffset] = cs4.Word();
    // A router that did not take it never becomes ready, which the set-up sees.
    IgnoreResult(WriteHeader(router, 4));
    const KIV_RESULT result = KivUsb4SwitchSetup(router);
    if (result != kKivOk) return result;
  } else {
    if (router->PlugEventsCapability == 0) return kKivFailed;
    const KIV_RESULT result = WriteHeader(router, 3);
    if (result != kKivOk) return result;
  }
  return KivUsb4PlugEventsActive(router, true);
}

KIV_RESULT KivUsb4SwitchSetup(USB4_SWITCH* router) {
  Usb4SwitchCheckWakes(router);
  if (IsHostRouter(router)) return kKivOk;
  RouterCs6::Value cs6;
  if (ReadRegister<RouterCs6>(router, 0, cs6) != kKivOk) {
    TraceError("router status cannot be read", "name", router->Info.Name);
  }
  const USB4_PORT* parentAdapter = ParentAdapterOf(router);
  router->Usb4Link = parentAdapter != nullptr && KivUsb4LinkIsUsb4(parentAdapter);
  RouterCs5::Value cs5;
  if (ReadRegister<RouterCs5>(router, 0, cs5) != kKivOk) {
    TraceError("router control cannot be read", "name", router->Info.Name);
  }
  // By the cached adapter headers. They are zero in a record that has just been allocated, so tunnelling is switched on
  // here only for a router that is set up a second time.
  if (router->Usb4Link != 0 && KivUsb4SwitchFindPortByType(router, USB4_ADAPTER_USB3_DOWNSTREAM) != nullptr) {
    cs5.Set<RouterCs5::Usb3Tunnelling>(1);
  }
  if (KivUsb4SwitchFindPortByType(router, USB4_ADAPTER_PCIE_DOWNSTREAM) != nullptr) {
    cs5.Set<RouterCs5::PcieTunnelling>(1);
  }
  // The internal host controller stays off whatever the router has: its devices are reached through USB3 tunnels.
  cs5.Set<RouterCs5::ManagerSupportsTbt3>(1);
  cs5.Set<RouterCs5::ConfigurationValid>(1);
  if (WriteRegister<RouterCs5>(router, 0, cs5) != kKivOk) {
    TraceError("router control cannot be written", "name", router->Info.Name);
  }
  return Usb4SwitchWaitForBit(
      router, {RouterCs6::kOffset, RouterCs6::ConfigurationReady::kMask, RouterCs6::ConfigurationReady::kMask});
}

KIV_RESULT KivUsb4PlugEventsActive(USB4_SWITCH* router, bool active) {
  if (KivUsb4SwitchIsUsb4(router)) return kKivOk;
  RouterCs4::Value cs4(router->Header[RouterCs4::kOffset]);
  cs4.Set<RouterCs4::NotificationTimeout>(0xFF);
  router->Header[RouterCs4::kOffset] = cs4.Word();
  const KIV_RESULT result = WriteRegister<RouterCs4>(router, 0, cs4);
  if (result != kKivOk) return result;
  return ModifyRegister<PlugEventsCs1>(router, router->PlugEventsCapability, [active](PlugEventsCs1::Value& cs1) {
    cs1.Set<PlugEventsCs1::LowMask>(1);
    cs1.Set<PlugEventsCs1::HighMask>(active ? 0x0 : 0xF);
  });
}
