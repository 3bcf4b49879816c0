// How control packets travel: hop by hop along the route to their router, and up again to the host.
#include "sim/fabric/fabric_host.h"
#include "sim/host/inter_domain_packet.h"

namespace sim {
namespace {

constexpr DelayRange kHop{"sim.fabric.hop", 4 * kUs, 1 * kUs, 15 * kUs};
constexpr DelayRange kHandOverTime{"sim.host.hand-over", 2000 * kUs, 200 * kUs, 80000 * kUs};
constexpr DelayRange kProcessing{"sim.fabric.processing", 140 * kUs, 60 * kUs, 220 * kUs};

std::uint64_t Prefix(std::uint64_t route, unsigned depth) {
  return depth >= 8 ? route : route & ((std::uint64_t{1} << (8 * depth)) - 1);
}

// An answer to an answer or a notification could keep two routers busy for ever.
bool Answerable(const ControlPacket& packet) {
  return packet.pdf == Pdf::Read || packet.pdf == Pdf::Write || packet.pdf == Pdf::InterDomainRequest;
}

}  // namespace

void Fabric::PacketFromHost(Router& host, const DecodedPacket& packet, bool damaged) {
  if (!packet.crcGood) {
    // Routers drop what they cannot trust; only an undamaged packet with a bad CRC is the driver's doing.
    if (!damaged) host.Misuse(0, Complaint::PacketCrc);
    return;
  }
  if (packet.packet.pdf == Pdf::FirmwareHandover) return HandOver(host, packet.packet);
  if (packet.packet.dwords.size() < kHeaderDwords) {
    const auto count = static_cast<std::uint32_t>(packet.packet.dwords.size());
    if (!damaged) host.Misuse(0, Complaint::PacketLength, {.count = count, .limit = kHeaderDwords});
    return;
  }
  if (IsInterDomain(packet.packet) && !damaged) Complain(host, packet.packet);
  Arrive(host, host.upstreamAdapter(), 0, {packet.packet, packet.packet.Route(), damaged});
}

// Routers carry any inter-domain packet; the manager at the other end would reject it.
void Fabric::Complain(Router& host, const ControlPacket& packet) {
  for (Fault& fault : HostOf(host)->ledger.Sent(packet)) host.Misuse(0, fault.rule, std::move(fault.arguments));
}

void Fabric::HandOver(Router& host, const ControlPacket& packet) {
  const unsigned before = HostOf(host)->firmware.handOvers();
  const auto answer = HostOf(host)->firmware.Handle(packet);
  if (HostOf(host)->firmware.handOvers() == before) host.Misuse(0, Complaint::HandOverRequest);
  if (!answer) return;
  ++inFlight_;
  simulation_.After(timing_.Draw(kHandOverTime), "firmware hands over", [this, &host, answer = answer] {
    --inFlight_;
    Climb(host, *answer);
  });
}

template <class F>
void Fabric::Cross(Adapter& from, F action) {
  Link* link = from.link;
  Adapter* to = link == nullptr || !link->LaneUp(from) ? nullptr : link->Opposite(from);
  if (to == nullptr) return;
  ++inFlight_;
  simulation_.After(timing_.Draw(kHop), "packet hop",
                    [this, &from, to, generation = link->generation(), action = std::move(action)]() mutable {
                      --inFlight_;
                      if (from.link != nullptr && from.link->generation() == generation) action(*to);
                    });
}

void Fabric::Arrive(Router& at, unsigned arrival, unsigned depth, const Journey& journey) {
  const Adapter* upstream = at.adapter(at.upstreamAdapter());
  const bool fromAbove = arrival == at.upstreamAdapter() || (upstream != nullptr && upstream->model().pair == arrival);
  const bool ends = depth >= 8 || journey.route >> (8 * depth) == 0;
  if (!fromAbove) {
    if (IsInterDomain(journey.packet)) {
      CrossDomains(at, arrival, journey);
    } else {
      // To the manager of another domain no router here is enumerated, whatever it asks for.
      Refuse(at, arrival, arrival, depth, ErrorCode::NotEnumerated, journey);
    }
  } else if (ends) {
    Answer(at, arrival, journey);
  } else if (!at.configured()) {
    Refuse(at, arrival, 0, depth, ErrorCode::NotEnumerated, journey);
  } else {
    Forward(at, depth, journey);
  }
}

void Fabric::Forward(Router& at, unsigned depth, const Journey& journey) {
  const auto number = static_cast<unsigned>((journey.route >> (8 * depth)) & 0xFF);
  Adapter* adapter = at.adapter(number);
  auto refuse = [&](ErrorCode code) { Refuse(at, at.upstreamAdapter(), number & 0x3F, depth, code, journey); };
  if (adapter == nullptr || !adapter->isLane()) return refuse(ErrorCode::NoSuchAdapter);
  if (number == at.upstreamAdapter() || adapter->link == nullptr || !adapter->link->LaneUp(*adapter)) {
    return refuse(ErrorCode::NotConnected);
  }
  if (adapter->locked()) return refuse(ErrorCode::Locked);
  Cross(*adapter,
        [this, depth, journey = journey](Adapter& far) { Arrive(far.router(), far.number(), depth + 1, journey); });
}

// Answers come one after the other. An acknowledgement asks for none and is taken in passing: a manager that has been
// busy for long has thousands of them to send.
void Fabric::Answer(Router& at, unsigned arrival, const Journey& journey) {
  const platform::Time now = simulation_.Now();
  const bool inPassing = journey.packet.pdf == Pdf::Notification;
  if (!inPassing) at.busyUntil = std::max(now, at.busyUntil) + timing_.Draw(kProcessing);
  ++inFlight_;
  simulation_.After(inPassing ? timing_.Draw(kHop) : at.busyUntil - now, "router answers",
                    [this, &at, arrival, journey = journey, life = at.life()] {
                      --inFlight_;
                      if (life != at.life()) return;
                      // A silent router is one that has hung.
                      if (simulation_.faults().Fires("router.silent")) return;
                      if (const auto answer = at.Handle(journey.packet, arrival)) Climb(at, *answer);
                    });
}

void Fabric::Refuse(Router& at, unsigned arrival, unsigned adapter, unsigned depth, ErrorCode code,
                    const Journey& journey) {
  if (!Answerable(journey.packet)) return;
  const ControlPacket packet = ErrorPacket(Prefix(journey.route, depth), adapter, code);
  const platform::Time delay = timing_.Draw(kProcessing) / 2;
  ++inFlight_;
  simulation_.After(delay, "router refuses", [this, &at, arrival, packet = packet, life = at.life()] {
    --inFlight_;
    if (life == at.life()) SendBack(at, arrival, packet);
  });
}

// An answer goes back where its request came from, which need not be this router's own manager.
void Fabric::SendBack(Router& at, unsigned arrival, const ControlPacket& packet) {
  const Adapter* upstream = at.adapter(at.upstreamAdapter());
  const bool ours = at.isHost() ? arrival == at.upstreamAdapter()
                                : upstream != nullptr && upstream->link == at.adapter(arrival)->link;
  if (ours) {
    Climb(at, packet);
    return;
  }
  if (at.adapter(arrival) != nullptr) {
    Cross(*at.adapter(arrival), [this, packet = packet](Adapter& far) { Climb(far.router(), packet); });
  }
}

// A packet of another host comes in from below: it goes up to this domain's host with the route that leads back.
void Fabric::CrossDomains(Router& at, unsigned arrival, const Journey& journey) {
  if (!at.configured()) return;
  ControlPacket packet = journey.packet;
  const std::uint64_t back = at.configuredRoute() | static_cast<std::uint64_t>(arrival) << (8 * at.place().depth);
  const std::vector<std::uint32_t> header = RouteHeader(back, true);
  packet.dwords[0] = header[0];
  packet.dwords[1] = header[1];
  Climb(at, packet);
}

void Fabric::SendUp(Router& from, const ControlPacket& packet) {
  Climb(from, packet);
}

void Fabric::Climb(Router& at, const ControlPacket& packet) {
  if (at.isHost()) {
    Host* host = HostOf(at);
    if (!host->asleep) host->wire.PacketToHost(packet);
    return;
  }
  Adapter* upstream = at.adapter(at.upstreamAdapter());
  if (upstream != nullptr) Cross(*upstream, [this, packet = packet](Adapter& far) { Climb(far.router(), packet); });
}

}  // namespace sim
