// The tunnel list and its counts.
#include "tunnel/tunnel_list.h"

#include "include/locks.h"
#include "include/trace.h"
#include "tunnel/tunnel.h"

namespace {

AtomicLong* CountOf(USB4_DOMAIN* domain, USB4_TUNNEL_TYPE type) {
  switch (type) {
    case USB4_TUNNEL_PCIE:
      return &domain->PcieTunnelCount;
    case USB4_TUNNEL_DP:
      return &domain->DpTunnelCount;
    case USB4_TUNNEL_USB3:
      return &domain->Usb3TunnelCount;
    default:
      return nullptr;  // tunnels to a peer host have no count of their own
  }
}

// A tunnel lives, for whoever watches, while it is on the list.
void TraceTunnel(const char* what, const USB4_TUNNEL* tunnel) {
  const USB4_PORT* source = tunnel->Source;
  const USB4_PORT* destination = tunnel->Destination;
  if (source == nullptr || destination == nullptr) return;
  TraceInfo(what, "type", tunnel->Type, "source", source->Router->Info.Name, "source adapter", source->Number,
            "destination", destination->Router->Info.Name, "destination adapter", destination->Number, "up",
            tunnel->Allocated.Upstream, "down", tunnel->Allocated.Downstream);
}

}  // namespace

void AppendTunnel(USB4_TUNNEL* tunnel) {
  {
    const SpinLockGuard guard(tunnel->Owner->TopologyLock);
    TunnelsOf(tunnel->Owner).Append(*tunnel);
  }
  TraceTunnel("tunnel listed", tunnel);
}

bool UnlinkTunnel(USB4_TUNNEL* tunnel) {
  {
    const SpinLockGuard guard(tunnel->Owner->TopologyLock);
    if (!TunnelsOf(tunnel->Owner).Contains(*tunnel)) return false;
    TunnelList::Remove(*tunnel);
    InitializeListHead(&tunnel->Link);
  }
  TraceTunnel("tunnel unlisted", tunnel);
  return true;
}

void OrphanTunnel(USB4_TUNNEL* tunnel) {
  if (UnlinkTunnel(tunnel)) TunnelList(tunnel->Owner->OrphanTunnelListHead).Append(*tunnel);
}

USB4_TUNNEL* KivUsb4FindTunnel(USB4_DOMAIN* domain, USB4_TUNNEL_TYPE type, const USB4_ENDS& either) {
  for (USB4_TUNNEL& tunnel : TunnelsOf(domain)) {
    if (tunnel.Type != type) continue;
    if (either.Source != nullptr && tunnel.Source == either.Source) return &tunnel;
    if (either.Destination != nullptr && tunnel.Destination == either.Destination) return &tunnel;
  }
  return nullptr;
}

void KivUsb4UpdateTunnelCnt(const USB4_TUNNEL* tunnel, USB4_DOMAIN* domain, bool) {
  // Counts go up and down under the run lock; others only read them.
  if (domain->TunnelCount.Load() == 0) return;
  domain->TunnelCount.Decrement();
  AtomicLong* ofType = CountOf(domain, tunnel->Type);
  if (ofType != nullptr && ofType->Load() != 0) ofType->Decrement();
}
