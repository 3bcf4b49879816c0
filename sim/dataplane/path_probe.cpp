// The data plane.
#include "sim/dataplane/path_probe.h"

#include <set>
#include <utility>

#include "sim/dataplane/path_walker.h"
#include "sim/router/cable.h"
#include "sim/router/router.h"

namespace sim {
namespace {

bool CrossesBorder(const Adapter& lane) {
  return lane.link != nullptr && lane.link->attached() && lane.link->betweenDomains();
}

// The whole way at once.
class Walk {
 public:
  Walk(Adapter& from, unsigned hop, bool packet) : walker_(from, hop, packet), packet_(packet) {}

  ProbeResult Go() {
    if (packet_) result_.lost = walker_.Start();
    while (result_.lost.empty() && result_.arrived == nullptr) result_.lost = Step();
    return std::move(result_);
  }

 private:
  // Through one router; then over the cable, or out of the fabric.
  std::string Step() {
    Adapter& in = walker_.at();
    const unsigned inHop = walker_.hop();
    if (!seen_.insert({&in, inHop}).second) return "the path runs in a circle";
    if (std::string lost = walker_.Enter(); !lost.empty()) return lost;
    Adapter& out = walker_.out();
    result_.hops.push_back({&in, inHop, &out, walker_.outHop()});
    result_.trail +=
        (result_.trail.empty() ? "" : " | ") + NameWithHop(in, inHop) + " -> " + NameWithHop(out, walker_.outHop());
    if (out.isLane()) return Cross(out);
    std::string closed = walker_.Leave();
    if (closed.empty()) result_.arrived = &out, result_.hop = walker_.outHop();
    return closed;
  }

  std::string Cross(const Adapter& out) {
    const bool border = result_.border == 0 && CrossesBorder(out);
    std::string lost = walker_.Cross();
    if (lost.empty() && border) result_.border = static_cast<unsigned>(result_.hops.size());
    return lost;
  }

  PathWalker walker_;
  const bool packet_;
  std::set<std::pair<const Adapter*, unsigned>> seen_;
  ProbeResult result_;
};

PathKind KindByStart(const Adapter& from, unsigned hop) {
  if (from.isPcie()) return PathKind::Pcie;
  if (from.isUsb3()) return PathKind::Usb3;
  if (from.isDisplayPort()) return hop == kAuxHop ? PathKind::DpAux : PathKind::DpVideo;
  return from.type() == kTypeHostInterface || CrossesBorder(from) ? PathKind::Network : PathKind::Mismatched;
}

bool FitTogether(std::uint32_t from, std::uint32_t to) {
  constexpr std::pair<std::uint32_t, std::uint32_t> kPairs[] = {
      {kTypePcieDown, kTypePcieUp},
      {kTypeUsb3Down, kTypeUsb3Up},
      {kTypeDpIn, kTypeDpOut},
  };
  for (const auto& [one, other] : kPairs) {
    if ((from == one && to == other) || (from == other && to == one)) return true;
  }
  // From the border of a domain as well.
  return (from == kTypeHostInterface || from == kTypeLane) && to == kTypeHostInterface;
}

LivePath Describe(Adapter& from, unsigned hop) {
  const ProbeResult way = FollowEntries(from, hop);
  LivePath path;
  path.kind = KindByStart(from, hop);
  if (way.arrived != nullptr && !FitTogether(from.type(), way.arrived->type())) path.kind = PathKind::Mismatched;
  path.from = &from;
  path.fromHop = hop;
  path.to = way.arrived;
  path.toHop = way.hop;
  path.hops = way.hops;
  path.trail = way.trail;
  const ProbeResult packet = way.lost.empty() ? Probe(from, hop) : way;
  // What the next domain does with it is the next domain's business.
  (packet.border == 0 ? path.lost : path.beyond) = packet.lost;
  return path;
}

template <class Action>
void ForEachValidEntry(const Surroundings& fabric, Action action) {
  for (const auto& router : fabric.routers()) {
    for (unsigned n = 1; n <= router->maxAdapter(); ++n) {
      Adapter& adapter = *router->adapter(n);
      for (unsigned hop = 0; hop < adapter.pathEntries(); ++hop) {
        if (adapter.pathEntry(hop).valid() && !adapter.isControlEntry(hop)) action(adapter, hop);
      }
    }
  }
}

}  // namespace

const char* PathKindName(PathKind kind) {
  constexpr const char* kNames[] = {"PCIe", "USB3", "DP video", "DP AUX", "network", "mismatched"};
  return kNames[static_cast<unsigned>(kind)];
}

ProbeResult FollowEntries(Adapter& from, unsigned hop) {
  return Walk(from, hop, false).Go();
}

ProbeResult Probe(Adapter& from, unsigned hop) {
  return Walk(from, hop, true).Go();
}

std::string LivePath::Way() const {
  return std::string(PathKindName(kind)) + ": " + trail;
}

std::string LivePath::Text() const {
  if (!beyond.empty()) return Way() + " lost in the next domain: " + beyond;
  return lost.empty() ? Way() : Way() + " lost: " + lost;
}

std::string DanglingEntry::Text() const {
  return "dangling entry at " + adapter->Name() + " hop " + std::to_string(hop);
}

FabricPaths TracePaths(const Surroundings& fabric) {
  FabricPaths found;
  std::set<std::pair<const Adapter*, unsigned>> passed;
  const auto add = [&](Adapter& adapter, unsigned hop) {
    found.paths.push_back(Describe(adapter, hop));
    for (const PathHop& each : found.paths.back().hops) passed.insert({each.in, each.inHop});
  };
  ForEachValidEntry(fabric, [&](Adapter& adapter, unsigned hop) {
    if (!adapter.isLane()) add(adapter, hop);
  });
  ForEachValidEntry(fabric, [&](Adapter& adapter, unsigned hop) {
    if (!adapter.isLane() || passed.contains({&adapter, hop})) return;
    if (CrossesBorder(adapter)) return add(adapter, hop);
    found.dangling.push_back({&adapter, hop});
  });
  return found;
}

std::vector<std::string> LivePaths(const Surroundings& fabric) {
  const FabricPaths found = TracePaths(fabric);
  std::vector<std::string> texts;
  for (const LivePath& path : found.paths) texts.push_back(path.Text());
  for (const DanglingEntry& entry : found.dangling) texts.push_back(entry.Text());
  return texts;
}

}  // namespace sim
