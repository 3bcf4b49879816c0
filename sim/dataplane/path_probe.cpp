// The data plane.
#include "sim/dataplane/path_probe.h"

#include <set>
#include <utility>

#include "sim/dataplane/protocol_adapters.h"
#include "sim/router/cable.h"
#include "sim/router/router.h"

namespace sim {
namespace {

constexpr std::uint32_t kDpVideo = 1u << 31;
constexpr std::uint32_t kDpAux = 1u << 30;

std::string At(const Adapter& adapter, unsigned hop) {
  return adapter.Name() + " " + std::to_string(hop);
}

// Hop IDs that a DisplayPort adapter works with. Those of Thunderbolt 3 routers are programmed.
struct DpHops {
  unsigned video = kVideoHop;
  unsigned auxOut = kAuxHop;  // into the fabric
  unsigned auxIn = kAuxHop;   // out of it
};

DpHops HopsOf(const Adapter& adapter) {
  if (adapter.router().model().usb4()) return {};
  const unsigned at = adapter.protocolCapability;
  const std::uint32_t aux = adapter.space().Get(at + 1);
  return {(adapter.space().Get(at) >> 16) & 0x7FF, aux & 0x7FF, (aux >> 11) & 0x7FF};
}

// Why a protocol adapter does not pass a packet with this hop ID; empty when it does.
std::string Closed(const Adapter& adapter, unsigned hop, bool intoFabric) {
  const std::string refused = adapter.Name() + " does not take hop " + std::to_string(hop);
  const std::string off = adapter.Name() + " is switched off";
  if (adapter.isPcie() || adapter.isUsb3()) {
    if (hop != kTunnelHop) return refused;
    return SwitchedOn(adapter) ? "" : off;
  }
  if (!adapter.isDisplayPort()) return "";
  const DpHops hops = HopsOf(adapter);
  const bool source = adapter.type() == kTypeDpIn;
  const std::uint32_t enables = adapter.space().Get(adapter.protocolCapability);
  if (hop == hops.video && source == intoFabric) return (enables & kDpVideo) != 0 ? "" : off;
  if (hop == (intoFabric ? hops.auxOut : hops.auxIn)) return (enables & kDpAux) != 0 ? "" : off;
  return refused;
}

class Walk {
 public:
  Walk(Adapter& from, unsigned hop, bool packet) : at_(&from), hop_(hop), packet_(packet) {}

  ProbeResult Go() {
    if (packet_) Lose(Start());
    while (result_.lost.empty() && result_.arrived == nullptr) Lose(Step());
    return std::move(result_);
  }

 private:
  void Lose(std::string why) { result_.lost = std::move(why); }

  std::string Start() {
    const Router& router = at_->router();
    if (router.fabric().Asleep(router)) return router.name() + " is asleep";
    return Closed(*at_, hop_, true);
  }

  // Through one router; then over the cable, or out of the fabric.
  std::string Step() {
    const PathEntry entry = at_->pathEntry(hop_);
    const std::string here = At(*at_, hop_);
    if (!at_->paths().Defined(2 * hop_) || !entry.valid()) return "no valid entry at " + here;
    if (!seen_.insert({at_, hop_}).second) return "the path runs in a circle";
    Adapter* out = at_->router().adapter(entry.outAdapter());
    if (out == nullptr || !out->implemented()) return "entry at " + here + " leads to no adapter";
    if (entry.outHop() > out->model().hop)
      return "hop " + std::to_string(entry.outHop()) + " is above the limit of " + out->Name();
    if (packet_) {
      const std::string stuck = Stuck(entry);
      if (!stuck.empty()) return stuck;
    }
    result_.hops.push_back({at_, hop_, out, entry.outHop()});
    result_.trail += (result_.trail.empty() ? "" : " | ") + here + " -> " + At(*out, entry.outHop());
    return out->isLane() ? CrossCable(*out, entry) : Leave(*out, entry.outHop());
  }

  // What keeps a packet from passing an entry that is valid.
  std::string Stuck(const PathEntry& entry) const {
    const std::string here = At(*at_, hop_);
    if (entry.drops()) return "the entry at " + here + " drops packets";
    if (crossed_ && entry.ingressFlowControl() != flowControl_)
      return "flow control differs between " + sentFrom_ + " and " + here;
    if (entry.ingressFlowControl() && entry.credits() == 0) return "no credits at " + here;
    const bool open = !entry.ingressFlowControl() && at_->isLane();
    if (open && at_->setAsideBuffers() == 0) return "no buffers set aside at " + here;
    return "";
  }

  // Bonded lanes are one link and lane 0 carries it.
  std::string CrossCable(Adapter& out, const PathEntry& entry) {
    Link* link = out.link;
    // Entries lead through a cable that rests in a power state; packets do not.
    const bool there = link != nullptr && (link->LaneUp(out) || (!packet_ && link->paused()));
    Adapter* far = there ? link->Opposite(out) : nullptr;
    if (far == nullptr) return out.Name() + " is not up";
    if (link->bonded() && out.model().lane == 1) return out.Name() + " is the second lane of a bonded link";
    crossed_ = true;
    flowControl_ = entry.egressFlowControl();
    sentFrom_ = At(out, entry.outHop());
    at_ = far;
    hop_ = entry.outHop();
    return "";
  }

  std::string Leave(Adapter& out, unsigned hop) {
    std::string closed = packet_ ? Closed(out, hop, false) : "";
    if (!closed.empty()) return closed;
    result_.arrived = &out;
    result_.hop = hop;
    return "";
  }

  Adapter* at_;
  unsigned hop_;
  const bool packet_;
  bool crossed_ = false;  // a cable: what its near end says of flow control, and where that was
  bool flowControl_ = false;
  std::string sentFrom_;
  std::set<std::pair<const Adapter*, unsigned>> seen_;
  ProbeResult result_;
};

PathKind KindByStart(const Adapter& from, unsigned hop) {
  if (from.isPcie()) return PathKind::Pcie;
  if (from.isUsb3()) return PathKind::Usb3;
  if (from.isDisplayPort()) return hop == kAuxHop ? PathKind::DpAux : PathKind::DpVideo;
  return from.type() == kTypeHostInterface ? PathKind::Network : PathKind::Mismatched;
}

bool FitTogether(std::uint32_t from, std::uint32_t to) {
  constexpr std::pair<std::uint32_t, std::uint32_t> kPairs[] = {
      {kTypePcieDown, kTypePcieUp},
      {kTypeUsb3Down, kTypeUsb3Up},
      {kTypeDpIn, kTypeDpOut},
  };
  for (const auto& [one, other] : kPairs)
    if ((from == one && to == other) || (from == other && to == one)) return true;
  return from == kTypeHostInterface && to == kTypeHostInterface;
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
  path.lost = way.lost.empty() ? Probe(from, hop).lost : way.lost;
  return path;
}

template <class Action>
void ForEachValidEntry(const Surroundings& fabric, Action action) {
  for (const auto& router : fabric.routers())
    for (unsigned n = 1; n <= router->maxAdapter(); ++n) {
      Adapter& adapter = *router->adapter(n);
      for (unsigned hop = 0; hop < adapter.pathEntries(); ++hop)
        if (adapter.pathEntry(hop).valid() && !adapter.isControlEntry(hop)) action(adapter, hop);
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
  return lost.empty() ? Way() : Way() + " lost: " + lost;
}

std::string DanglingEntry::Text() const {
  return "dangling entry at " + adapter->Name() + " hop " + std::to_string(hop);
}

FabricPaths TracePaths(const Surroundings& fabric) {
  FabricPaths found;
  std::set<std::pair<const Adapter*, unsigned>> passed;
  ForEachValidEntry(fabric, [&](Adapter& adapter, unsigned hop) {
    if (adapter.isLane()) return;
    found.paths.push_back(Describe(adapter, hop));
    for (const PathHop& each : found.paths.back().hops) passed.insert({each.in, each.inHop});
  });
  ForEachValidEntry(fabric, [&](Adapter& adapter, unsigned hop) {
    if (adapter.isLane() && !passed.contains({&adapter, hop})) found.dangling.push_back({&adapter, hop});
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
