// What a scripted peer answers.
#include "sim/peer/peer_answers.h"

#include <algorithm>

#include "sim/peer/property_block.h"
#include "sim/router/adapter.h"

namespace sim {
namespace {

constexpr unsigned kDestination = 12;  // words of a properties request
constexpr unsigned kBlockOffset = 16;
constexpr Uuid kNetworkServices{0xCA8961C6, 0x9541CE1C, 0x5949B8BD, 0x4F5A5F2E};

ControlPacket Response(const ControlPacket& request, DiscoveryType type, const std::vector<std::uint32_t>& payload) {
  return MakeDiscoveryPacket(Pdf::InterDomainResponse, request.Route(), SequenceOf(request), type, payload);
}

std::vector<std::uint32_t> BlockOf(const PeerConfig& config, unsigned maxHopId) {
  if (!config.block.empty()) return config.block;
  PropertyDirectory root{{},
                         {{.key = "vendorid", .number = config.vendorId},
                          {.key = "vendorid", .text = config.vendorName},
                          {.key = "deviceid", .number = config.deviceId},
                          {.key = "devicerv", .number = 0x80000100}}};
  if (config.network) {
    root.properties.push_back({.key = "network",
                               .directory = {{kNetworkServices,
                                              {{.key = "prtcid", .number = 1},
                                               {.key = "prtcvers", .number = 1},
                                               {.key = "prtcrevs", .number = 1},
                                               {.key = "prtcstns", .number = 6}}}}});
  }
  root.properties.push_back({.key = "deviceid", .text = config.deviceName});
  root.properties.push_back({.key = "maxhopid", .number = maxHopId});
  return PropertyBlockOf(root);
}

// The four link fields as the lane capability of the port has them.
std::uint32_t LinkFields(const Adapter& port) {
  const std::uint32_t supported = port.space().Get(port.laneCapability);
  const std::uint32_t target = port.space().Get(port.laneCapability + 1);
  return (supported >> 20 & 0x3F) | (target >> 4 & 0x3F) << 8 | (supported >> 16 & 0xF) << 16 | (target & 0xF) << 24;
}

}  // namespace

PeerAnswers::PeerAnswers(const PeerConfig& config, const Uuid& ownUuid, unsigned maxHopId)
    : config_(config), uuid_(config.uuid.value_or(ownUuid)), block_(BlockOf(config, maxHopId)) {}

Uuid PeerAnswers::uuid() const {
  Uuid uuid = uuid_;
  if (config_.changesUuidAfter != 0 && uuidResponses_ >= config_.changesUuidAfter) uuid[0] ^= 0x01000000;
  return uuid;
}

std::optional<ControlPacket> PeerAnswers::AnswerTo(const ControlPacket& request, const Adapter& port, bool ready) {
  const auto found = config_.replies.find(TypeOf(request));
  const PeerReply reply = found == config_.replies.end() ? PeerReply::Answer : found->second;
  if (reply == PeerReply::Silent) return std::nullopt;
  if (reply == PeerReply::Answer) return Truth(request, port, ready);
  return Error(request, config_.errorCode.value_or(errorResponses_++));
}

ControlPacket PeerAnswers::Error(const ControlPacket& request, std::uint32_t code) const {
  return Response(request, DiscoveryType::ErrorResponse, {code});
}

std::optional<ControlPacket> PeerAnswers::Truth(const ControlPacket& request, const Adapter& port, bool ready) {
  switch (TypeOf(request)) {
    case DiscoveryType::OldUuidRequest:
    case DiscoveryType::UuidRequest:
      return UuidResponse(request);
    case DiscoveryType::PropertiesRequest:
      return Properties(request);
    case DiscoveryType::PropertiesChangedRequest:
      return Response(request, DiscoveryType::PropertiesChangedResponse, {});
    case DiscoveryType::LinkStatusRequest:
      return Response(request, DiscoveryType::LinkStatusResponse, {0, LinkFields(port)});
    case DiscoveryType::LinkChangeRequest:
      if (ready) return Response(request, DiscoveryType::LinkChangeResponse, {0});
      return Error(request, static_cast<std::uint32_t>(DiscoveryError::NotReady));
    default:
      return Error(request, static_cast<std::uint32_t>(DiscoveryError::NotSupported));
  }
}

ControlPacket PeerAnswers::UuidResponse(const ControlPacket& request) {
  const Uuid own = uuid();
  ++uuidResponses_;
  std::vector<std::uint32_t> payload(own.begin(), own.end());
  payload.push_back(static_cast<std::uint32_t>(request.Route() >> 32));
  payload.push_back(static_cast<std::uint32_t>(request.Route()));
  return Response(request, DiscoveryType::UuidResponse, payload);
}

// A peer that lies about its block has words for every offset.
std::optional<ControlPacket> PeerAnswers::Properties(const ControlPacket& request) const {
  const Uuid own = uuid(), requester = UuidAt(request, kDiscoveryHeaderWords);
  if (UuidAt(request, kDestination) != own) {
    return Error(request, static_cast<std::uint32_t>(DiscoveryError::UnknownDomain));
  }
  const std::size_t offset = request.Word(kBlockOffset) & 0xFFFF;
  const bool lies = config_.total || config_.pieceWords;
  if (offset >= block_.size() && !lies) return std::nullopt;
  std::size_t words = kBlockWordsPerPacket;
  if (!lies) words = std::min(words, block_.size() - offset);
  if (config_.pieceWords) words = *config_.pieceWords;

  std::vector<std::uint32_t> payload(own.begin(), own.end());
  payload.insert(payload.end(), requester.begin(), requester.end());
  const std::uint32_t total = config_.total.value_or(static_cast<std::uint32_t>(block_.size()));
  payload.push_back((static_cast<std::uint32_t>(static_cast<int>(offset) + config_.offsetShift) & 0xFFFF) | total
                                                                                                                << 16);
  payload.push_back(config_.generation);
  for (std::size_t i = offset; i < offset + words; ++i) payload.push_back(i < block_.size() ? block_[i] : 0);
  ControlPacket packet = Response(request, DiscoveryType::PropertiesResponse, payload);
  packet.dwords[2] =
      (packet.dwords[2] & ~0x3Fu) |
      (static_cast<std::uint32_t>(static_cast<int>(packet.dwords.size()) - 3 + config_.lengthShift) & 0x3F);
  return packet;
}

}  // namespace sim
