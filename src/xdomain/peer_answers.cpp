// Answers of this host.
#include "xdomain/peer_answers.h"

#include <cstring>

#include "include/locks.h"
#include "include/trace.h"
#include "topology/router_access.h"
#include "xdomain/peer_request.h"

namespace {

constexpr ULONG kAnswerTag = PoolTag("XDA1");
constexpr std::uint32_t kSuccess = 0;

KIV_RESULT Answer(const USB4_XDP_REPLY& reply, std::uint32_t* packet, USB4_XDP_TYPE type, std::uint32_t bytes) {
  KivUsb4XdpFillHeader(reply.Channel, packet, {reply.Route, reply.Sequence, type, bytes});
  return KivUsb4XdomainResponse(reply.Channel, packet, bytes, USB4_PDF_XDOMAIN_RESPONSE);
}

// Header without payload but one word.
KIV_RESULT AnswerWord(const USB4_XDP_REPLY& reply, USB4_XDP_TYPE type, std::uint32_t word) {
  std::uint32_t packet[kXdpOneWordBytes / 4] = {};
  packet[kXdpPayloadWord] = word;
  return Answer(reply, packet, type, sizeof packet);
}

// Copies the piece that starts at `offset` into the packet: its words, or -22 behind the end of the block.
KIV_RESULT CopyPiece(USB4_XDOMAIN* xdomain, std::uint32_t offset, std::uint32_t* packet) {
  const MutexGuard guard(xdomain->Lock);
  if (offset >= xdomain->BlockWords) return kKivInvalid;
  const std::uint32_t left = xdomain->BlockWords - offset;
  const std::uint32_t words = left < kMostXdpBlockWords ? left : kMostXdpBlockWords;
  packet[kXdpOffsetWord] = XdpOffsetWord::Offset::Of(offset) | XdpOffsetWord::TotalWords::Of(xdomain->BlockWords);
  packet[kXdpGenerationWord] = xdomain->BlockGeneration;
  std::memcpy(packet + kXdpBlockWord, xdomain->Block + offset, 4 * words);
  return static_cast<KIV_RESULT>(words);
}

}  // namespace

KIV_RESULT KivUsb4XdpUuidResponse(const USB4_XDP_REPLY& reply, const std::uint8_t (&ownUuid)[kUuidBytes]) {
  std::uint32_t packet[kXdpUuidResponseBytes / 4] = {};
  std::memcpy(packet + kXdpPayloadWord, ownUuid, kUuidBytes);
  packet[kXdpRouteWord] = static_cast<std::uint32_t>(reply.Route >> 32) & ~kXdpReceivedMark;
  packet[kXdpRouteWord + 1] = static_cast<std::uint32_t>(reply.Route);
  return Answer(reply, packet, USB4_XDP_UUID_RESPONSE, sizeof packet);
}

KIV_RESULT KivUsb4XdpPropertiesResponse(const USB4_XDP_REPLY& reply, USB4_XDOMAIN* xdomain,
                                        const std::uint32_t* request) {
  if (std::memcmp(request + kXdpPeerUuidWord, xdomain->OwnUuid, kUuidBytes) != 0) {
    IgnoreResult(KivUsb4XdpErrorResponse(reply, USB4_XDP_ERROR_UNKNOWN_DOMAIN));  // the peer asks again, or gives up
    return kKivOk;
  }
  const PoolArray<std::uint32_t, kAnswerTag> packet(kControlMostBytes / 4);
  if (!packet) return kKivNoMemory;
  const KIV_RESULT words = CopyPiece(xdomain, XdpOffsetWord::Offset::Get(request[kXdpOffsetWord]), packet.Get());
  if (words < 0) return words;
  std::memcpy(packet.Get() + kXdpPayloadWord, xdomain->OwnUuid, kUuidBytes);
  std::memcpy(packet.Get() + kXdpPeerUuidWord, request + kXdpPayloadWord, kUuidBytes);
  return Answer({reply.Channel, xdomain->Route, reply.Sequence}, packet.Get(), USB4_XDP_PROPERTIES_RESPONSE,
                kXdpPropertiesResponseBytes + 4 * static_cast<std::uint32_t>(words));
}

KIV_RESULT KivUsb4XdpPropertiesChangedResponse(const USB4_XDP_REPLY& reply) {
  std::uint32_t packet[kXdpHeaderBytes / 4] = {};
  return Answer(reply, packet, USB4_XDP_PROPERTIES_CHANGED_RESPONSE, sizeof packet);
}

KIV_RESULT KivUsb4XdpLinkStatusResponse(const USB4_XDP_REPLY& reply, const USB4_XDOMAIN* xdomain) {
  const USB4_PORT* facing = xdomain->FacingAdapter;
  if (facing == nullptr) return kKivFailed;
  std::uint32_t lane[2] = {};
  const KIV_RESULT result = KivUsb4PortRead(facing, lane, {USB4_CFG_SPACE_ADAPTER, facing->LaneCapability, 2});
  if (result != kKivOk) return result;
  const LaneAdpCs0::Value cs0(lane[LaneAdpCs0::kOffset]);
  const LaneAdpCs1::Value cs1(lane[LaneAdpCs1::kOffset]);
  std::uint32_t packet[kXdpLinkStatusResponseBytes / 4] = {};
  packet[kXdpPayloadWord] = kSuccess;
  packet[kXdpPayloadWord + 1] = XdpLinkWord::SupportedWidths::Of(cs0.Get<LaneAdpCs0::SupportedWidths>()) |
                                XdpLinkWord::TargetWidth::Of(cs1.Get<LaneAdpCs1::TargetWidth>()) |
                                XdpLinkWord::SupportedSpeeds::Of(cs0.Get<LaneAdpCs0::SupportedSpeeds>()) |
                                XdpLinkWord::TargetSpeed::Of(cs1.Get<LaneAdpCs1::TargetSpeed>());
  return Answer(reply, packet, USB4_XDP_LINK_STATE_STATUS_RESPONSE, sizeof packet);
}

KIV_RESULT KivUsb4XdpLinkStateChangeResponse(const USB4_XDP_REPLY& reply, std::uint32_t status) {
  return AnswerWord(reply, USB4_XDP_LINK_STATE_CHANGE_RESPONSE, status);
}

KIV_RESULT KivUsb4XdpErrorResponse(const USB4_XDP_REPLY& reply, USB4_XDP_ERROR code) {
  TraceInfo("request of a peer refused", "route", AsRoute(reply.Route), "code", code);
  return AnswerWord(reply, USB4_XDP_ERROR_RESPONSE, code);
}
