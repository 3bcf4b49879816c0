// The data plane: a packet put into an adapter moves only along programmed path entries and cables that are up.
//
// Looks only; nothing here changes a register, so a watcher may ask at any moment.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

class Adapter;
class Surroundings;

// What a path carries, told by the adapters at its ends.
enum class PathKind : std::uint8_t { Pcie, Usb3, DpVideo, DpAux, Network, Mismatched };
const char* PathKindName(PathKind kind);  // "PCIe", "USB3", "DP video", "DP AUX", "network", "mismatched"

// One entry that a packet passed: into `in` with `inHop`, out of `out` with `outHop`.
struct PathHop {
  Adapter* in = nullptr;
  unsigned inHop = 0;
  Adapter* out = nullptr;
  unsigned outHop = 0;
};

struct ProbeResult {
  Adapter* arrived = nullptr;  // the adapter at which the packet left the paths; null when it got lost
  unsigned hop = 0;            // with this hop ID
  std::vector<PathHop> hops;   // entries taken, in order
  unsigned border = 0;         // so many of them before it came into another domain; 0: it did not
  std::string trail;           // the same as text: "H1:3 8 -> H1:1 9 | D1:1 9 -> D1:9 8", cables as bars
  std::string lost;            // why it got nowhere; empty when it arrived
};

// Follows the valid entries from input hop ID `hop` of `from`, through cables that are up or rest in a power state:
// where the way leads, whether or not anything would travel on it.
ProbeResult FollowEntries(Adapter& from, unsigned hop);

// Sends a packet with input hop ID `hop` into `from`. It needs the whole way, protocol adapters that are switched on at
// both ends and take these hop IDs, credits where an entry is flow controlled and set-aside buffers where it is not,
// and both ends of each cable agreeing on flow control.
ProbeResult Probe(Adapter& from, unsigned hop);

// A path that starts at an adapter that is no lane, or where packets of another domain come in.
struct LivePath {
  PathKind kind = PathKind::Mismatched;
  Adapter* from = nullptr;
  unsigned fromHop = 0;
  Adapter* to = nullptr;  // where the entries lead; null when the way breaks off
  unsigned toHop = 0;
  std::vector<PathHop> hops;
  std::string trail;
  std::string lost;          // why a packet does not arrive; empty for a path that works
  std::string beyond;        // why it gets lost in another domain, whose manager answers for that
  std::string Way() const;   // "PCIe: H1:3 8 -> H1:1 9 | D1:1 9 -> D1:9 8"
  std::string Text() const;  // that, with " lost: <why>" behind it where it is
};

struct DanglingEntry {
  Adapter* adapter = nullptr;
  unsigned hop = 0;
  std::string Text() const;  // "dangling entry at D1:1 hop 9"
};

struct FabricPaths {
  std::vector<LivePath> paths;          // by router in the order of their making, adapter number, hop ID
  std::vector<DanglingEntry> dangling;  // valid entries that no path of the list passes
};

FabricPaths TracePaths(const Surroundings& fabric);
// The texts of TracePaths, paths first.
std::vector<std::string> LivePaths(const Surroundings& fabric);

}  // namespace sim
