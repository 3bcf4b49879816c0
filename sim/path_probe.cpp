// The data plane.
#include "sim/path_probe.h"

#include "sim/fabric.h"

namespace sim {
namespace {

constexpr unsigned kMaxHops = 64;  // more than any chain of routers; a longer way is a loop
constexpr std::uint32_t kValid = 1u << 31;

std::string At(const Adapter& adapter, unsigned hop) {
  return adapter.Name() + " " + std::to_string(hop);
}

// The adapter behind the cable of a lane. Bonded lanes are one link and lane 0 carries it.
Adapter* BehindCable(Adapter& out, std::string& lost) {
  if (out.link == nullptr || !out.link->LaneUp(out)) {
    lost = out.Name() + " is not up";
    return nullptr;
  }
  if (out.link->bonded() && out.model().lane == 1) {
    lost = out.Name() + " is the second lane of a bonded link";
    return nullptr;
  }
  return out.link->Opposite(out);
}

}  // namespace

ProbeResult Probe(Adapter& from, unsigned hop) {
  ProbeResult result;
  Adapter* at = &from;
  for (unsigned count = 0; count < kMaxHops; ++count) {
    const std::uint32_t entry = at->paths().Get(2 * hop);
    if (!at->paths().Defined(2 * hop) || (entry & kValid) == 0) {
      result.lost = "no valid entry at " + At(*at, hop);
      return result;
    }
    const unsigned outHop = entry & 0x7FF;
    Adapter* out = at->router().adapter((entry >> 11) & 0x3F);
    if (out == nullptr || !out->implemented()) {
      result.lost = "entry at " + At(*at, hop) + " leads to no adapter";
      return result;
    }
    if (outHop > out->model().hop) {
      result.lost = "hop " + std::to_string(outHop) + " is above the limit of " + out->Name();
      return result;
    }
    result.trail += (result.trail.empty() ? "" : " | ") + At(*at, hop) + " -> " + At(*out, outHop);
    if (!out->isLane()) {
      result.arrived = out;
      result.hop = outHop;
      return result;
    }
    at = BehindCable(*out, result.lost);
    if (at == nullptr) return result;
    hop = outHop;
  }
  result.lost = "the path runs in a circle";
  return result;
}

std::vector<std::string> LivePaths(const Fabric& fabric) {
  std::vector<std::string> paths;
  for (const auto& router : fabric.routers()) {
    for (unsigned n = 1; n <= router->maxAdapter(); ++n) {
      Adapter& adapter = *router->adapter(n);
      if (!adapter.implemented() || adapter.isLane()) continue;
      // Entry 0 of the host interface adapter carries the control packets.
      for (unsigned hop = 1; 2 * hop < adapter.paths().size(); ++hop) {
        if ((adapter.paths().Get(2 * hop) & kValid) == 0) continue;
        const ProbeResult result = Probe(adapter, hop);
        paths.push_back(result.lost.empty() ? result.trail : result.trail + " lost: " + result.lost);
      }
    }
  }
  return paths;
}

}  // namespace sim
