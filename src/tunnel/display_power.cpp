// Notifications to the graphics driver.
#include "tunnel/display_power.h"

#include "hostif/abort.h"
#include "include/locks.h"
#include "include/trace.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_list.h"
#include "tunnel/upcalls.h"

namespace {

constexpr std::uint32_t kBatch = 16;

// The adapter numbers of up to kBatch DP INs, passing over the first `skip` DisplayPort tunnels; how many there are.
std::uint32_t CopyDpInNumbers(USB4_DOMAIN* domain, std::uint32_t skip, std::uint8_t (&numbers)[kBatch]) {
  std::uint32_t count = 0;
  const SpinLockGuard guard(domain->TopologyLock);
  for (const USB4_TUNNEL& tunnel : TunnelsOf(domain)) {
    if (!KivUsb4TunnelIsDp(&tunnel)) continue;
    if (skip != 0) {
      --skip;
      continue;
    }
    if (count == kBatch) break;
    numbers[count++] = tunnel.Source->Number;
  }
  return count;
}

}  // namespace

void KivUsb4NotifyGfxDpTunnels(DEVICE_EXTENSION* context, USB4_DOMAIN* domain, std::uint32_t event) {
  if (event != kDisplayEnteredD0 && event != kDisplayEntersD3) return;
  if (context == nullptr || domain == nullptr) return;
  _Analysis_assume_lock_not_held_(domain->PathLock);
  std::uint8_t numbers[kBatch];
  std::uint32_t count = 0;
  for (std::uint32_t done = 0; (count = CopyDpInNumbers(domain, done, numbers)) != 0; done += count) {
    for (std::uint32_t i = 0; i < count; ++i) {
      if (IsAborted(domain)) return;
      const NTSTATUS status = KivUsb4SendIoctlToGFXDriver(context, numbers[i], event);
      if (!NT_SUCCESS(status)) {
        TraceWarning("graphics driver not told", "adapter", numbers[i], "status", AsStatus(status));
      }
    }
  }
}
