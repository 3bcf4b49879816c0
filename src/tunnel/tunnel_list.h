// The domain's tunnels: the list, its counts, and the end of a tunnel. PASSIVE_LEVEL, under the domain's path lock; the
// list changes under the topology lock besides, so that readers without the path lock see it whole.
#pragma once
#include <cstdint>

#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/tunnel_record.h"

[[nodiscard]] inline TunnelList TunnelsOf(USB4_DOMAIN* domain) {
  return TunnelList(domain->TunnelListHead);
}

// At the tail of its owner's list. Counting it is the caller's business: not every tunnel is counted.
void AppendTunnel(USB4_TUNNEL* tunnel);
// Takes it off its owner's list; false when it does not stand there.
[[nodiscard]] bool UnlinkTunnel(USB4_TUNNEL* tunnel);
// Moves a listed tunnel to the orphans: it stays allocated and active, but no walk over the list meets it. Its record
// is freed before a router that it runs through goes.
void OrphanTunnel(USB4_TUNNEL* tunnel);

// The first listed tunnel of this type that starts at `either.Source` or ends at `either.Destination`; a null end is
// not compared.
[[nodiscard]] USB4_TUNNEL* KivUsb4FindTunnel(USB4_DOMAIN* domain, USB4_TUNNEL_TYPE type, const USB4_ENDS& either);

// One tunnel more: the total, and its kind's count, in which not every kind counts adopted ones.
void CountTunnel(const USB4_TUNNEL* tunnel, bool adopted);
// One tunnel less: the total, and its kind's count unless that is 0. Nothing is counted down while the total is 0. The
// flag is not looked at.
_Requires_lock_held_(domain->PathLock) void KivUsb4UpdateTunnelCnt(const USB4_TUNNEL* tunnel, USB4_DOMAIN* domain,
                                                                   bool unused = false);

struct USB4_TEARDOWN {
  bool Unlink;        // take it off the list, if it stands there, and count it down
  bool KeepHardware;  // leave it programmed: only the record goes
};

// Switches the tunnel off, gives back what it holds, and frees it. A DisplayPort or USB3 tunnel leaves bandwidth
// behind, which USB3 takes.
void KivUsb4DeactivateAndFreeTunnel(USB4_TUNNEL* tunnel, const USB4_TEARDOWN& how);
