// PCIe: a switch port on each side, nothing to negotiate.
#include "tunnel/pcie_tunnel.h"

#include "tunnel/path_parameters.h"
#include "tunnel/protocol_registers.h"
#include "tunnel/two_way_tunnel.h"

namespace {

struct Pcie {
  static constexpr USB4_TUNNEL_TYPE kType = USB4_TUNNEL_PCIE;
  static constexpr USB4_ADAPTER_TYPE kUpstreamType = USB4_ADAPTER_PCIE_UPSTREAM;
  static constexpr const char* kDownName = "PCIe Down";
  static constexpr const char* kUpName = "PCIe Up";

  static void InitPath(USB4_PATH* path) { KivUsb4PciePathInit(path); }
  static KIV_RESULT Switch(const USB4_PORT* adapter, bool enable) { return KivUsb4PciPortEnable(adapter, enable); }
  static bool IsEnabled(const USB4_PORT* adapter) { return KivUsb4PciPortIsEnabled(adapter); }
  static KIV_RESULT Activate(USB4_TUNNEL* tunnel, bool enable) { return KivUsb4PciActivate(tunnel, enable); }
};

}  // namespace

USB4_TUNNEL* KivUsb4TunnelAllocPcie(USB4_DOMAIN* owner, const USB4_ENDS& ends) {
  return BuildTwoWayTunnel<Pcie>(owner, ends);
}

USB4_TUNNEL* KivUsb4TunnelDiscoverPci(USB4_DOMAIN* owner, USB4_PORT* downstream) {
  return DiscoverTwoWayTunnel<Pcie>(owner, downstream);
}

KIV_RESULT KivUsb4PciActivate(USB4_TUNNEL* tunnel, bool enable) {
  return SwitchTwoWayTunnel<Pcie>(tunnel, enable);
}

KIV_RESULT KivUsb4PciPortEnable(const USB4_PORT* adapter, bool enable) {
  // The whole word, not a read-modify-write: whatever else firmware has set in it is to go.
  PcieAdpCs0::Value cs0;
  cs0.Set<PcieAdpCs0::PathEnable>(enable);
  return WriteProtocolRegister<PcieAdpCs0>(adapter, cs0);
}

bool KivUsb4PciPortIsEnabled(const USB4_PORT* adapter) {
  PcieAdpCs0::Value cs0;
  return ReadProtocolRegister<PcieAdpCs0>(adapter, cs0) == kKivOk && cs0.IsSet<PcieAdpCs0::PathEnable>();
}
