// Building and finding the two paths of PCIe and USB3 tunnels.
#include "tunnel/two_way_tunnel.h"

#include "include/trace.h"
#include "tunnel/path.h"
#include "tunnel/path_discover.h"
#include "tunnel/protocol_adapter.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_kind.h"

namespace {

constexpr std::int32_t kTwoWayHopId = 8;
constexpr std::uint32_t kTwoWayLinkNumber = 0;

USB4_PATH_SEARCH AwayFrom(const TWO_WAY_PATHS& paths, USB4_PORT* downstream) {
  return {{downstream, kTwoWayHopId}, {nullptr, -1}, paths.UpName};
}

USB4_PATH_SEARCH BackTo(const TWO_WAY_PATHS& paths, USB4_PORT* downstream, USB4_PORT* from) {
  return {{from, -1}, {downstream, kTwoWayHopId}, paths.DownName};
}

// Looks up path `index` of a tunnel that is being rebuilt from the hardware.
bool FindPath(const TWO_WAY_PATHS& paths, USB4_TUNNEL* tunnel, std::uint32_t index, const USB4_PATH_SEARCH& search,
              USB4_PORT** lastAdapter) {
  tunnel->Paths[index] = KivUsb4PathDiscover(search, lastAdapter);
  if (tunnel->Paths[index] == nullptr) return false;
  paths.InitPath(tunnel->Paths[index]);
  return true;
}

}  // namespace

USB4_TUNNEL* BuildTwoWayTunnel(const TWO_WAY_PATHS& paths, USB4_DOMAIN* owner, const USB4_ENDS& ends) {
  USB4_TUNNEL* tunnel = NewTunnel(paths.Type, owner, ends);
  if (tunnel == nullptr) return nullptr;
  const USB4_PATH_END source = {ends.Source, kTwoWayHopId};
  const USB4_PATH_END destination = {ends.Destination, kTwoWayHopId};
  if (!BuildPath(tunnel, 0, {source, destination, kTwoWayLinkNumber, paths.DownName}) ||
      !BuildPath(tunnel, 1, {destination, source, kTwoWayLinkNumber, paths.UpName})) {
    KivUsb4TunnelFree(tunnel);
    return nullptr;
  }
  paths.InitPath(tunnel->Paths[0]);
  paths.InitPath(tunnel->Paths[1]);
  return tunnel;
}

USB4_TUNNEL* DiscoverTwoWayTunnel(const TWO_WAY_PATHS& paths, USB4_DOMAIN* owner, USB4_PORT* downstream) {
  const USB4_TUNNEL_KIND& kind = KindOf(paths.Type);
  if (!kind.EndIsOn(downstream)) return nullptr;
  USB4_TUNNEL* tunnel = NewTunnel(paths.Type, owner, {downstream, nullptr});
  if (tunnel == nullptr) return nullptr;
  if (!FindPath(paths, tunnel, 1, AwayFrom(paths, downstream), &tunnel->Destination)) {
    const KIV_RESULT result = kind.SwitchEnd(downstream, false);
    TraceWarning("adapter without a path switched off", "adapter", AsAdapter(downstream), "result", AsResult(result));
    KivUsb4TunnelFree(tunnel);
    return nullptr;
  }
  if (!FindPath(paths, tunnel, 0, BackTo(paths, downstream, tunnel->Destination), nullptr) ||
      !PortIs(tunnel->Destination, kind.DestinationType) || !kind.EndIsOn(tunnel->Destination)) {
    TraceWarning("half a tunnel dropped", "adapter", AsAdapter(downstream), "path", paths.UpName);
    KivUsb4TunnelDeactivate(tunnel);
    KivUsb4TunnelFree(tunnel);
    return nullptr;
  }
  return tunnel;
}

void TraceBrokenTwoWayPaths(const TWO_WAY_PATHS& paths, USB4_PORT* downstream) {
  USB4_PORT* last = nullptr;
  const bool up = KivUsb4DiscoverInCompletePath(AwayFrom(paths, downstream), &last);
  const bool down = KivUsb4DiscoverInCompletePath(BackTo(paths, downstream, last), nullptr);
  if (up || down) {
    TraceWarning("paths break off", "adapter", AsAdapter(downstream), paths.UpName, up, paths.DownName, down);
  }
}
