// PCIe: a switch port on each side, nothing to negotiate.
#include "tunnel/pcie_tunnel.h"

#include "tunnel/path_parameters.h"
#include "tunnel/protocol_adapter.h"
#include "tunnel/tunnel_kind.h"
#include "tunnel/two_way_tunnel.h"

namespace {

constexpr TWO_WAY_PATHS kPciePaths = {USB4_TUNNEL_PCIE, "PCIe Down", "PCIe Up", KivUsb4PciePathInit};

}  // namespace

USB4_TUNNEL* KivUsb4TunnelAllocPcie(USB4_DOMAIN* owner, const USB4_ENDS& ends) {
  return BuildTwoWayTunnel(kPciePaths, owner, ends);
}

USB4_TUNNEL* KivUsb4TunnelDiscoverPci(USB4_DOMAIN* owner, USB4_PORT* downstream) {
  return DiscoverTwoWayTunnel(kPciePaths, owner, downstream);
}

bool TraceBrokenPcie(USB4_DOMAIN*, USB4_PORT* downstream) {
  TraceBrokenTwoWayPaths(kPciePaths, downstream);
  return true;
}

void MarkFirmwarePcieRouters(const USB4_TUNNEL* tunnel) {
  USB4_SWITCH* router = tunnel->Destination->Router;
  for (; router != nullptr && router != tunnel->Source->Router; router = router->Info.Parent) {
    router->OnFirmwarePcieTunnel = 1;
  }
}

KIV_RESULT KivUsb4PciActivate(USB4_TUNNEL* tunnel, bool enable) {
  return SwitchEnds(tunnel, enable);
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
