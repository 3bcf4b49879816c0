// Peers that are often wanted.
#include "sim/peer/peer_config.h"

namespace sim {
namespace {

constexpr DiscoveryType kRequests[] = {DiscoveryType::OldUuidRequest,    DiscoveryType::UuidRequest,
                                       DiscoveryType::PropertiesRequest, DiscoveryType::PropertiesChangedRequest,
                                       DiscoveryType::LinkStatusRequest, DiscoveryType::LinkChangeRequest};

void ReplyToAll(PeerConfig& config, PeerReply reply) {
  for (DiscoveryType type : kRequests) config.replies[type] = reply;
}

}  // namespace

const std::vector<std::string>& PeerBehaviours() {
  static const std::vector<std::string> kNames = {"good",   "passive", "reluctant", "one-lane", "slow",
                                                  "silent", "old",     "fickle",    "refusing", "stormy"};
  return kNames;
}

PeerConfig PeerThatIs(const std::string& behaviour) {
  PeerConfig config;
  config.asks = behaviour != "passive" && behaviour != "silent" && behaviour != "refusing";
  config.asksLinkChange = behaviour != "reluctant";
  if (behaviour == "one-lane") config.lanes = 1;
  if (behaviour == "slow") config.answerAfter = 1500 * platform::kMillisecond;
  if (behaviour == "silent") ReplyToAll(config, PeerReply::Silent);
  if (behaviour == "refusing") ReplyToAll(config, PeerReply::Error);
  if (behaviour == "fickle") config.changesUuidAfter = 1;
  if (behaviour == "stormy") config.stormRequests = 1000;
  if (behaviour == "old") {
    config.oldUuidRequest = true;
    config.replies[DiscoveryType::UuidRequest] = PeerReply::Silent;
    config.replies[DiscoveryType::LinkStatusRequest] = PeerReply::Error;
    config.replies[DiscoveryType::LinkChangeRequest] = PeerReply::Error;
    config.errorCode = static_cast<std::uint32_t>(DiscoveryError::NotSupported);
  }
  return config;
}

}  // namespace sim
