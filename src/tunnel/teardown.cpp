// The end of a tunnel.
#include "include/trace.h"
#include "tunnel/dp_reservation.h"
#include "tunnel/link_bandwidth.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_list.h"

namespace {

// What a tunnel held besides its paths.
void GiveBack(const USB4_TUNNEL* tunnel) {
  if (tunnel->Type != USB4_TUNNEL_DP && tunnel->Type != USB4_TUNNEL_USB3) return;
  if (tunnel->Type == USB4_TUNNEL_DP) {
    const KIV_RESULT result = KivUsb4SwitchDeallocDpResource(tunnel->Source->Router, tunnel->Source);
    if (result != kKivOk) TraceError("DP IN not given back", "adapter", tunnel->Source->Number, "result", result);
  }
  // Failures are traced where they happen; the tunnel goes all the same.
  IgnoreResult(KivUsb4ReclaimUsb3Bandwidth(tunnel->Owner, {tunnel->Source, tunnel->Destination}));
}

}  // namespace

void KivUsb4DeactivateAndFreeTunnel(USB4_TUNNEL* tunnel, const USB4_TEARDOWN& how) {
  if (!how.KeepHardware) KivUsb4TunnelDeactivate(tunnel);
  if (how.Unlink && UnlinkTunnel(tunnel)) KivUsb4UpdateTunnelCnt(tunnel, tunnel->Owner);
  if (!how.KeepHardware) GiveBack(tunnel);
  KivUsb4TunnelFree(tunnel);
}
