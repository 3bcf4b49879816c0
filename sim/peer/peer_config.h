// A host without a driver behind a cable: what it says of itself, what it answers, what it asks.
#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/time.h"
#include "sim/host/inter_domain_packet.h"

namespace sim {

enum class PeerReply { Answer, Silent, Error };

struct PeerConfig {
  std::string name;               // of its host router on cables
  std::optional<Uuid> uuid;       // else the one that its router's UID makes
  unsigned changesUuidAfter = 0;  // says another UUID after so many UUID responses; 0: never
  unsigned lanes = 2;             // 1: its second lane is switched off and two lanes are not supported

  // --- its property block: as it stands, or made of what follows
  std::vector<std::uint32_t> block;
  std::uint32_t generation = 1;
  std::string vendorName = "Example", deviceName = "PEER";
  std::uint32_t vendorId = 0x01F0, deviceId = 0x0A01;
  bool network = true;  // the directory of network services is in it

  // --- what it answers
  platform::Time answerAfter = 2 * platform::kMillisecond;
  std::map<DiscoveryType, PeerReply> replies;  // by request; those not named are answered
  std::optional<std::uint32_t> errorCode;      // of error responses; none: 0, 1, 2, ... one after the other
  // What it says wrong in properties responses.
  std::optional<std::uint32_t> total;    // of the block, in words
  std::optional<unsigned> pieceWords;    // in each response, past the end of the block as well
  int offsetShift = 0, lengthShift = 0;  // added to the echoed offset, and to the length of the packet in its header

  // --- what it asks
  bool asks = true;             // runs its own discovery once a cable is plugged
  bool asksLinkChange = true;   // with the lower UUID: for two lanes
  bool oldUuidRequest = false;  // asks for a UUID by the older type
  unsigned stormRequests = 0;   // sent on top of that, one every `stormEvery`
  platform::Time stormEvery = platform::kMillisecond;
  std::uint32_t stormType = static_cast<std::uint32_t>(DiscoveryType::UuidRequest);
};

// "good", "passive" (asks nothing), "reluctant" (never asks to change the link), "one-lane", "slow" (answers after the
// time-out), "silent", "old" (knows the older UUID request only), "fickle" (changes its UUID), "refusing" (sends error
// responses of every code), "stormy".
const std::vector<std::string>& PeerBehaviours();
// `behaviour` must be one of them.
PeerConfig PeerThatIs(const std::string& behaviour);

}  // namespace sim
