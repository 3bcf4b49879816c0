// Queries on protocol adapters.
#include "tunnel/protocol_adapter.h"

#include "topology/router_queries.h"
#include "tunnel/tunnel_kind.h"

namespace {

// The adapter of this type at the position of the lane adapter's link, or null.
USB4_PORT* AdapterAtPosition(const USB4_SWITCH* router, USB4_ADAPTER_TYPE type, const USB4_PORT* laneAdapter) {
  std::uint32_t position = Usb4PortIdx(router, laneAdapter);
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    if (adapter.Type() == type && position-- == 0) return &adapter;
  }
  return nullptr;
}

}  // namespace

bool PortIs(const USB4_PORT* adapter, USB4_ADAPTER_TYPE type) {
  return adapter != nullptr && adapter->Type() == type;
}

bool KivUsb4PortIsTunnelEnabled(const USB4_PORT* adapter) {
  const USB4_TUNNEL_KIND* kind = KindWithEndAt(adapter->Type());
  return kind != nullptr && kind->EndIsOn != nullptr && kind->EndIsOn(adapter);
}

USB4_PORT* KivUsb4FindUnusedPort(const USB4_SWITCH* router, std::uint32_t type) {
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    if (KivUsb4PortIsUpstream(&adapter) || adapter.Type() != type || adapter.ProtocolCapability == 0) continue;
    if (!KivUsb4PortIsTunnelEnabled(&adapter)) return &adapter;
  }
  return nullptr;
}

std::uint32_t Usb4PortIdx(const USB4_SWITCH* router, const USB4_PORT* adapter) {
  std::uint32_t position = 0;
  for (const USB4_PORT& other : AdaptersOf(router)) {
    if (!KivUsb4PortIsLane(&other) || KivUsb4PortIsUpstream(&other) || other.IsSecondLane()) continue;
    if (&other == adapter) break;
    ++position;
  }
  return position;
}

USB4_PORT* Usb4SwitchMapPcieDown(const USB4_SWITCH* router, const USB4_PORT* laneAdapter) {
  return AdapterAtPosition(router, USB4_ADAPTER_PCIE_DOWNSTREAM, laneAdapter);
}

USB4_PORT* Usb4SwitchMapUsb3Down(const USB4_SWITCH* router, const USB4_PORT* laneAdapter) {
  USB4_PORT* adapter = AdapterAtPosition(router, USB4_ADAPTER_USB3_DOWNSTREAM, laneAdapter);
  return adapter == nullptr || KivUsb4PortIsTunnelEnabled(adapter) ? nullptr : adapter;
}
