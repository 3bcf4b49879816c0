// The tunnel list and its counts, the end of a tunnel, and the records of orphans.
#include "tunnel/tunnel_list.h"

#include "hostif/abort.h"
#include "include/locks.h"
#include "include/trace.h"
#include "topology/router_queries.h"
#include "topology/upcalls.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_kind.h"

namespace {

// Null for a kind without a count of its own.
AtomicLong* CountOf(USB4_DOMAIN* domain, const USB4_TUNNEL_KIND& kind) {
  return kind.Count == nullptr ? nullptr : &(domain->*kind.Count);
}

// A tunnel lives, for whoever watches, while it is on the list.
void TraceTunnel(const char* operation, const char* what, const USB4_TUNNEL* tunnel) {
  if (tunnel->Source == nullptr || tunnel->Destination == nullptr) return;
  TraceInfoBy(operation, what, "type", tunnel->Type, "source", AsAdapter(tunnel->Source), "destination",
              AsAdapter(tunnel->Destination), "up", tunnel->Allocated.Upstream, "down", tunnel->Allocated.Downstream);
}

bool RunsThrough(const USB4_TUNNEL& tunnel, const USB4_SWITCH* router) {
  for (const USB4_PORT& adapter : AdaptersOf(router)) {
    if (KivUsb4TunnelUsesPort(&tunnel, &adapter)) return true;
  }
  return false;
}

}  // namespace

void AppendTunnel(USB4_TUNNEL* tunnel) {
  {
    const SpinLockGuard guard(tunnel->Owner->TopologyLock);
    TunnelsOf(tunnel->Owner).Append(*tunnel);
  }
  TraceTunnel(__func__, "tunnel listed", tunnel);
}

bool UnlinkTunnel(USB4_TUNNEL* tunnel) {
  {
    const SpinLockGuard guard(tunnel->Owner->TopologyLock);
    if (!TunnelsOf(tunnel->Owner).Contains(*tunnel)) return false;
    TunnelList::Remove(*tunnel);
    InitializeListHead(&tunnel->Link);
  }
  TraceTunnel(__func__, "tunnel unlisted", tunnel);
  return true;
}

void OrphanTunnel(USB4_TUNNEL* tunnel) {
  if (UnlinkTunnel(tunnel)) OrphanTunnelList(tunnel->Owner->OrphanTunnelListHead).Append(*tunnel);
}

USB4_TUNNEL* KivUsb4FindTunnel(USB4_DOMAIN* domain, USB4_TUNNEL_TYPE type, const USB4_ENDS& either) {
  for (USB4_TUNNEL& tunnel : TunnelsOf(domain)) {
    if (tunnel.Type != type) continue;
    if (either.Source != nullptr && tunnel.Source == either.Source) return &tunnel;
    if (either.Destination != nullptr && tunnel.Destination == either.Destination) return &tunnel;
  }
  return nullptr;
}

void CountTunnel(const USB4_TUNNEL* tunnel, bool adopted) {
  const USB4_TUNNEL_KIND& kind = KindOf(tunnel->Type);
  tunnel->Owner->TunnelCount.Increment();
  AtomicLong* ofKind = CountOf(tunnel->Owner, kind);
  if (ofKind != nullptr && (!adopted || kind.CountsAdopted)) ofKind->Increment();
}

void KivUsb4UpdateTunnelCnt(const USB4_TUNNEL* tunnel, USB4_DOMAIN* domain, bool) {
  _Analysis_assume_lock_held_(domain->PathLock);
  // Counts go up and down under this lock; others only read them.
  if (domain->TunnelCount.Load() == 0) return;
  domain->TunnelCount.Decrement();
  AtomicLong* ofKind = CountOf(domain, KindOf(tunnel->Type));
  if (ofKind != nullptr && ofKind->Load() != 0) ofKind->Decrement();
}

void KivUsb4DeactivateAndFreeTunnel(USB4_TUNNEL* tunnel, const USB4_TEARDOWN& how) {
  if (!how.KeepHardware) KivUsb4TunnelDeactivate(tunnel);
  if (how.Unlink && UnlinkTunnel(tunnel)) KivUsb4UpdateTunnelCnt(tunnel, tunnel->Owner);
  const USB4_TUNNEL_KIND& kind = KindOf(tunnel->Type);
  if (!how.KeepHardware && kind.GiveBack != nullptr) kind.GiveBack(tunnel);
  KivUsb4TunnelFree(tunnel);
}

// Only the records go, while the adapters whose hop IDs they hold are still there. The hardware is left alone: it has
// been out of reach of whoever let the tunnel go since then.
void KivUsb4FreeOrphanTunnels(const USB4_SWITCH* router) {
  const PathGuard paths(*router->Domain);
  for (USB4_TUNNEL& tunnel : OrphanTunnelList(router->Domain->OrphanTunnelListHead)) {
    if (!RunsThrough(tunnel, router)) continue;
    OrphanTunnelList::Remove(tunnel);
    KivUsb4TunnelFree(&tunnel);
  }
}
