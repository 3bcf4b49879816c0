// Sending questions to peers and pairing what comes back.
#include "xdomain/peer_request.h"

#include <cstring>

#include "hostif/config_request.h"
#include "xdomain/peer_packet.h"

namespace {

// Without a look at what the packet is: whatever matched is the answer.
bool CopyResponse(USB4_CFG_REQUEST* request, const USB4_CTL_PKG* packet) {
  std::memcpy(request->Response, packet->Buffer, request->ResponseBytes);
  request->Result.Err = kKivOk;
  return true;
}

void FillExchange(USB4_CFG_REQUEST* request, const std::uint32_t* packet, std::uint32_t bytes, std::uint32_t pdf) {
  std::memcpy(request->RequestWords, packet, bytes);
  request->RequestBytes = bytes;
  request->RequestPdf = pdf;
  request->Match = KivUsb4XdomainMatch;
  request->Copy = CopyResponse;
}

// A question of `header` and what stands behind it in `packet`; the answer's words, and what they come to.
KIV_RESULT Ask(USB4_CTL* channel, std::uint32_t* packet, const USB4_XDP_HEADER& header, std::uint32_t* response,
               std::uint32_t responseBytes) {
  KivUsb4XdpFillHeader(channel, packet, header);
  const KIV_RESULT result = __KivUsb4XdomainRequest(channel, {packet, header.Bytes, USB4_PDF_XDOMAIN_REQUEST, response,
                                                              responseBytes, USB4_PDF_XDOMAIN_RESPONSE, kPeerReplyMs});
  return result != kKivOk ? result : KivUsb4XdpHandleError(response);
}

}  // namespace

KIV_RESULT __KivUsb4XdomainRequest(USB4_CTL* channel, const USB4_XDOMAIN_EXCHANGE& exchange) {
  KivAssert(exchange.RequestBytes <= kControlMostBytes && exchange.ResponseBytes <= kControlMostBytes);
  if (channel == nullptr) return kKivNotSent;
  USB4_CFG_REQUEST* request = AllocateRequest();
  if (request == nullptr) return kKivNoMemory;
  FillExchange(request, exchange.Request, exchange.RequestBytes, exchange.RequestPdf);
  request->ResponseBytes = exchange.ResponseBytes;
  request->ResponsePdf = exchange.ResponsePdf;
  const KIV_RESULT result = KivUsb4CfgRequestSync(channel, request, exchange.TimeoutMs).Err;
  if (result == kKivNotSent) return result;  // the request is gone already
  if (result == kKivOk) std::memcpy(exchange.Response, request->ResponseWords, exchange.ResponseBytes);
  KivUsb4CfgRequestDequeue(channel, request);
  ReleaseRequest(request);
  return result == kKivErrorPacket ? kKivIoError : result;
}

KIV_RESULT KivUsb4XdomainResponse(USB4_CTL* channel, const std::uint32_t* packet, std::uint32_t bytes,
                                  std::uint32_t pdf) {
  KivAssert(bytes <= kControlMostBytes);
  if (channel == nullptr) return kKivNotSent;
  USB4_CFG_REQUEST* request = AllocateRequest();
  if (request == nullptr) return kKivNoMemory;
  FillExchange(request, packet, bytes, pdf);
  request->Response = nullptr;
  return KivUsb4CfgRequest(channel, request);
}

bool KivUsb4XdomainMatch(USB4_CFG_REQUEST* request, const USB4_CTL_PKG* packet) {
  // An error packet does not say which request it refuses.
  if (packet->Pdf() == USB4_PDF_NOTIFICATION) return true;
  if (packet->Pdf() != USB4_PDF_XDOMAIN_RESPONSE) return false;
  // Bytes against words: error responses are shorter than the answer that was hoped for, and most have to pass. One to
  // a properties request does not, so that such a request ends as unanswered.
  if (packet->Bytes() < request->ResponseBytes / 4) return false;
  const std::uint32_t* found = packet->Buffer;
  return (found[0] & ~kXdpReceivedMark) == request->Request[0] && found[1] == request->Request[1] &&
         std::memcmp(found + kXdpProtocolWord, request->Request + kXdpProtocolWord, kUuidBytes) == 0;
}

KIV_RESULT KivUsb4XdpUuidRequest(USB4_CTL* channel, USB4_ROUTE route, LONG retryCount, USB4_XDP_UUID_ANSWER* answer) {
  std::uint32_t request[kXdpHeaderBytes / 4] = {};
  std::uint32_t response[kXdpUuidResponseBytes / 4] = {};
  const KIV_RESULT result =
      Ask(channel, request, {route, static_cast<std::uint32_t>(retryCount), USB4_XDP_UUID_REQUEST, sizeof request},
          response, sizeof response);
  if (result != kKivOk) return result;
  std::memcpy(answer->Uuid, response + kXdpPayloadWord, kUuidBytes);
  answer->Route = USB4_ROUTE{response[kXdpRouteWord]} << 32 | response[kXdpRouteWord + 1];
  return kKivOk;
}

KIV_RESULT KivUsb4XdpPropertiesChangedRequest(USB4_CTL* channel, USB4_ROUTE route, LONG retryCount,
                                              const std::uint8_t* ownUuid) {
  std::uint32_t request[kXdpPropertiesChangedBytes / 4] = {};
  std::uint32_t response[kXdpOneWordBytes / 4] = {};  // an error response has a word more than what is asked for
  std::memcpy(request + kXdpPayloadWord, ownUuid, kUuidBytes);
  return Ask(channel, request,
             {route, static_cast<std::uint32_t>(retryCount), USB4_XDP_PROPERTIES_CHANGED_REQUEST, sizeof request},
             response, sizeof response);
}

KIV_RESULT KivUsb4XdpLinkStatusRequest(USB4_CTL* channel, USB4_ROUTE route, std::uint32_t sequence,
                                       USB4_XDP_LINK* link) {
  std::uint32_t request[kXdpHeaderBytes / 4] = {};
  std::uint32_t response[kXdpLinkStatusResponseBytes / 4] = {};
  const KIV_RESULT result = Ask(channel, request, {route, sequence, USB4_XDP_LINK_STATE_STATUS_REQUEST, sizeof request},
                                response, sizeof response);
  if (result != kKivOk) return result;
  if (response[kXdpPayloadWord] != 0) return kKivRemoteFailure;
  const std::uint32_t word = response[kXdpPayloadWord + 1];
  *link = {.SupportedWidths = static_cast<std::uint8_t>(XdpLinkWord::SupportedWidths::Get(word)),
           .TargetWidth = static_cast<std::uint8_t>(XdpLinkWord::TargetWidth::Get(word)),
           .SupportedSpeeds = static_cast<std::uint8_t>(XdpLinkWord::SupportedSpeeds::Get(word)),
           .TargetSpeed = static_cast<std::uint8_t>(XdpLinkWord::TargetSpeed::Get(word))};
  return kKivOk;
}

KIV_RESULT KivUsb4XdpLinkStateChangeRequest(USB4_CTL* channel, USB4_ROUTE route, std::uint32_t sequence,
                                            std::uint8_t targetWidth, std::uint8_t targetSpeed) {
  std::uint32_t request[kXdpOneWordBytes / 4] = {};
  std::uint32_t response[kXdpOneWordBytes / 4] = {};
  request[kXdpPayloadWord] = XdpChangeWord::TargetWidth::Of(targetWidth) | XdpChangeWord::TargetSpeed::Of(targetSpeed);
  const KIV_RESULT result = Ask(channel, request, {route, sequence, USB4_XDP_LINK_STATE_CHANGE_REQUEST, sizeof request},
                                response, sizeof response);
  if (result != kKivOk) return result;
  return response[kXdpPayloadWord] != 0 ? kKivRemoteFailure : kKivOk;
}
