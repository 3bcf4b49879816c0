// The list of DisplayPort resources, and what its changes set off.
#include "tunnel/dp_resources.h"

#include "hostif/abort.h"
#include "hostif/domain.h"
#include "include/trace.h"
#include "topology/router_queries.h"
#include "tunnel/dp_policy.h"
#include "tunnel/dp_reservation.h"
#include "tunnel/protocol_adapter.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_list.h"
#include "tunnel/upcalls.h"

namespace {

void AppendOnce(USB4_DOMAIN* domain, USB4_PORT* adapter) {
  if (!DpResourcesOf(domain).Contains(*adapter)) DpResourcesOf(domain).Append(*adapter);
}

void TearDownTunnelOf(USB4_DOMAIN* domain, USB4_PORT* adapter) {
  const PathGuard paths(*domain);
  const bool isSource = adapter->Type() == USB4_ADAPTER_DP_IN;
  const USB4_ENDS ends = isSource ? USB4_ENDS{adapter, nullptr} : USB4_ENDS{nullptr, adapter};
  USB4_TUNNEL* tunnel = KivUsb4FindTunnel(domain, USB4_TUNNEL_DP, ends);
  if (tunnel == nullptr) return;
  KivUsb4DeactivateAndFreeTunnel(tunnel, {.Unlink = true, .KeepHardware = false});
}

}  // namespace

void KivUsb4SwitchAddDpInResources(const USB4_SWITCH* router) {
  _Analysis_assume_lock_held_(router->Domain->PathLock);
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    if (adapter.Type() != USB4_ADAPTER_DP_IN || !KivUsb4SwitchQueryDpResource(router, &adapter)) continue;
    if (IsHostRouter(router)) AppendOnce(router->Domain, &adapter);
  }
}

void KivUsb4DpResourceAvailable(USB4_DOMAIN* domain, USB4_PORT* adapter) {
  if (KivUsb4PortIsTunnelEnabled(adapter) || DpResourcesOf(domain).Contains(*adapter)) return;
  const bool onHost = IsHostRouter(adapter->Router);
  const bool isDpIn = adapter->Type() == USB4_ADAPTER_DP_IN;
  if (onHost && isDpIn) {
    const PathGuard paths(*domain);
    TraceInfo("DP IN plugged", "adapter", AsAdapter(adapter), "free",
              KivUsb4SwitchQueryDpResource(adapter->Router, adapter));
  }
  if (onHost || !isDpIn) DpResourcesOf(domain).Append(*adapter);
  KivUsb4TunnelDp(domain);
}

void KivUsb4DpResourceUnavailable(USB4_DOMAIN* domain, USB4_PORT* adapter) {
  TearDownTunnelOf(domain, adapter);
  if (KivUsb4DiagnosticsEnabled(domain)) KivUsb4DpCreateTearDown(domain->HostInterface, adapter, false);
  RemoveDpResource(domain, adapter);
  KivUsb4TunnelDp(domain);
}

void KivUsb4DpOutResourceForDiscoverDp(USB4_DOMAIN* domain, USB4_PORT* dpOut) {
  AppendOnce(domain, dpOut);
}

void RemoveDpResource(USB4_DOMAIN* domain, USB4_PORT* adapter) {
  if (!DpResourcesOf(domain).Contains(*adapter)) return;
  DpResourceList::Remove(*adapter);
  InitializeListHead(&adapter->DpResourceLink);
}

void EmptyDpResources(USB4_DOMAIN* domain) {
  while (USB4_PORT* adapter = DpResourcesOf(domain).TakeFirst()) InitializeListHead(&adapter->DpResourceLink);
}

void KivUsb4DisconnectAndReleaseDp(USB4_DOMAIN* domain) {
  const PathGuard paths(*domain);
  domain->DisplayRestore.Set(domain->DpTunnelCount.Load() != 0 && domain->RuntimeIdle.IsSet());
  for (USB4_TUNNEL& tunnel : TunnelsOf(domain)) {
    if (!KivUsb4TunnelIsDp(&tunnel)) continue;
    KivUsb4DeactivateAndFreeTunnel(&tunnel, {.Unlink = true, .KeepHardware = false});
  }
  EmptyDpResources(domain);
}
