// The end of a tunnel.
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_kind.h"
#include "tunnel/tunnel_list.h"

void KivUsb4DeactivateAndFreeTunnel(USB4_TUNNEL* tunnel, const USB4_TEARDOWN& how) {
  if (!how.KeepHardware) KivUsb4TunnelDeactivate(tunnel);
  if (how.Unlink && UnlinkTunnel(tunnel)) KivUsb4UpdateTunnelCnt(tunnel, tunnel->Owner);
  const USB4_TUNNEL_KIND& kind = KindOf(tunnel->Type);
  if (!how.KeepHardware && kind.GiveBack != nullptr) kind.GiveBack(tunnel);
  KivUsb4TunnelFree(tunnel);
}
