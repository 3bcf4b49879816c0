// Paths as firmware programs them.
#include "sim/firmware/firmware_paths.h"

#include <algorithm>

#include "sim/fabric/fabric.h"

namespace sim {
namespace {

constexpr unsigned kVideoBuffers = 12;
constexpr unsigned kFirstCredits = 7;
constexpr unsigned kCableCredits = 16;

// Routers from `router` up to its host, each with the crossing that leads up from it (the host's is empty).
struct Rung {
  const Router* router;
  FirmwareCrossing up;
};

Adapter& LaneOf(Adapter& port, unsigned lane) {
  Adapter* second = port.pair();
  const bool takeSecond = lane == 1 && second != nullptr && !port.link->bonded() && port.link->LaneUp(*second);
  return takeSecond ? *second : port;
}

std::vector<Rung> Ladder(const Router& router, unsigned lane) {
  std::vector<Rung> ladder;
  const Router* at = &router;
  while (!at->isHost()) {
    Adapter* upstream = at->adapter(at->upstreamAdapter());
    if (upstream == nullptr || upstream->link == nullptr) throw TopologyError("no cable leads to " + router.name());
    Adapter& out = LaneOf(*upstream, lane);
    Adapter* in = out.link->Opposite(out);
    ladder.push_back({at, {&out, in}});
    at = &in->router();
  }
  ladder.push_back({at, {}});
  return ladder;
}

bool LeadsTo(const Adapter& out, unsigned hop) {
  for (unsigned n = 1; n <= out.router().maxAdapter(); ++n) {
    const Adapter& each = *out.router().adapter(n);
    for (unsigned in = 0; in < each.pathEntries(); ++in) {
      const PathEntry entry = each.pathEntry(in);
      if (entry.valid() && entry.outAdapter() == out.number() && entry.outHop() == hop) return true;
    }
  }
  return false;
}

unsigned FreeHop(const FirmwareCrossing& cable) {
  const unsigned limit = std::min(cable.out->model().hop, cable.in->model().hop);
  for (unsigned hop = kFirstPathHop; hop <= limit; ++hop) {
    if (!cable.in->pathEntry(hop).valid() && !LeadsTo(*cable.out, hop)) return hop;
  }
  throw TopologyError("no free hop ID behind " + cable.out->Name());
}

PathEntry MakeEntry(const PathHop& hop, FirmwarePathStyle style, bool first, bool last) {
  struct Style {
    std::uint32_t firstCredits, credits, priority;
  };
  constexpr Style kStyles[] = {{kFirstCredits, kCableCredits, 3}, {0, 0, 1}, {1, 1, 2}};
  const Style& values = kStyles[static_cast<unsigned>(style)];
  PathEntry entry;
  entry.word0 =
      kPathValid | (first ? values.firstCredits : values.credits) << 17 | hop.out->number() << 11 | hop.outHop;
  entry.word1 = 1 | values.priority << 8;
  if (style != FirmwarePathStyle::Video) entry.word1 |= 1u << 24 | (last ? 0 : 1u << 25);
  return entry;
}

// A path under construction: where it has come to, and which hop ID it has there.
class Builder {
 public:
  explicit Builder(const FirmwarePath& path) : style_(path.style), at_(&path.from), hop_(path.fromHop) {}

  void Cross(const FirmwareCrossing& cable) { CrossWith(cable, FreeHop(cable)); }
  void CrossWith(const FirmwareCrossing& cable, unsigned hop) {
    Write({at_, hop_, cable.out, hop}, false);
    at_ = cable.in;
    hop_ = hop;
    if (style_ == FirmwarePathStyle::Video) at_->SetSetAsideBuffers(at_->setAsideBuffers() + kVideoBuffers);
  }
  PathHop End(Adapter& to, unsigned hop) {
    const PathHop last{at_, hop_, &to, hop};
    Write(last, true);
    return last;
  }
  unsigned hop() const { return hop_; }

 private:
  void Write(const PathHop& hop, bool last) {
    hop.in->SetPathEntry(hop.inHop, MakeEntry(hop, style_, !begun_, last));
    begun_ = true;
  }

  FirmwarePathStyle style_;
  Adapter* at_;
  unsigned hop_;
  bool begun_ = false;
};

}  // namespace

FirmwareWay FindWay(const Adapter& from, const Adapter& to, unsigned lane) {
  std::vector<Rung> near = Ladder(from.router(), lane);
  std::vector<Rung> far = Ladder(to.router(), lane);
  if (near.back().router != far.back().router) {
    throw TopologyError("no cable leads from " + from.Name() + " to " + to.Name());
  }
  // Above the router where the two ways meet they are the same.
  while (near.size() > 1 && far.size() > 1 && near[near.size() - 2].router == far[far.size() - 2].router) {
    near.pop_back();
    far.pop_back();
  }
  FirmwareWay way;
  for (std::size_t i = 0; i + 1 < near.size(); ++i) way.push_back(near[i].up);
  for (std::size_t i = far.size() - 1; i-- > 0;) way.push_back({far[i].up.in, far[i].up.out});
  return way;
}

FirmwareWay Reversed(const FirmwareWay& way) {
  FirmwareWay back;
  for (auto cable = way.rbegin(); cable != way.rend(); ++cable) back.push_back({cable->in, cable->out});
  return back;
}

PathHop ProgramPath(const FirmwarePath& path, const FirmwareWay& way) {
  if (path.roundTrips != 0 && way.empty()) throw TopologyError("no cable behind " + path.from.Name());
  Builder builder(path);
  for (unsigned trip = 0; trip < path.roundTrips; ++trip) {
    builder.Cross(way.front());
    builder.Cross({way.front().in, way.front().out});
  }
  for (const FirmwareCrossing& cable : way) builder.Cross(cable);
  return builder.End(path.to, path.toHop);
}

void ProgramLoop(const FirmwarePath& path, const FirmwareWay& way) {
  if (way.empty()) throw TopologyError("no cable behind " + path.from.Name());
  Builder builder(path);
  builder.Cross(way.front());
  const unsigned first = builder.hop();
  builder.Cross({way.front().in, way.front().out});
  builder.CrossWith(way.front(), first);
}

}  // namespace sim
