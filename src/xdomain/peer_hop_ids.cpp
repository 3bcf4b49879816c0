// Reservation in a peer's two hop tables.
#include "xdomain/peer_hop_ids.h"

#include "include/domain_record.h"
#include "include/locks.h"
#include "include/status.h"

namespace {

constexpr std::int32_t kFirstHopId = 8;
constexpr std::int32_t kNoneFree = -1;

using HopTable = Guarded<USB4_HOP_MAP, By<LockPlace::Topology>>;

std::int32_t Reserve(USB4_DOMAIN* domain, HopTable& table, std::uint32_t limit, std::int32_t wanted) {
  const std::int32_t first = wanted < 0 ? kFirstHopId : wanted;
  // The limit may be the peer's, and anything.
  if (first < kFirstHopId || static_cast<std::uint32_t>(first) > limit) return kKivInvalid;
  const SpinLockGuard guard(domain->TopologyLock);
  for (auto hopId = static_cast<std::uint32_t>(first); hopId <= limit && hopId < kHopIdCount; ++hopId) {
    if (table.Read().InUse[hopId] != 0) continue;
    table.Change().InUse[hopId] = 1;
    return static_cast<std::int32_t>(hopId);
  }
  return kNoneFree;
}

void ReleaseFrom(USB4_DOMAIN* domain, HopTable& table, std::uint32_t limit, std::int32_t hopId) {
  const SpinLockGuard guard(domain->TopologyLock);
  for (auto id = static_cast<std::uint32_t>(hopId < 0 ? 0 : hopId); id <= limit && id < kHopIdCount; ++id) {
    table.Change().InUse[id] = 0;
  }
}

}  // namespace

std::int32_t KivUsb4XdomainAllocInHopid(USB4_XDOMAIN* xdomain, std::int32_t wanted) {
  return Reserve(xdomain->Domain, xdomain->InputHops, xdomain->InputHopLimit, wanted);
}

std::int32_t KivUsb4XdomainAllocOutHopid(USB4_XDOMAIN* xdomain, std::int32_t wanted) {
  return Reserve(xdomain->Domain, xdomain->OutputHops, xdomain->OutputHopLimit, wanted);
}

void KivUsb4XdomainReleaseInHopid(USB4_XDOMAIN* xdomain, std::int32_t hopId) {
  ReleaseFrom(xdomain->Domain, xdomain->InputHops, xdomain->InputHopLimit, hopId);
}

void KivUsb4XdomainReleaseOutHopid(USB4_XDOMAIN* xdomain, std::int32_t hopId) {
  ReleaseFrom(xdomain->Domain, xdomain->OutputHops, xdomain->OutputHopLimit, hopId);
}
