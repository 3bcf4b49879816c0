// Bringing a domain up router by router, and taking it down.
#include "cm/bus.h"

#include "cm/firmware_handover.h"
#include "cm/peer_link.h"
#include "cm/scan.h"
#include "cm/tunnel_discovery.h"
#include "cm/tunnel_policy.h"
#include "hostif/abort.h"
#include "hostif/power.h"
#include "hostif/upcalls.h"
#include "include/device_context.h"
#include "include/trace.h"
#include "include/wait.h"
#include "topology/router_add.h"
#include "topology/router_alloc.h"
#include "topology/router_configure.h"
#include "topology/router_queries.h"
#include "topology/router_remove.h"
#include "topology/sleep.h"
#include "topology/tmu.h"
#include "tunnel/dp_resources.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_list.h"

namespace {

void StoreHostRouter(USB4_DOMAIN* domain, USB4_SWITCH* router) {
  const SpinLockGuard guard(domain->TopologyLock);
  domain->HostRouter = router;
}

// A host router that is found but cannot be used stays stored: the stop that follows removes it.
KIV_RESULT StartHostRouter(USB4_DOMAIN* domain) {
  KivAssert(domain->HostRouter == nullptr);  // a start without a stop before it would lose a whole tree
  const ROUTER_OR_ERROR found = KivUsb4SwitchAlloc(domain, nullptr, 0);
  if (found.Error != kKivOk) return kKivFailed;
  USB4_SWITCH* router = found.Switch;
  StoreHostRouter(domain, router);
  domain->HostRouterIsUsb4 = KivUsb4SwitchIsUsb4(router);
  if (KivUsb4SwitchConfigure(router) != kKivOk) return kKivFailed;
  if (KivUsb4SwitchAdd(router) != kKivOk) return kKivFailed;
  const KIV_RESULT result = KivUsb4SwitchTmuEnable(router);
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(KivUsb4BusStart), "host router without time synchronisation", "result", AsResult(result));
  }
  return kKivOk;
}

// What is programmed already first, new tunnels after it, USB3 before PCIe, displays last. A tree that is not completed
// is traced where it fails; the domain starts with what there is.
void SetUpDomainTunnels(USB4_DOMAIN* domain, const DEVICE_EXTENSION* context) {
  const PathGuard paths(*domain);
  USB4_SWITCH* hostRouter = domain->HostRouter;
  if (context->PreOsCmWorkAroundEnable != 0) KivUsb4TunnelDiscoverandCleanUpUnCompleteDp(domain);
  KivUsb4DiscoverTunnels(hostRouter);
  KIV_RESULT usb3 = kKivOk;
  KIV_RESULT pcie = kKivOk;
  if (domain->Usb3TunnelSupported != 0) usb3 = KivUsb4CreateUsb3Tunnels(hostRouter);
  if (domain->PcieTunnelSupported != 0) pcie = KivUsb4CreatePcieTunnels(hostRouter);
  if (usb3 != kKivOk || pcie != kKivOk) {
    TraceWarningBy(NAME_OF(KivUsb4BusStart), "tunnel creation failed", "USB3", AsResult(usb3), "PCIe", AsResult(pcie));
  }
  KivUsb4SwitchAddDpInResources(hostRouter);
}

// Tunnels through a peer host's link, and adopted displays, leave the counts askew; a stopped domain has none.
void ForgetCounts(USB4_DOMAIN* domain) {
  domain->TunnelCount.Store(0);
  domain->Usb3TunnelCount.Store(0);
  domain->PcieTunnelCount.Store(0);
  domain->DpTunnelCount.Store(0);
}

void FreeTunnels(USB4_DOMAIN* domain, bool keepHardware) {
  const PathGuard paths(*domain);
  while (USB4_TUNNEL* tunnel = TunnelsOf(domain).First()) {
    IgnoreResult(UnlinkTunnel(tunnel));  // it stands at the head
    KivUsb4UpdateTunnelCnt(tunnel, domain);
    KivUsb4DeactivateAndFreeTunnel(tunnel, {.Unlink = false, .KeepHardware = keepHardware});
  }
}

}  // namespace

KIV_RESULT KivUsb4BusStart(USB4_DOMAIN* domain, bool) {
  DEVICE_EXTENSION* context = ContextOf(domain);
  if (context == nullptr) return kKivFailed;
  const RunGuard guard(*domain);
  TraceStep("start domain");
  if (HostNeedsHandover(domain)) KivOtherFirmwareStart(domain);
  const KIV_RESULT result = StartHostRouter(domain);
  if (result != kKivOk) {
    TraceError("domain not started", "result", AsResult(result));
    return result;
  }
  KivUsb4ScanSwitch(domain->HostRouter);
  SetUpDomainTunnels(domain, context);
  if (domain->TunnelCount.Load() != 0) TakePowerReference(domain, {.WaitForD0 = false, .OnlyIfGranted = false});
  domain->Started.Set(true);
  context->BusStartPending.Set(false);
  SetEvent(domain->BusEvent);
  TraceInfo("domain started");
  return kKivOk;
}

void KivUsb4BusStop(USB4_DOMAIN* domain, bool keepHardware) {
  const RunGuard guard(*domain);
  TraceStep("stop domain", "keep hardware", keepHardware);
  FreeTunnels(domain, keepHardware);
  EmptyDpResources(domain);
  if (domain->HostRouter != nullptr) KivUsb4SwitchRemove(domain->HostRouter);
  domain->Started.Set(false);
  ForgetCounts(domain);
}

void KivUsb4BusSuspend(USB4_DOMAIN* domain) {
  const RunGuard guard(*domain);
  TraceStep("suspend domain");
  KivUsb4DisconnectAndReleaseDp(domain);
  KivUsb4NetStop(domain);
  if (domain->HostRouter != nullptr) KivUsb4SwitchSuspend(domain->HostRouter, domain->RuntimeIdle.IsSet());
  domain->Started.Set(false);
}
