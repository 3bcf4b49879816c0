// Answers to a peer's questions. PASSIVE_LEVEL. Each sends one packet and waits for nothing; the result is that of
// sending.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/control_channel_record.h"
#include "include/peer_record.h"
#include "include/status.h"
#include "xdomain/peer_packet.h"

// Whom an answer goes to, and the sequence number of what it answers.
struct USB4_XDP_REPLY {
  USB4_CTL* Channel;
  USB4_ROUTE Route;
  std::uint32_t Sequence;
};

_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdpUuidResponse(const USB4_XDP_REPLY& reply, const std::uint8_t (&ownUuid)[kUuidBytes]);
// Up to 45 words of the peer's block from the offset that the request names. Error code 2, with result 0, when the
// request is for another host; -22 and no answer behind the end of the block; -12 without memory. Takes the peer's
// lock.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdpPropertiesResponse(const USB4_XDP_REPLY& reply, USB4_XDOMAIN* xdomain, const std::uint32_t* request);
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdpPropertiesChangedResponse(const USB4_XDP_REPLY& reply);
// What the lane adapter says that faces the peer; when it cannot be read, no answer and the error of the read.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdpLinkStatusResponse(const USB4_XDP_REPLY& reply, const USB4_XDOMAIN* xdomain);
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdpLinkStateChangeResponse(const USB4_XDP_REPLY& reply, std::uint32_t status);
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdpErrorResponse(const USB4_XDP_REPLY& reply, USB4_XDP_ERROR code);
