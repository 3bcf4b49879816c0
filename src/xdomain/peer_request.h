// Questions to a peer. PASSIVE_LEVEL: each waits for its answer, 1000 ms at most, and is tried once.
//
// Results: 0; -258 no answer; -4 not sent; -12 no memory; -5, -524, -525 an error response; -121 the peer says no.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/control_channel_record.h"
#include "include/router_record.h"
#include "include/status.h"

inline constexpr ULONG kPeerReplyMs = 1000;

struct USB4_XDOMAIN_EXCHANGE {
  const std::uint32_t* Request;
  std::uint32_t RequestBytes;
  std::uint32_t RequestPdf;
  std::uint32_t* Response;      // takes ResponseBytes bytes when the result is 0
  std::uint32_t ResponseBytes;  // 252 at most
  std::uint32_t ResponsePdf;
  ULONG TimeoutMs;
};

// Sends the request and waits for what answers it. An error packet of a router counts as an answer, of words that stand
// in the receive buffer from before.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    __KivUsb4XdomainRequest(USB4_CTL* channel, const USB4_XDOMAIN_EXCHANGE& exchange);
// Sends without waiting for anything; the result is that of sending.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdomainResponse(USB4_CTL* channel, const std::uint32_t* packet, std::uint32_t bytes, std::uint32_t pdf);
// The match routine of both.
[[nodiscard]] bool KivUsb4XdomainMatch(USB4_CFG_REQUEST* request, const USB4_CTL_PKG* packet);

struct USB4_XDP_UUID_ANSWER {
  std::uint8_t Uuid[kUuidBytes];
  USB4_ROUTE Route;  // by which the peer knows this host
};
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdpUuidRequest(USB4_CTL* channel, USB4_ROUTE route, LONG retryCount, USB4_XDP_UUID_ANSWER* answer);
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdpPropertiesChangedRequest(USB4_CTL* channel, USB4_ROUTE route, LONG retryCount,
                                       const std::uint8_t* ownUuid);

// As the peer's lane adapter says it.
struct USB4_XDP_LINK {
  std::uint8_t SupportedWidths;
  std::uint8_t TargetWidth;
  std::uint8_t SupportedSpeeds;
  std::uint8_t TargetSpeed;
};
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdpLinkStatusRequest(USB4_CTL* channel, USB4_ROUTE route, std::uint32_t sequence, USB4_XDP_LINK* link);
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdpLinkStateChangeRequest(USB4_CTL* channel, USB4_ROUTE route, std::uint32_t sequence,
                                     std::uint8_t targetWidth, std::uint8_t targetSpeed);
