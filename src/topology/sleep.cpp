// The suspend walk, wake sources and the sleep handshake.
#include "topology/sleep.h"

#include "include/trace.h"
#include "topology/link_controller.h"
#include "topology/router_access.h"
#include "topology/router_configure.h"
#include "topology/router_operation.h"
#include "topology/router_queries.h"

namespace {

constexpr std::uint32_t kWakeAll = 0x3F;
constexpr std::uint32_t kWakeForTunnels = kWakeOnUsb4 | kWakeOnUsb3 | kWakeOnPcie;

bool Wants(std::uint32_t flags, std::uint32_t source) {
  return (flags & source) != 0;
}

// Connect is armed only where nothing is configured behind the adapter, disconnect and USB4 wake only where something
// is. The upstream adapter always passes wakes on. The hardware takes the mark off when the link goes down other than
// by sleep, so that an adapter from which a router was pulled can wake on the next plug.
KIV_RESULT ArmPort(const USB4_PORT* adapter, std::uint32_t flags) {
  return ModifyRegister<PortCs19>(adapter, adapter->Usb4PortCapability, [adapter, flags](PortCs19::Value& cs19) {
    const bool upstream = KivUsb4PortIsUpstream(adapter);
    const bool configured = cs19.IsSet<PortCs19::PortConfigured>();
    cs19.Set<PortCs19::WakeOnConnect>(!upstream && !configured && Wants(flags, kWakeOnConnect));
    cs19.Set<PortCs19::WakeOnDisconnect>(!upstream && configured && Wants(flags, kWakeOnDisconnect));
    cs19.Set<PortCs19::WakeOnUsb4>(upstream || (configured && Wants(flags, kWakeOnUsb4)));
  });
}

}  // namespace

void KivUsb4SwitchSuspend(USB4_SWITCH* router, bool armAll) {
  if (KivUsb4PlugEventsActive(router, false) != kKivOk) {
    TraceError("plug events stay on, router stays awake", "name", router->Info.Name);
    return;
  }
  for (const USB4_PORT& adapter : AdaptersOf(router)) {
    if (KivUsb4PortHasDownstreamLink(&adapter)) KivUsb4SwitchSuspend(adapter.Remote->Router, armAll);
  }
  KivUsb4SwitchSetWake(router, armAll ? kWakeAll : kWakeForTunnels);
  const KIV_RESULT result = KivUsb4SwitchIsUsb4(router) ? Usb4SwitchSetSleep(router) : KivUsb4LcSetSleep(router);
  if (result != kKivOk) TraceError("router does not sleep", "name", router->Info.Name, "result", AsResult(result));
}

void KivUsb4SwitchSetWake(const USB4_SWITCH* router, std::uint32_t flags) {
  const KIV_RESULT result =
      KivUsb4SwitchIsUsb4(router) ? Usb4SwitchSetWake(router, flags) : KivUsb4LcSetWake(router, flags);
  if (result != kKivOk) TraceError("wake sources not armed", "name", router->Info.Name, "result", AsResult(result));
}

KIV_RESULT Usb4SwitchSetWake(const USB4_SWITCH* router, std::uint32_t flags) {
  const bool host = IsHostRouter(router);
  for (const USB4_PORT& adapter : AdaptersOf(router)) {
    if (!KivUsb4PortIsLane(&adapter) || adapter.Usb4PortCapability == 0) continue;
    if (host && KivUsb4PortIsUpstream(&adapter)) continue;
    const KIV_RESULT result = ArmPort(&adapter, flags);
    if (result != kKivOk) return result;
  }
  if (host) return kKivOk;
  return ModifyRegister<RouterCs5>(router, 0, [flags](RouterCs5::Value& cs5) {
    cs5.Set<RouterCs5::WakeOnUsb3>(Wants(flags, kWakeOnUsb3));
    cs5.Set<RouterCs5::WakeOnPcie>(Wants(flags, kWakeOnPcie));
    // Only ever set: a display that once was a reason to wake stays one.
    if (Wants(flags, kWakeOnDisplayPort)) cs5.Set<RouterCs5::WakeOnDisplayPort>(1);
  });
}

KIV_RESULT Usb4SwitchSetSleep(const USB4_SWITCH* router) {
  const KIV_RESULT result =
      ModifyRegister<RouterCs5>(router, 0, [](RouterCs5::Value& cs5) { cs5.Set<RouterCs5::EnterSleep>(1); });
  if (result != kKivOk) return result;
  return Usb4SwitchWaitForBit(router, {RouterCs6::kOffset, RouterCs6::SleepReady::kMask, RouterCs6::SleepReady::kMask});
}

void Usb4SwitchCheckWakes(const USB4_SWITCH* router) {
  if (!IsHostRouter(router)) {
    RouterCs6::Value cs6;
    if (ReadRegister<RouterCs6>(router, 0, cs6) != kKivOk) return;
    TraceInfo("woken by", "name", router->Info.Name, "pcie", cs6.IsSet<RouterCs6::WokenByPcie>(), "usb3",
              cs6.IsSet<RouterCs6::WokenByUsb3>());
  }
  for (const USB4_PORT& adapter : AdaptersOf(router)) {
    if (!KivUsb4PortHasDownstreamLink(&adapter)) continue;
    PortCs18::Value cs18;
    if (ReadRegister<PortCs18>(&adapter, adapter.Usb4PortCapability, cs18) != kKivOk) return;
    if (cs18.IsSet<PortCs18::WakeStatus>()) {
      TraceInfo("woken through a link", "adapter", AsAdapter(&adapter));
    }
  }
}
