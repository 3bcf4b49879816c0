// Tunnels: a few paths that together carry one protocol between two adapters. Created, changed and destroyed only under
// the domain's path lock; who reads the tunnel list without it holds the topology lock and copies what it needs.
#pragma once
#include <ntddk.h>

#include <cstddef>
#include <cstdint>

#include "include/atomic.h"
#include "include/list.h"
#include "include/path_record.h"
#include "include/pool.h"
#include "include/status.h"

// Mb/s in each direction; upstream is towards the host.
struct USB4_BANDWIDTH {
  std::int32_t Upstream;
  std::int32_t Downstream;
};

enum USB4_TUNNEL_TYPE : std::uint32_t {
  USB4_TUNNEL_PCIE = 0,
  USB4_TUNNEL_DP = 1,
  USB4_TUNNEL_DMA = 2,
  USB4_TUNNEL_USB3 = 3,
  USB4_TUNNEL_TYPE_COUNT,  // each type has its row in tunnel/tunnel_kind.cpp
};

struct USB4_TUNNEL {
  static constexpr ULONG kPoolTag = PoolTag("TUN1");
  static constexpr ULONG kPathsTag = PoolTag("PAT1");

  USB4_DOMAIN* Owner;
  USB4_PORT* Source;       // PCIe or USB3 downstream adapter, DP IN, or the host interface adapter
  USB4_PORT* Destination;  // PCIe or USB3 upstream adapter, DP OUT, or a lane adapter; null while it is not known
  USB4_PATH** Paths;       // owned, each of them too; an entry is null while the tunnel is being built
  std::uint32_t PathCount;
  KIV_RESULT (*Init)(USB4_TUNNEL* tunnel);                   // before any path is active; or null
  KIV_RESULT (*Activate)(USB4_TUNNEL* tunnel, bool enable);  // when all are, and again before they go
  KIV_RESULT (*ConsumedBandwidth)(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& consumed);  // or null, like the two below
  KIV_RESULT (*ReleaseUnusedBandwidth)(USB4_TUNNEL* tunnel);
  void (*ReclaimAvailableBandwidth)(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& available);
  LIST_ENTRY Link;  // on the domain's tunnel list or its list of orphans, or on none
  USB4_TUNNEL_TYPE Type;
  USB4_BANDWIDTH Maximum;    // that the tunnel may take
  USB4_BANDWIDTH Allocated;  // USB3: as last written to the host router's adapter
  std::uint8_t MadeByPolicy;
  SharedFlag DpInD3;  // the display's sink has gone to low power
};

using TunnelList = ListView<USB4_TUNNEL, offsetof(USB4_TUNNEL, Link), ByBoth<LockPlace::Path, LockPlace::Topology>>;
using OrphanTunnelList = ListView<USB4_TUNNEL, offsetof(USB4_TUNNEL, Link), By<LockPlace::Path>>;
