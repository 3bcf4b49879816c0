// DisplayPort tunnels that firmware has left in the routers.
#include "tunnel/dp_discover.h"

#include "include/trace.h"
#include "tunnel/dp_adapter.h"
#include "tunnel/dp_resources.h"
#include "tunnel/dp_tunnel.h"
#include "tunnel/path_discover.h"
#include "tunnel/path_parameters.h"
#include "tunnel/protocol_adapter.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_kind.h"
#include "tunnel/tunnel_list.h"

namespace {

bool FindVideo(USB4_TUNNEL* tunnel) {
  const USB4_PATH_SEARCH search = {{tunnel->Source, kVideoHopId}, {nullptr, -1}, kVideoName};
  USB4_PATH* path = KivUsb4PathDiscover(search, &tunnel->Destination);
  tunnel->Paths[kVideoPath] = path;
  if (path != nullptr) InitFoundVideoPath(path);
  return path != nullptr;
}

bool FindAux(USB4_TUNNEL* tunnel, std::uint32_t index, const USB4_PATH_SEARCH& search, USB4_PORT** lastAdapter) {
  USB4_PATH* path = KivUsb4PathDiscover(search, lastAdapter);
  tunnel->Paths[index] = path;
  if (path != nullptr) InitAuxPath(path);
  return path != nullptr;
}

// Where the transmit path ends is not examined: the display answers on the receive path, and that has to come home.
bool FindRestOfIt(USB4_TUNNEL* tunnel) {
  USB4_PORT* dpIn = tunnel->Source;
  const USB4_PATH_SEARCH transmit = {{dpIn, kAuxHopId}, {nullptr, -1}, kAuxTransmitName};
  if (!FindAux(tunnel, kAuxTransmitPath, transmit, nullptr)) return false;
  USB4_PORT* home = nullptr;
  const USB4_PATH_SEARCH receive = {{tunnel->Destination, -1}, {dpIn, kAuxHopId}, kAuxReceiveName};
  if (!FindAux(tunnel, kAuxReceivePath, receive, &home)) return false;
  const USB4_PORT* dpOut = tunnel->Destination;
  // Hot-plug detect that cannot be read counts as active: a picture is not switched off for a lost answer.
  return PortIs(dpOut, USB4_ADAPTER_DP_OUT) && KivUsb4DpPortIsEnabled(dpOut) && KivUsb4DpPortHpdIsActive(dpOut) != 0 &&
         home == dpIn;
}

// The tunnel as it is programmed, with active paths, its DP OUT a listed resource; null when it is not whole, and then
// what there is of it is switched off.
USB4_TUNNEL* Rebuild(USB4_DOMAIN* domain, USB4_PORT* dpIn) {
  USB4_TUNNEL* tunnel = NewTunnel(USB4_TUNNEL_DP, domain, {dpIn, nullptr});
  if (tunnel == nullptr) return nullptr;
  if (!FindVideo(tunnel)) {
    const KIV_RESULT result = KivUsb4DpPortEnable(dpIn, false);
    TraceWarningBy(NAME_OF(KivUsb4TunnelDiscoverDp), "DP IN without video switched off", "adapter", AsAdapter(dpIn),
                   "result", AsResult(result));
    KivUsb4TunnelFree(tunnel);
    return nullptr;
  }
  if (!FindRestOfIt(tunnel)) {
    TraceWarningBy(NAME_OF(KivUsb4TunnelDiscoverDp), "half a tunnel dropped", "adapter", AsAdapter(dpIn));
    KivUsb4TunnelDeactivate(tunnel);
    KivUsb4TunnelFree(tunnel);
    return nullptr;
  }
  KivUsb4DpOutResourceForDiscoverDp(domain, tunnel->Destination);
  return tunnel;
}

// Whether one of the three paths of a DP IN breaks off at an entry that is not valid.
bool PathsBreakOff(USB4_PORT* dpIn) {
  USB4_PORT* last = nullptr;
  if (KivUsb4DiscoverInCompletePath({{dpIn, kVideoHopId}, {nullptr, -1}, kVideoName}, &last)) return true;
  if (KivUsb4DiscoverInCompletePath({{dpIn, kAuxHopId}, {nullptr, -1}, kAuxTransmitName}, nullptr)) return true;
  return KivUsb4DiscoverInCompletePath({{last, -1}, {dpIn, kAuxHopId}, kAuxReceiveName}, nullptr);
}

}  // namespace

USB4_TUNNEL* KivUsb4TunnelDiscoverDp(USB4_DOMAIN* domain, USB4_PORT* dpIn) {
  return KivUsb4DpPortIsEnabled(dpIn) ? Rebuild(domain, dpIn) : nullptr;
}

KIV_RESULT KivUsb4TunnelWorkAroundDiscoverDp(USB4_DOMAIN* domain, USB4_PORT* dpIn) {
  USB4_TUNNEL* tunnel = Rebuild(domain, dpIn);
  if (tunnel == nullptr) return kKivOk;
  // Only a tunnel that has been up can be taken down in a way that both adapters understand.
  const KIV_RESULT result = KivUsb4TunnelRestart(tunnel);
  if (result != kKivOk) TraceError("tunnel not started", "adapter", AsAdapter(dpIn), "result", AsResult(result));
  KivUsb4DeactivateAndFreeTunnel(tunnel, {.Unlink = true, .KeepHardware = false});
  return kKivOk;
}

bool CleanUpDpIn(USB4_DOMAIN* domain, USB4_PORT* dpIn) {
  if (KivUsb4DpPortIsEnabled(dpIn) || PathsBreakOff(dpIn)) return false;
  IgnoreResult(KivUsb4TunnelWorkAroundDiscoverDp(domain, dpIn));  // always 0
  return true;
}
