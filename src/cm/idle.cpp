// The domain's power reference, by what there is to carry.
#include "cm/idle.h"

#include "hostif/power.h"
#include "include/device_context.h"
#include "include/locks.h"

namespace {

bool HasPeer(const DEVICE_EXTENSION* context) {
  const SpinLockGuard guard(context->Domain->TopologyLock);
  return context->XDomain != nullptr;
}

}  // namespace

void RestIfIdle(USB4_DOMAIN* domain) {
  const DEVICE_EXTENSION* context = ContextOf(domain);
  if (context == nullptr || HasPeer(context)) return;
  if (domain->TunnelCount.Load() == 0 && PowerReferenceIsHeld(domain)) LetDeviceIdle(domain);
}

void StayAwakeForTunnels(USB4_DOMAIN* domain) {
  if (domain->TunnelCount.Load() == 0) return;
  TakePowerReference(domain, {.WaitForD0 = true, .OnlyIfGranted = true});
}
