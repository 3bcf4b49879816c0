// Idle and wake settings of the device, and the one power reference that a domain holds on it.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include "include/device_context.h"
#include "include/domain_record.h"

inline constexpr ULONG kIdleTimeoutMs = 15000;

// Assigns S0 idle settings (the device can wake from S0) and then wake settings with defaults; the first failure is
// returned.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    USB4SetIdleAndWakeSettings(DEVICE_EXTENSION* context, ULONG idleTimeoutMs);

// What USB4_DOMAIN.IdleStopped holds.
inline constexpr LONG kReferenceNone = 0;
inline constexpr LONG kReferenceBeingTaken = 1;
inline constexpr LONG kReferenceHeld = 2;
inline constexpr LONG kReferenceUnwanted = 3;  // given back while it was being taken; whoever takes it lets go again
inline constexpr LONG kReferenceRefused = 4;   // counts as held, but the framework has granted nothing to give back

struct POWER_REFERENCE_REQUEST {
  bool WaitForD0;      // never waits while a power-down runs: that would wait for this very thread
  bool OnlyIfGranted;  // a refused reference leaves the domain without one; otherwise it counts as held all the same
};

// Keeps the device in its working state on behalf of the domain. Nothing happens when the domain holds a reference.
_IRQL_requires_max_(PASSIVE_LEVEL) void TakePowerReference(USB4_DOMAIN* domain, POWER_REFERENCE_REQUEST request);
// Whether the domain keeps the device in its working state, or means to.
_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] bool PowerReferenceIsHeld(USB4_DOMAIN* domain);
// Gives the domain's reference back, once for each time it was taken. False when there was none.
_IRQL_requires_max_(DISPATCH_LEVEL) bool GiveBackPowerReference(USB4_DOMAIN* domain);
// The same, and lets the device idle after kIdleTimeoutMs.
_IRQL_requires_max_(PASSIVE_LEVEL) void LetDeviceIdle(USB4_DOMAIN* domain);
