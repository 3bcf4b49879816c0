// Plays the manager of a host that has no driver.
#include "sim/peer/scripted_peer.h"

#include "sim/router/router.h"

namespace sim {
namespace {

constexpr std::uint32_t kInterDomainMark = 1u << 4;  // PORT_CS_19
constexpr platform::Time kStormStart = 50 * platform::kMillisecond;

// The highest hop ID that packets of another host may come in with.
unsigned MaxHopId(const Router& router) {
  for (unsigned n = 1; n <= router.maxAdapter(); ++n) {
    if (router.adapter(n)->isLane()) return router.adapter(n)->model().hop;
  }
  return 0;
}

}  // namespace

ScriptedPeer::ScriptedPeer(platform::Simulation& simulation, Router& router, ControlWire& wire, PeerConfig config)
    : simulation_(simulation),
      router_(router),
      wire_(wire),
      config_(std::move(config)),
      answers_(config_, router.uuid(), MaxHopId(router)) {
  TakeOverRouter();
}

// What a driver would have done at its start.
void ScriptedPeer::TakeOverRouter() {
  router_.space().SetBits(kRouterCs3, kConfigurationValid, kConfigurationValid);
  for (unsigned n = 1; n <= router_.maxAdapter(); ++n) {
    Adapter& adapter = *router_.adapter(n);
    if (!adapter.isLane()) continue;
    adapter.space().SetBits(kAdpHops, kAdpDisableHotPlug, 0);
    if (config_.lanes == 1 && adapter.model().lane == 1) {
      adapter.space().SetBits(adapter.laneCapability + 1, kLaneDisable, kLaneDisable);
    }
  }
}

const PeerDiscovery* ScriptedPeer::conversation(unsigned port) const {
  auto found = conversations_.find(port);
  return found == conversations_.end() ? nullptr : found->second.get();
}

void ScriptedPeer::Reached(const Adapter& port, PeerStep step) {
  router_.fabric().Note("peer", port.Name() + " " + PeerStepName(step));
}

void ScriptedPeer::PacketArrived(const ControlPacket& packet) {
  if (packet.pdf == Pdf::HotPlug) {
    const auto port = packet.Word(2) & 0x3F;
    const bool unplug = packet.Word(2) >> 31 != 0;
    ControlPacket acknowledgement{Pdf::Notification, RouteHeader(packet.Route(), false)};
    acknowledgement.dwords.push_back(static_cast<std::uint32_t>(ErrorCode::Acknowledge) | port << 8 |
                                     (unplug ? 3u : 2u) << 30);
    Send(acknowledgement);
    PortChanged(port, unplug);
  } else if (packet.pdf == Pdf::InterDomainRequest) {
    Requested(packet);
  } else {
    // A router that refuses a packet names the adapter at which it got stuck.
    const bool refusal = packet.pdf == Pdf::Notification;
    auto found = conversations_.find(refusal ? (packet.Word(2) >> 8) & 0x3F : static_cast<unsigned>(packet.Route()));
    if (found == conversations_.end()) return;
    const std::shared_ptr<PeerDiscovery> with = found->second;  // what it sends next may end the conversation
    with->Answered(packet);
  }
}

void ScriptedPeer::PortChanged(unsigned number, bool unplug) {
  Adapter* port = router_.adapter(number);
  if (port == nullptr || !port->isLane() || port->model().lane != 0) return;
  const bool known = conversations_.contains(number);
  if (known == !unplug) return;  // a notification that came twice
  if (port->usb4Capability != 0) {
    port->space().SetBits(port->usb4Capability + kPortCs19, kInterDomainMark, unplug ? 0 : kInterDomainMark);
  }
  if (unplug) {
    conversations_.erase(number);
    return;
  }
  port->SetLock(false);
  PeerVoice& voice = *this;
  auto with = std::make_shared<PeerDiscovery>(voice, config_, *port);
  conversations_[number] = with;
  with->Begin();
  if (config_.stormRequests != 0) {
    simulation_.After(kStormStart, "peer storm", [this, number] { Storm(number, config_.stormRequests); });
  }
}

void ScriptedPeer::Requested(const ControlPacket& request) {
  auto found = conversations_.find(static_cast<unsigned>(request.Route()));
  if (found == conversations_.end() || !IsDiscovery(request)) return;
  // What a correct receiver drops.
  if ((request.Word(2) & 0x3F) != request.dwords.size() - 3) return;
  simulation_.After(config_.answerAfter, "peer answers",
                    [this, with = std::weak_ptr<PeerDiscovery>(found->second), request] {
                      if (const auto still = with.lock()) Answer(*still, request);
                    });
}

void ScriptedPeer::Answer(PeerDiscovery& with, const ControlPacket& request) {
  const auto answer = answers_.AnswerTo(request, with.port(), with.ReadyForLinkChange());
  if (!answer) return;
  Send(*answer);
  if (TypeOf(*answer) == DiscoveryType::UuidResponse) with.HostAsked();
  if (TypeOf(*answer) == DiscoveryType::LinkChangeResponse) with.LinkChangeAccepted(request.Word(8) & 0xFF);
}

void ScriptedPeer::Storm(unsigned port, unsigned left) {
  if (left == 0 || !conversations_.contains(port)) return;
  Send(MakeDiscoveryPacket(Pdf::InterDomainRequest, port, left & 3, static_cast<DiscoveryType>(config_.stormType)));
  simulation_.After(config_.stormEvery, "peer storm", [this, port, left] { Storm(port, left - 1); });
}

}  // namespace sim
