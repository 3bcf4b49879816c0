// The DisplayPort policy: one pair, reserved, given room, and connected; or everything as it was.
#include "tunnel/dp_policy.h"

#include "hostif/abort.h"
#include "hostif/power.h"
#include "include/device_context.h"
#include "include/trace.h"
#include "topology/router_queries.h"
#include "tunnel/display_power.h"
#include "tunnel/dp_reservation.h"
#include "tunnel/dp_resources.h"
#include "tunnel/dp_tunnel.h"
#include "tunnel/link_bandwidth.h"
#include "tunnel/protocol_adapter.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_list.h"

namespace {

// The host router's adapter towards a device router; null for the host router itself.
const USB4_PORT* BranchOf(const USB4_DOMAIN* domain, const USB4_SWITCH* router) {
  if (IsHostRouter(router)) return nullptr;
  return KivUsb4SwitchPortForRoute(domain->HostRouter, KivUsb4SwitchRoute(router));
}

bool IsFree(const USB4_PORT& adapter, USB4_ADAPTER_TYPE type) {
  return adapter.Type() == type && !KivUsb4PortIsTunnelEnabled(&adapter);
}

// The pair to connect; two nulls when there is none.
USB4_ENDS ChoosePair(USB4_DOMAIN* domain) {
  for (USB4_PORT& dpIn : DpResourcesOf(domain)) {
    if (!IsFree(dpIn, USB4_ADAPTER_DP_IN)) continue;
    USB4_PORT* dpOut = KivUsb4FindDpOut(domain, &dpIn);
    if (dpOut != nullptr) return {&dpIn, dpOut};
  }
  return {nullptr, nullptr};
}

void GiveBackDpIn(const USB4_PORT* dpIn) {
  const KIV_RESULT result = KivUsb4SwitchDeallocDpResource(dpIn->Router, dpIn);
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(KivUsb4TunnelDp), "DP IN not given back", "adapter", AsAdapter(dpIn), "result",
                 AsResult(result));
  }
}

// A reservation left over from an earlier life is given back first: a router grants what is free, not what is ours.
KIV_RESULT ReserveDpIn(const USB4_PORT* dpIn) {
  GiveBackDpIn(dpIn);
  return KivUsb4SwitchAllocDpResource(dpIn->Router, dpIn);
}

// The second controller of a machine marks the DP IN as its own.
void MarkController(const USB4_DOMAIN* domain, const USB4_PORT* dpIn) {
  const std::uint32_t controller = ControllerIndexOf(domain->HostInterface);
  if (controller != kSecondController) return;
  DpAdpCs2::Value cs2;
  KIV_RESULT result = ReadProtocolRegister<DpAdpCs2>(dpIn, cs2);
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(KivUsb4TunnelDp), "DP IN not read", "adapter", AsAdapter(dpIn), "result", AsResult(result));
  }
  // Also after a failed read: the mark counts more than what else stands in the register.
  cs2 = DpAdpCs2::Value(cs2.Word() | DpAdpCs2::Configuration::Of(controller));
  result = WriteProtocolRegister<DpAdpCs2>(dpIn, cs2);
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(KivUsb4TunnelDp), "DP IN not marked", "adapter", AsAdapter(dpIn), "result", AsResult(result));
  }
}

// An active tunnel within the bandwidth that is left, or null.
USB4_TUNNEL* Connect(USB4_DOMAIN* domain, const USB4_ENDS& pair) {
  USB4_BANDWIDTH available = {};
  if (KivUsb4AvailableBandwidth(domain, pair, available) != kKivOk) return nullptr;
  USB4_TUNNEL* tunnel = KivUsb4TunnelAllocDp(domain, pair, available);
  if (tunnel == nullptr) return nullptr;
  MarkController(domain, pair.Source);
  const KIV_RESULT result = KivUsb4TunnelActivate(tunnel);
  if (result == kKivOk) return tunnel;
  KivUsb4TunnelFree(tunnel);
  return nullptr;
}

// The pair's tunnel, listed and counted; null when the DP IN is not granted or the pair cannot be connected.
USB4_TUNNEL* ReserveAndConnect(USB4_DOMAIN* domain, const USB4_ENDS& pair) {
  const PathGuard paths(*domain);
  KIV_RESULT result = ReserveDpIn(pair.Source);
  if (result != kKivOk) {
    TraceWarningBy(NAME_OF(KivUsb4TunnelDp), "DP IN not granted", "adapter", AsAdapter(pair.Source), "result",
                   AsResult(result));
    return nullptr;
  }
  result = KivUsb4ReleaseUsb3Bandwidth(domain, pair);
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(KivUsb4TunnelDp), "USB3 gives nothing back", "result", AsResult(result));
    GiveBackDpIn(pair.Source);
    return nullptr;
  }
  USB4_TUNNEL* tunnel = Connect(domain, pair);
  if (tunnel == nullptr) {
    TraceErrorBy(NAME_OF(KivUsb4TunnelDp), "display not connected", "in", AsAdapter(pair.Source), "out",
                 AsAdapter(pair.Destination));
    IgnoreResult(KivUsb4ReclaimUsb3Bandwidth(domain, pair));  // traced where it fails
    GiveBackDpIn(pair.Source);
    return nullptr;
  }
  CountTunnel(tunnel, false);
  tunnel->MadeByPolicy = 1;
  AppendTunnel(tunnel);
  return tunnel;
}

// Between the two holds of the path lock the tunnel may leave the list; its record goes only under the run lock.
void ShareBandwidth(USB4_DOMAIN* domain, USB4_TUNNEL* tunnel) {
  const PathGuard paths(*domain);
  const KIV_RESULT result = KivUsb4PollDPRxCapDone(tunnel);
  if (result != kKivOk) {
    TraceWarningBy(NAME_OF(KivUsb4TunnelDp), "display does not say what it can", "result", AsResult(result));
  }
  // Failures are traced where they happen; the display works without USB3 having more.
  IgnoreResult(KivUsb4ReclaimUsb3Bandwidth(domain, {tunnel->Source, tunnel->Destination}));
}

}  // namespace

USB4_PORT* KivUsb4FindDpOut(USB4_DOMAIN* domain, const USB4_PORT* dpIn) {
  const USB4_PORT* branch = BranchOf(domain, dpIn->Router);
  for (USB4_PORT& dpOut : DpResourcesOf(domain)) {
    if (!IsFree(dpOut, USB4_ADAPTER_DP_OUT)) continue;
    if (branch == nullptr || IsHostRouter(dpOut.Router)) return &dpOut;
    if (BranchOf(domain, dpOut.Router) == branch) return &dpOut;
  }
  return nullptr;
}

void KivUsb4TunnelDp(USB4_DOMAIN* domain) {
  const USB4_ENDS pair = ChoosePair(domain);
  if (pair.Source == nullptr) return;
  TraceStep("connect display", "in", AsAdapter(pair.Source), "out", AsAdapter(pair.Destination));
  USB4_TUNNEL* tunnel = ReserveAndConnect(domain, pair);
  if (tunnel == nullptr) return;
  // Once a suspend has taken displays away, every tunnel that comes up until the next one tells the graphics driver,
  // for all displays: it may be the last piece that a desktop spanning several of them was waiting for.
  if (domain->DisplayRestore.IsSet()) KivUsb4NotifyGfxDpTunnels(ContextOf(domain), domain, kDisplayEnteredD0);
  ShareBandwidth(domain, tunnel);
  TakePowerReference(domain, {.WaitForD0 = true, .OnlyIfGranted = false});
}
