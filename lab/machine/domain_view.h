// The domain as the driver holds it, copied into plain data: what the tree, the JSON document and the oracles look at.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lab/machine/machine_config.h"
#include "lab/machine/tunnel_kinds.h"

namespace lab {

// A register that was read, with the fields that the driver names.
struct RegisterView {
  std::string name;  // "ROUTER_CS_1"
  unsigned offset = 0;
  std::optional<std::uint32_t> word;  // none: the router did not answer
  std::vector<std::pair<std::string, std::uint32_t>> fields;
};

// An adapter somewhere else in the domain.
struct AdapterPlace {
  std::uint64_t route = 0;
  unsigned adapter = 0;
};

struct AdapterView {
  unsigned number = 0;
  std::uint32_t type = 0;
  bool disabled = false;
  bool bonded = false;
  bool secondLane = false;
  std::optional<unsigned> partner;     // the other lane of the same link
  std::optional<AdapterPlace> remote;  // the other end of the cable
  // Name and offset in adapter space, in dwords.
  std::vector<std::pair<std::string, unsigned>> capabilities;
  std::vector<RegisterView> registers;
  std::vector<unsigned> inputHops, outputHops;  // hop IDs that are in use, lowest first
};

// Mb/s; upstream is towards the host.
struct BandwidthView {
  std::int64_t up = 0, down = 0;
  friend bool operator==(const BandwidthView&, const BandwidthView&) = default;
};

struct LinkView {
  unsigned speedGbps = 0;
  unsigned lanes = 0;
  bool bonded = false;
  std::optional<BandwidthView> available;  // below 0 where more was given than there is
};

struct RouterView {
  std::uint64_t route = 0;
  std::string name;  // "0-0": controller index and route
  std::optional<std::string> vendorName, deviceName, uid;
  unsigned generation = 0;  // 4 for USB4, 3 and less for what came before
  unsigned depth = 0;
  unsigned upstreamAdapter = 0;
  std::optional<std::string> tmu;  // "bi-directional, HiFi"; none for a router that keeps what its firmware has set
  std::string state;               // "ready" or "unplugged"
  std::vector<std::pair<std::string, unsigned>> capabilities;  // name and offset in router space
  std::vector<RegisterView> registers;
  std::vector<AdapterView> adapters;  // in number order, adapter 0 not among them
  std::optional<LinkView> link;       // towards the host; the host router has none
};

// A peer host as the driver knows it.
struct PeerView {
  std::uint64_t route = 0;  // of its host router
  AdapterPlace facing;      // the adapter that leads to it
  std::string name;         // "0-1"
  std::string state;        // "ENUMERATED"
  std::string ownUuid;      // of this host: 32 hex digits, in the order in which the bytes are compared
  std::optional<std::string> uuid, vendorName, deviceName;
  unsigned vendorId = 0, deviceId = 0;
  LinkView link;                                   // as last read; without lanes before the first time
  unsigned inputHopLimit = 0, outputHopLimit = 0;  // highest hop IDs from and to the peer
  unsigned requestedWidth = 0;                     // that the peer has asked for: 1, 3 for two lanes, 0 none yet
  bool replaced = false;                           // it turned out to be another host: nothing happens any more
};

// One entry of a path: into router `route` by adapter `in` with one hop ID, out of it by `out` with another.
struct HopView {
  std::uint64_t route = 0;
  unsigned in = 0, inHop = 0;
  unsigned out = 0, outHop = 0;
};

struct PathView {
  std::string name;  // "PCIe Down"
  bool active = false;
  bool discovered = false;    // found in the hardware, not built
  int nfcCredits = 0;         // added to the set-aside buffers of each input adapter while it is active
  std::vector<HopView> hops;  // from the source to the destination
};

struct TunnelEnd {
  AdapterPlace place;
  std::string router;  // its name, "0-1"
};

struct TunnelView {
  TunnelKind kind = TunnelKind::Pcie;
  bool listed = true;  // false: allocated, but the driver's list no longer names it
  TunnelEnd source;
  std::optional<TunnelEnd> destination;
  bool active = false;  // every path is
  std::vector<PathView> paths;
  BandwidthView maximum;                   // that it may take, as far as it was told
  std::optional<BandwidthView> allocated;  // USB3 from the host router: the grant
  std::optional<BandwidthView> consumed;   // what its links are charged; none for kinds that are charged nothing
};

struct TunnelCounts {
  std::int64_t total = 0, pcie = 0, usb3 = 0, dp = 0;
};

struct DomainView {
  std::string name;      // "host/H1"
  bool present = false;  // the driver has a domain
  bool started = false;  // its bus start has succeeded
  std::vector<RouterView> routers;
  std::vector<PeerView> peers;      // in the order of the routers and of the adapters that lead to them
  std::vector<TunnelView> tunnels;  // in list order, those that are not listed behind them
  TunnelCounts counts;
  std::vector<AdapterPlace> displayResources;     // DP adapters that the policy may pair, in list order
  bool pcieAllowed = false, usb3Allowed = false;  // by the registry

  const RouterView* Find(std::uint64_t route) const;
  const PeerView* FindPeer(std::uint64_t route) const;
};

// What a peer's state may be, in the order of a discovery.
const std::vector<std::string>& PeerStateNames();
// "PCIe 0:3 -> 1:9"; "?" for a destination that is not known.
std::string TunnelText(const TunnelView& tunnel);
// "Kiverra Systems Inc. LAPTOP"; "(no name)" before both names are known.
std::string PeerNameText(const PeerView& peer);
// "9000/500": up, then down, in Mb/s.
std::string BandwidthText(const BandwidthView& bandwidth);
// "0:3 8 -> 0:1 9 | 1:1 9 -> 1:9 8", cables as bars.
std::string PathText(const PathView& path);

// "lane", "PCIe downstream", ...; "unknown" for a type that no table names.
const char* AdapterTypeName(std::uint32_t type);

}  // namespace lab
