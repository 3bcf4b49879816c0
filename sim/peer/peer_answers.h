// What a scripted peer answers to a request, truthful or not.
#pragma once
#include <cstdint>
#include <optional>
#include <vector>

#include "sim/peer/peer_config.h"

namespace sim {

class Adapter;

class PeerAnswers {
 public:
  // `ownUuid` is what the router's UID makes; the configuration may say another one.
  PeerAnswers(const PeerConfig& config, const Uuid& ownUuid, unsigned maxHopId);

  Uuid uuid() const;
  const std::vector<std::uint32_t>& block() const { return block_; }
  // The answer to a request that came in through `port`; none for what it does not answer. `ready`: it would change the
  // link now.
  std::optional<ControlPacket> AnswerTo(const ControlPacket& request, const Adapter& port, bool ready);

 private:
  std::optional<ControlPacket> Truth(const ControlPacket& request, const Adapter& port, bool ready);
  ControlPacket Error(const ControlPacket& request, std::uint32_t code) const;
  ControlPacket UuidResponse(const ControlPacket& request);
  std::optional<ControlPacket> Properties(const ControlPacket& request) const;

  const PeerConfig& config_;
  const Uuid uuid_;
  std::vector<std::uint32_t> block_;
  unsigned uuidResponses_ = 0;
  std::uint32_t errorResponses_ = 0;
};

}  // namespace sim
