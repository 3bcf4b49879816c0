// The data plane: a packet put into an adapter moves only along programmed path entries and cables that are up.
#pragma once
#include <string>
#include <vector>

namespace sim {

class Adapter;
class Fabric;

struct ProbeResult {
  Adapter* arrived = nullptr;  // the adapter at which the packet left the paths; null when it got lost
  unsigned hop = 0;            // with this hop ID
  std::string trail;           // "H1:3 8 -> H1:1 9 | D1:1 9 -> D1:9 8": entries taken, cables as bars
  std::string lost;            // why it got nowhere; empty when it arrived
};

// Sends a packet with input hop ID `hop` into `from`.
ProbeResult Probe(Adapter& from, unsigned hop);

// Every valid entry from which a path starts at an adapter that is no lane, one line each: trail and, if lost, why.
std::vector<std::string> LivePaths(const Fabric& fabric);

}  // namespace sim
