// The discovery of a scripted peer: what it wants to know of the host behind one of its ports, one question at a time.
#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/host/simulation.h"
#include "sim/peer/peer_config.h"

namespace sim {

class Adapter;

enum class PeerStep {
  Identity,
  PropertiesChanged,
  LinkStatus,
  LinkChange,
  AwaitLinkChange,
  Bonding,
  Properties,
  Known,
  GaveUp,
};
const char* PeerStepName(PeerStep step);

// What a conversation needs of the peer that leads it.
class PeerVoice {
 public:
  virtual ~PeerVoice() = default;
  virtual platform::Simulation& simulation() = 0;
  virtual Uuid uuid() const = 0;
  virtual void Send(const ControlPacket& packet) = 0;
  virtual void Reached(const Adapter& port, PeerStep step) = 0;  // for whoever watches the run
};

class PeerDiscovery {
 public:
  // Of the host behind `port`, which its packets name by its number.
  PeerDiscovery(PeerVoice& voice, const PeerConfig& config, Adapter& port);
  ~PeerDiscovery();
  PeerDiscovery(const PeerDiscovery&) = delete;
  PeerDiscovery& operator=(const PeerDiscovery&) = delete;

  Adapter& port() const { return port_; }
  PeerStep step() const { return step_; }
  const std::optional<Uuid>& hostUuid() const { return hostUuid_; }
  const std::vector<std::uint32_t>& hostBlock() const { return hostBlock_; }  // whole once the step is Known
  std::uint32_t hostGeneration() const { return hostGeneration_; }

  void Begin();
  // A response of the host, or a refusal by a router on the way.
  void Answered(const ControlPacket& answer);
  // The host asks for a UUID: one that gave up tries again.
  void HostAsked();
  bool ReadyForLinkChange() const;
  void LinkChangeAccepted(unsigned width);  // 1 or 3, which has been answered with success

 private:
  void Enter(PeerStep step, platform::Time delay);
  void Run();
  void Ask(DiscoveryType type, const std::vector<std::uint32_t>& payload = {});
  void TakeAnswer(const ControlPacket& answer);
  void TakePiece(const ControlPacket& answer);
  void Failed();
  void GiveUpStep();
  void AfterUuid();
  void Bond();
  void SetTargetWidth(unsigned width);
  void WriteLane(Adapter& lane, std::uint32_t clear, std::uint32_t set);
  bool TwoLanes() const;
  bool HasLowerUuid() const;
  template <class F>
  void Later(platform::Time delay, F action);

  PeerVoice& voice_;
  const PeerConfig& config_;
  Adapter& port_;
  PeerStep step_ = PeerStep::Identity;
  unsigned retries_ = 0;
  bool lanesAsked_ = false;             // in this step, for two lanes
  std::optional<DiscoveryType> asked_;  // the request that waits for its answer
  unsigned sequence_ = 0;
  std::uint64_t turn_ = 0;  // counts steps and questions: what an older one has scheduled means nothing
  std::optional<Uuid> hostUuid_;
  std::vector<std::uint32_t> hostBlock_;
  std::uint32_t hostGeneration_ = 0;
  std::shared_ptr<bool> alive_;  // events outlive the conversation
};

}  // namespace sim
