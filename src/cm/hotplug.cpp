// Plug and unplug, as notifications tell them.
#include "cm/hotplug.h"

#include "cm/scan.h"
#include "include/domain.h"
#include "include/locks.h"
#include "include/trace.h"
#include "topology/device_list.h"
#include "topology/link.h"
#include "topology/router_lifecycle.h"
#include "topology/router_queries.h"
#include "topology/tmu.h"

namespace {

// The adapter that an event is about; null when the event is to be ignored.
USB4_PORT* AdapterOf(const USB4_HOTPLUG_EVENT& event) {
  const USB4_SWITCH* router = KivUsb4DomainGetSwitch(event.Domain, event.Route);
  if (router == nullptr || event.Adapter > router->MaximumAdapter()) return nullptr;
  USB4_PORT* adapter = &router->Adapters[event.Adapter];
  return KivUsb4PortIsUpstream(adapter) ? nullptr : adapter;
}

void Plugged(USB4_PORT* adapter) {
  if (adapter->Remote != nullptr) return;
  if (KivUsb4PortIsLane(adapter)) KivUsb4ScanPort(adapter);
}

void ClearSlots(USB4_PORT* adapter) {
  if (adapter->Usb4PortCapability == 0) return;
  for (void*& slot : adapter->Slots) {
    if (slot == adapter) slot = nullptr;
  }
}

void ForgetRemote(USB4_PORT* adapter) {
  const SpinLockGuard guard(adapter->Router->Domain->TopologyLock);
  adapter->Remote = nullptr;
  if (adapter->DualLinkPartner != nullptr) adapter->DualLinkPartner->Remote = nullptr;
}

void RemoveBehind(USB4_PORT* adapter) {
  USB4_SWITCH* router = adapter->Remote->Router;
  KivUsb4SwitchSetUnplugged(router);
  // The far end is gone; what these steps still change is the near end.
  IgnoreResult(KivUsb4SwitchTmuDisable(router));
  IgnoreResult(KivUsb4SwitchUnconfigureLink(router));
  KivUsb4SwitchLaneBondingDisable(router);
  KivUsb4SwitchRemove(router);
  ForgetRemote(adapter);
}

void Unplugged(USB4_PORT* adapter) {
  ClearSlots(adapter);
  if (KivUsb4PortHasDownstreamLink(adapter)) RemoveBehind(adapter);
}

}  // namespace

void KivUsb4HandleHotplug(const USB4_HOTPLUG_EVENT& event) {
  if (!event.Domain->Started.IsSet()) return;
  USB4_PORT* adapter = AdapterOf(event);
  if (adapter == nullptr) {
    TraceInfo("event ignored", "route", event.Route, "adapter", event.Adapter, "unplug", event.Unplug);
    return;
  }
  if (event.Unplug != 0) {
    Unplugged(adapter);
  } else {
    Plugged(adapter);
  }
}
