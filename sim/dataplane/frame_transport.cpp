// Frames on their way between host interfaces.
#include "sim/dataplane/frame_transport.h"

#include <algorithm>

#include "sim/router/cable.h"
#include "sim/router/router.h"

namespace sim {
namespace {

constexpr std::int64_t kPicosecondsPerTick = 100'000;  // platform::Time counts 100 ns
constexpr std::size_t kPacketBytes = 256;
constexpr std::size_t kPacketHeaderBytes = 4;
// A packet's way through a router, and the way back of the credit that it used.
constexpr std::int64_t kRouter = 500'000;
constexpr std::int64_t kCreditBack = 300'000;
constexpr DelayRange kFlight{"sim.frame.flight", 2, 1, 40};

std::int64_t SerialTime(std::size_t bytes, unsigned gbps) {
  return static_cast<std::int64_t>(8 * (bytes + kPacketHeaderBytes) * 1000 / gbps);
}

platform::Time CeilTicks(std::int64_t picoseconds) {
  return (picoseconds + kPicosecondsPerTick - 1) / kPicosecondsPerTick;
}

std::size_t PacketsOf(const Frame& frame) {
  return std::max<std::size_t>(1, (frame.bytes.size() + kPacketBytes - 1) / kPacketBytes);
}

}  // namespace

FrameTransport::Picoseconds FrameTransport::Now() const {
  return fabric_.simulation().Now() * kPicosecondsPerTick;
}

void FrameTransport::Send(Adapter& adapter, unsigned ring, Frame frame) {
  Journey journey{PathWalker(adapter, ring, true), std::move(frame), {}};
  if (const std::string lost = journey.walker.Start(); !lost.empty()) return Lose(lost);
  journey.ready.assign(PacketsOf(journey.frame), Now());
  Go(std::move(journey));
}

platform::Time FrameTransport::RoomAfter(const Adapter& adapter, unsigned ring) const {
  auto found = sentOn_.find({&adapter, ring});
  return found == sentOn_.end() ? 0 : std::max<platform::Time>(0, CeilTicks(found->second - Now()));
}

// Through one router. What its entry says counts at the moment at which the frame is there.
void FrameTransport::Go(Journey journey) {
  if (const std::string lost = journey.walker.Enter(); !lost.empty()) return Lose(lost);
  const Adapter& out = journey.walker.out();
  if (out.isLane()) return CrossLink(std::move(journey));
  if (const std::string lost = journey.walker.Leave(); !lost.empty()) return Lose(lost);
  if (out.type() != kTypeHostInterface) return Lose(out.Name() + " takes no frames");
  const unsigned ring = journey.walker.outHop();
  Arrive(out, ring, std::move(journey));
}

void FrameTransport::CrossLink(Journey journey) {
  const Place from{&journey.walker.at(), journey.walker.hop()};
  const Adapter& out = journey.walker.out();
  if (const std::string lost = journey.walker.Cross(); !lost.empty()) return Lose(lost);
  const Link& link = *out.link;
  const Place to{&journey.walker.at(), journey.walker.hop()};
  const PathEntry next = journey.walker.at().pathEntry(to.second);
  const unsigned credits = next.ingressFlowControl() ? next.credits() : 0;
  std::vector<Picoseconds>& freed = freed_[to];
  if (freed.size() != credits) freed.assign(credits, 0);

  Picoseconds& linkFree = linkFree_[&out];
  const unsigned gbps = link.gbpsPerLane() * (link.bonded() ? 2 : 1);
  const Picoseconds flight = fabric_.timing().Draw(kFlight) * kPicosecondsPerTick;
  std::size_t left = journey.frame.bytes.size();
  for (Picoseconds& ready : journey.ready) {
    const std::size_t bytes = std::min(left, kPacketBytes);
    left -= bytes;
    Picoseconds start = std::max(ready + kRouter, linkFree);
    const auto buffer = std::min_element(freed.begin(), freed.end());
    if (buffer != freed.end()) start = std::max(start, *buffer + kCreditBack);
    linkFree = start + SerialTime(bytes, gbps);
    ready = linkFree + flight;
    if (buffer != freed.end()) *buffer = ready + kRouter;
  }
  sentOn_[from] = linkFree;

  platform::Time& last = lastArrival_[to];
  last = std::max({last, CeilTicks(journey.ready.back()), fabric_.simulation().Now()});
  ++travelling_;
  fabric_.simulation().After(last - fabric_.simulation().Now(), "frame hop",
                             [this, &out, generation = link.generation(), journey = std::move(journey)]() mutable {
                               --travelling_;
                               if (out.link == nullptr || out.link->generation() != generation) {
                                 return Lose(out.Name() + " went down");
                               }
                               Go(std::move(journey));
                             });
}

void FrameTransport::Arrive(const Adapter& adapter, unsigned ring, Journey journey) {
  platform::FaultPlan& faults = fabric_.simulation().faults();
  if (faults.Fires("frame.lose")) return Lose("fault frame.lose");
  WriteBackForgery damage;
  if (!journey.frame.bytes.empty() && faults.Fires("frame.corrupt")) {
    platform::RandomStream& random = fabric_.simulation().Random("sim.frame.corrupt");
    journey.frame.bytes[random.Below(journey.frame.bytes.size())] ^= static_cast<std::uint8_t>(1u << random.Below(8));
    damage.statusBits = 1;  // the device has seen it
  }
  ++arrived_;
  deliver_(adapter.router(), ring, journey.frame, damage);
}

}  // namespace sim
