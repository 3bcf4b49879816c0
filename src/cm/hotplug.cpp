// Plug and unplug, as notifications tell them.
#include "cm/hotplug.h"

#include "cm/idle.h"
#include "cm/peer_link.h"
#include "cm/scan.h"
#include "cm/tunnel_policy.h"
#include "cm/upcalls.h"
#include "hostif/domain.h"
#include "include/domain_record.h"
#include "include/trace.h"
#include "topology/device_list.h"
#include "topology/link.h"
#include "topology/router_queries.h"
#include "topology/router_remove.h"
#include "topology/tmu.h"
#include "topology/upcalls.h"
#include "tunnel/dp_policy.h"
#include "tunnel/dp_resources.h"
#include "tunnel/protocol_adapter.h"

namespace {

// The adapter that an event is about; null when the event is to be ignored. The run lock keeps its router.
USB4_PORT* AdapterOf(const USB4_HOTPLUG_EVENT& event) {
  const RouterReference router = KivUsb4DomainGetSwitch(event.Domain, event.Route);
  if (!router || event.Adapter > router->MaximumAdapter()) return nullptr;
  USB4_PORT* adapter = &router->Adapters[event.Adapter];
  return KivUsb4PortIsUpstream(adapter) ? nullptr : adapter;
}

bool IsDisplayAdapter(const USB4_PORT* adapter) {
  return PortIs(adapter, USB4_ADAPTER_DP_OUT) || PortIs(adapter, USB4_ADAPTER_DP_IN);
}

void Plugged(USB4_PORT* adapter) {
  USB4_SWITCH* router = adapter->Router;
  USB4_DOMAIN* domain = router->Domain;
  if (adapter->Remote != nullptr) return;
  if (KivUsb4PortIsLane(adapter)) KivUsb4ScanPort(adapter);
  if (IsDisplayAdapter(adapter)) KivUsb4DpResourceAvailable(domain, adapter);
  StayAwakeForTunnels(domain);
  if (!KivUsb4DiagnosticsEnabled(domain)) return;
  KivUsb4CreateDirectoryForHotplugCreatedSwitch(domain, KivUsb4SwitchRoute(router));
  KivUsb4TunnelInfoShow(domain);
  KivUsb4PrintAllTunnelInfo(domain);
}

void ClearSlots(USB4_PORT* adapter) {
  if (adapter->Usb4PortCapability == 0) return;
  for (void*& slot : adapter->Slots) {
    if (slot == adapter) slot = nullptr;
  }
}

// Tunnels go first, while the records of the adapters that they hold are there; last, a display that lost its tunnel
// may get another way.
void RemoveBehind(USB4_PORT* adapter) {
  USB4_SWITCH* router = adapter->Remote->Router;
  USB4_DOMAIN* domain = router->Domain;
  KivUsb4SwitchSetUnplugged(router);
  KivUsb4RemoveInvalidTunnels(domain);
  KivUsb4RemoveSwitchDpResources(router);
  // The far end is gone; what these steps still change is the near end.
  IgnoreResult(KivUsb4SwitchTmuDisable(router));
  IgnoreResult(KivUsb4SwitchUnconfigureLink(router));
  KivUsb4SwitchLaneBondingDisable(router);
  KivUsb4SwitchRemove(router);
  KivUsb4TunnelDp(domain);
  RestIfIdle(domain);
}

void Unplugged(USB4_PORT* adapter) {
  USB4_DOMAIN* domain = adapter->Router->Domain;
  ClearSlots(adapter);
  if (KivUsb4PortHasDownstreamLink(adapter)) {
    RemoveBehind(adapter);
  } else if (USB4_XDOMAIN* peer = ReferencePeerOf(adapter)) {
    UnplugPeer(adapter, peer);
    ReleasePeer(peer);
  } else if (IsDisplayAdapter(adapter)) {
    KivUsb4DpResourceUnavailable(domain, adapter);
  }
  if (!KivUsb4DiagnosticsEnabled(domain)) return;
  KivUsb4TunnelInfoShow(domain);
  KivUsb4PrintAllTunnelInfo(domain);
}

}  // namespace

void KivUsb4HandleHotplug(const USB4_HOTPLUG_EVENT& event) {
  _Analysis_assume_lock_held_(event.Domain->RunLock);
  if (!event.Domain->Started.IsSet()) return;
  USB4_PORT* adapter = AdapterOf(event);
  if (adapter == nullptr) {
    TraceInfo("event ignored", "route", AsRoute(event.Route), "adapter", event.Adapter, "unplug", event.Unplug != 0);
    return;
  }
  if (event.Unplug != 0) {
    Unplugged(adapter);
  } else {
    Plugged(adapter);
  }
}
