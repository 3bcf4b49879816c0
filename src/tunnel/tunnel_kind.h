// The kinds of tunnels: what differs between them, one row a kind. What a tunnel of any kind does reads the row; a new
// kind is its own files and a row. PASSIVE_LEVEL; what makes, switches or ends tunnels runs under the path lock.
#pragma once
#include <cstdint>

#include "include/domain_record.h"
#include "include/router_record.h"
#include "include/status.h"
#include "include/tunnel_record.h"

// What a record of the kind gets for its callbacks; a null one is never called.
struct USB4_TUNNEL_CALLBACKS {
  KIV_RESULT (*Init)(USB4_TUNNEL* tunnel);
  KIV_RESULT (*Activate)(USB4_TUNNEL* tunnel, bool enable);
  KIV_RESULT (*ConsumedBandwidth)(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& consumed);
  KIV_RESULT (*ReleaseUnusedBandwidth)(USB4_TUNNEL* tunnel);
  void (*ReclaimAvailableBandwidth)(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& available);
};

struct USB4_TUNNEL_KIND {
  USB4_TUNNEL_TYPE Type;
  const char* Name;
  USB4_ADAPTER_TYPE SourceType;
  USB4_ADAPTER_TYPE DestinationType;
  std::uint32_t PathCount;
  USB4_TUNNEL_CALLBACKS Callbacks;
  // Either end: switches it, and says whether it is on, which is false when it cannot be read. Null: the kind's ends
  // are not switched.
  KIV_RESULT (*SwitchEnd)(const USB4_PORT* adapter, bool enable);
  bool (*EndIsOn)(const USB4_PORT* adapter);
  // Rebuilds the tunnel that is programmed from a source adapter; null when there is none that is whole.
  USB4_TUNNEL* (*Discover)(USB4_DOMAIN* domain, USB4_PORT* source);
  // Cleans up at a source adapter behind firmware that leaves half a tunnel; false ends the walk over the adapters.
  bool (*CleanUp)(USB4_DOMAIN* domain, USB4_PORT* source);
  void (*Adopted)(const USB4_TUNNEL* tunnel);   // a discovered tunnel is becoming the domain's
  void (*GiveBack)(const USB4_TUNNEL* tunnel);  // what it holds besides its paths, when it ends
  AtomicLong USB4_DOMAIN::*Count;               // of its kind, beside the total; null: it has none
  bool CountsAdopted;                           // discovered ones count there too
};

[[nodiscard]] const USB4_TUNNEL_KIND& KindOf(USB4_TUNNEL_TYPE type);
inline const char* TraceWord(USB4_TUNNEL_TYPE type) {
  return KindOf(type).Name;
}
// The kind whose tunnels start, or start or end, at adapters of this type; null when there is none.
[[nodiscard]] const USB4_TUNNEL_KIND* KindStartingAt(std::uint32_t adapterType);
[[nodiscard]] const USB4_TUNNEL_KIND* KindWithEndAt(std::uint32_t adapterType);

// A tunnel of the kind between `ends`, with its callbacks and without paths; null when there is no memory.
[[nodiscard]] USB4_TUNNEL* NewTunnel(USB4_TUNNEL_TYPE type, USB4_DOMAIN* owner, const USB4_ENDS& ends);
// Switches the tunnel's source adapter, then its destination if that is of the type that the kind ends in. The first
// error ends it.
[[nodiscard]] KIV_RESULT SwitchEnds(const USB4_TUNNEL* tunnel, bool enable);
