// The layout of discovery packets.
#include "xdomain/peer_packet.h"

#include <cstring>

#include "include/router_record.h"
#include "include/trace.h"

namespace {

constexpr std::uint32_t kWordsBeforeLengthEnds = 3;
constexpr std::uint32_t kLeastLength = 5;  // the protocol UUID and the type

}  // namespace

void KivUsb4XdpFillHeader(const USB4_CTL* channel, std::uint32_t* packet, const USB4_XDP_HEADER& header) {
  if (channel == nullptr) return;
  packet[0] = static_cast<std::uint32_t>(header.Route >> 32);
  packet[1] = static_cast<std::uint32_t>(header.Route);
  packet[kXdpLengthWord] = XdpLengthWord::Words::Of(header.Bytes / 4 - kWordsBeforeLengthEnds) |
                           XdpLengthWord::Sequence::Of(header.Sequence);
  std::memcpy(packet + kXdpProtocolWord, channel->XdomainUuid, kUuidBytes);
  packet[kXdpTypeWord] = header.Type;
}

USB4_ROUTE XdpRoute(const std::uint32_t* packet) {
  return USB4_ROUTE{packet[0] & ~kXdpReceivedMark} << 32 | packet[1];
}

std::uint32_t XdpSequence(const std::uint32_t* packet) {
  return XdpLengthWord::Sequence::Get(packet[kXdpLengthWord]);
}

bool XdpProtocolIs(const std::uint32_t* packet, const std::uint8_t (&uuid)[16]) {
  return std::memcmp(packet + kXdpProtocolWord, uuid, sizeof uuid) == 0;
}

bool XdpLengthIsRight(const std::uint32_t* packet, std::uint32_t bytes) {
  if (bytes < kXdpHeaderBytes) return false;
  const std::uint32_t length = XdpLengthWord::Words::Get(packet[kXdpLengthWord]);
  return length >= kLeastLength && length == bytes / 4 - kWordsBeforeLengthEnds;
}

const char* XdpTypeName(std::uint32_t type) {
  switch (type) {
    case USB4_XDP_UUID_REQUEST_OLD:
      return "UUID request, older form";
    case USB4_XDP_UUID_RESPONSE:
      return "UUID response";
    case USB4_XDP_PROPERTIES_REQUEST:
      return "properties request";
    case USB4_XDP_PROPERTIES_RESPONSE:
      return "properties response";
    case USB4_XDP_PROPERTIES_CHANGED_REQUEST:
      return "properties changed request";
    case USB4_XDP_PROPERTIES_CHANGED_RESPONSE:
      return "properties changed response";
    case USB4_XDP_ERROR_RESPONSE:
      return "error response";
    case USB4_XDP_UUID_REQUEST:
      return "UUID request";
    case USB4_XDP_LINK_STATE_STATUS_REQUEST:
      return "link state status request";
    case USB4_XDP_LINK_STATE_STATUS_RESPONSE:
      return "link state status response";
    case USB4_XDP_LINK_STATE_CHANGE_REQUEST:
      return "link state change request";
    case USB4_XDP_LINK_STATE_CHANGE_RESPONSE:
      return "link state change response";
    default:
      return "unknown";
  }
}

KIV_RESULT KivUsb4XdpHandleError(const std::uint32_t* response) {
  if (response[kXdpTypeWord] != USB4_XDP_ERROR_RESPONSE) return kKivOk;
  const std::uint32_t code = response[kXdpPayloadWord];
  TraceWarning("error response of a peer", "route", AsRoute(XdpRoute(response)), "code", code);
  switch (code) {
    case USB4_XDP_ERROR_UNKNOWN_PACKET:
    case USB4_XDP_ERROR_UNKNOWN_DOMAIN:
      return kKivIoError;
    case USB4_XDP_ERROR_NOT_SUPPORTED:
      return kKivNotSupported;
    case USB4_XDP_ERROR_NOT_READY:
      return kKivNoNetDevice;
    default:
      return kKivOk;  // an error that this host has no name for is taken for an answer
  }
}
