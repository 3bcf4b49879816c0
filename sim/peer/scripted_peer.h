// Plays the manager of a host that has no driver: answers inter-domain requests and runs a discovery of its own.
//
// Sits where a host interface would: packets for its host come from its wire, and its own go there. One conversation
// with each host on a cable of its ports.
#pragma once
#include <map>
#include <memory>

#include "sim/host/control_wire.h"
#include "sim/peer/peer_answers.h"
#include "sim/peer/peer_discovery.h"

namespace sim {

class Router;

class ScriptedPeer final : public PacketReceiver, private PeerVoice {
 public:
  ScriptedPeer(platform::Simulation& simulation, Router& router, ControlWire& wire, PeerConfig config);

  const PeerConfig& config() const { return config_; }
  Uuid uuid() const override { return answers_.uuid(); }
  const std::vector<std::uint32_t>& block() const { return answers_.block(); }
  // With the host behind a port; null where there is none.
  const PeerDiscovery* conversation(unsigned port) const;
  void PacketArrived(const ControlPacket& packet) override;

 private:
  platform::Simulation& simulation() override { return simulation_; }
  void Send(const ControlPacket& packet) override { wire_.SendFromManager(packet); }
  void Reached(const Adapter& port, PeerStep step) override;
  void TakeOverRouter();
  void PortChanged(unsigned port, bool unplug);
  void Requested(const ControlPacket& request);
  void Answer(PeerDiscovery& with, const ControlPacket& request);
  void Storm(unsigned port, unsigned left);

  platform::Simulation& simulation_;
  Router& router_;
  ControlWire& wire_;
  const PeerConfig config_;
  PeerAnswers answers_;
  std::map<unsigned, std::shared_ptr<PeerDiscovery>> conversations_;  // by port
};

}  // namespace sim
