// Bringing a domain up router by router, and taking it down.
#include "cm/bus.h"

#include "cm/firmware_handover.h"
#include "cm/scan.h"
#include "hostif/run_abort.h"
#include "hostif/upcalls.h"
#include "include/device_context.h"
#include "include/trace.h"
#include "include/wait.h"
#include "topology/router_lifecycle.h"
#include "topology/router_queries.h"
#include "topology/sleep.h"
#include "topology/tmu.h"

namespace {

DEVICE_EXTENSION* ContextOf(const USB4_DOMAIN* domain) {
  return domain->HostInterface == nullptr ? nullptr : DeviceContextOf(domain->HostInterface->Device);
}

// A host router that is found but cannot be used stays stored: the stop that follows removes it.
KIV_RESULT StartHostRouter(USB4_DOMAIN* domain) {
  KivAssert(domain->HostRouter == nullptr);  // a start without a stop before it would lose a whole tree
  const ROUTER_OR_ERROR found = KivUsb4SwitchAlloc(domain, nullptr, 0);
  if (found.Error != kKivOk) return kKivFailed;
  USB4_SWITCH* router = found.Switch;
  domain->HostRouter = router;
  domain->HostRouterIsUsb4 = KivUsb4SwitchIsUsb4(router);
  if (KivUsb4SwitchConfigure(router) != kKivOk) return kKivFailed;
  if (KivUsb4SwitchAdd(router) != kKivOk) return kKivFailed;
  const KIV_RESULT result = KivUsb4SwitchTmuEnable(router);
  if (result != kKivOk) TraceError("host router without time synchronisation", "result", result);
  return kKivOk;
}

}  // namespace

KIV_RESULT KivUsb4BusStart(USB4_DOMAIN* domain, bool) {
  DEVICE_EXTENSION* context = ContextOf(domain);
  if (context == nullptr) return kKivFailed;
  const RunGuard guard(*domain);
  if (HostNeedsHandover(domain)) KivOtherFirmwareStart(domain);
  const KIV_RESULT result = StartHostRouter(domain);
  if (result != kKivOk) {
    TraceError("domain not started", "result", result);
    return result;
  }
  KivUsb4ScanSwitch(domain->HostRouter);
  domain->Started.Set(true);
  context->BusStartPending.Set(false);
  SetEvent(domain->BusEvent);
  TraceInfo("domain started");
  return kKivOk;
}

void KivUsb4BusStop(USB4_DOMAIN* domain, bool) {
  const RunGuard guard(*domain);
  if (domain->HostRouter != nullptr) KivUsb4SwitchRemove(domain->HostRouter);
  domain->HostRouter = nullptr;
  domain->Started.Set(false);
}

void KivUsb4BusSuspend(USB4_DOMAIN* domain) {
  const RunGuard guard(*domain);
  if (domain->HostRouter != nullptr) KivUsb4SwitchSuspend(domain->HostRouter, domain->RuntimeIdle.IsSet());
  domain->Started.Set(false);
}
