// Packets of the discovery protocol between hosts: words in host order, CRC excluded. Any IRQL.
//
//   0, 1   route of the peer's host router, high and low
//   2      sequence number 28:27, words after this one 5:0
//   3..6   protocol UUID
//   7      type; its payload follows
#pragma once
#include <cstdint>

#include "include/bits.h"
#include "include/config_space.h"
#include "include/control_channel_record.h"
#include "include/status.h"

enum USB4_XDP_TYPE : std::uint32_t {
  USB4_XDP_UUID_REQUEST_OLD = 1,
  USB4_XDP_UUID_RESPONSE = 2,
  USB4_XDP_PROPERTIES_REQUEST = 3,
  USB4_XDP_PROPERTIES_RESPONSE = 4,
  USB4_XDP_PROPERTIES_CHANGED_REQUEST = 5,
  USB4_XDP_PROPERTIES_CHANGED_RESPONSE = 6,
  USB4_XDP_ERROR_RESPONSE = 7,
  USB4_XDP_UUID_REQUEST = 12,
  USB4_XDP_LINK_STATE_STATUS_REQUEST = 15,
  USB4_XDP_LINK_STATE_STATUS_RESPONSE = 16,
  USB4_XDP_LINK_STATE_CHANGE_REQUEST = 17,
  USB4_XDP_LINK_STATE_CHANGE_RESPONSE = 18,
};

enum USB4_XDP_ERROR : std::uint32_t {
  USB4_XDP_ERROR_UNKNOWN_PACKET = 1,
  USB4_XDP_ERROR_UNKNOWN_DOMAIN = 2,
  USB4_XDP_ERROR_NOT_SUPPORTED = 3,
  USB4_XDP_ERROR_NOT_READY = 4,
};

inline const char* TraceWord(USB4_XDP_ERROR code) {
  switch (code) {
    case USB4_XDP_ERROR_UNKNOWN_PACKET:
      return "unknown packet";
    case USB4_XDP_ERROR_UNKNOWN_DOMAIN:
      return "unknown domain";
    case USB4_XDP_ERROR_NOT_SUPPORTED:
      return "not supported";
    case USB4_XDP_ERROR_NOT_READY:
      return "not ready";
  }
  return "unknown";
}

// Word 2.
struct XdpLengthWord {
  using Words = Bits<0, 6>;
  using Sequence = Bits<27, 2>;
};
// Word 16 of property packets. A request asks for no more than the offset.
struct XdpOffsetWord {
  using Offset = Bits<0, 16>;
  using TotalWords = Bits<16, 16>;
};
// Word 9 of a link state status response: fields of the lane adapter capability.
struct XdpLinkWord {
  using SupportedWidths = Bits<0, 8>;
  using TargetWidth = Bits<8, 8>;
  using SupportedSpeeds = Bits<16, 8>;
  using TargetSpeed = Bits<24, 8>;
};
// Word 8 of a link state change request.
struct XdpChangeWord {
  using TargetWidth = Bits<0, 8>;  // 1 one lane, 3 two lanes
  using TargetSpeed = Bits<8, 8>;
};

// Where things stand in a packet, in words.
inline constexpr std::uint32_t kXdpReceivedMark = 0x80000000u;  // in word 0 of a packet that was received
inline constexpr std::uint32_t kXdpLengthWord = 2;
inline constexpr std::uint32_t kXdpProtocolWord = 3;
inline constexpr std::uint32_t kXdpTypeWord = 7;
inline constexpr std::uint32_t kXdpPayloadWord = 8;
inline constexpr std::uint32_t kXdpPeerUuidWord = 12;  // of property packets
inline constexpr std::uint32_t kXdpRouteWord = 12;     // of a UUID response
inline constexpr std::uint32_t kXdpOffsetWord = 16;
inline constexpr std::uint32_t kXdpGenerationWord = 17;
inline constexpr std::uint32_t kXdpBlockWord = 18;
inline constexpr std::uint32_t kMostXdpBlockWords = 45;  // of one properties response

// Sizes in bytes.
inline constexpr std::uint32_t kXdpHeaderBytes = 32;
inline constexpr std::uint32_t kXdpUuidResponseBytes = 56;
inline constexpr std::uint32_t kXdpPropertiesRequestBytes = 68;
inline constexpr std::uint32_t kXdpPropertiesResponseBytes = 72;  // without block words
inline constexpr std::uint32_t kXdpPropertiesChangedBytes = 48;
inline constexpr std::uint32_t kXdpOneWordBytes = 36;  // error, link state change and its response
inline constexpr std::uint32_t kXdpLinkStatusResponseBytes = 40;

// Header and type of a packet that is being built.
struct USB4_XDP_HEADER {
  USB4_ROUTE Route;
  std::uint32_t Sequence;  // modulo 4
  USB4_XDP_TYPE Type;
  std::uint32_t Bytes;  // of the whole packet
};

// Writes words 0 to 7; nothing without a channel.
void KivUsb4XdpFillHeader(const USB4_CTL* channel, std::uint32_t* packet, const USB4_XDP_HEADER& header);

// Of a received packet, whose header is complete. The top bit of the route, which marks it as received, is cleared.
[[nodiscard]] USB4_ROUTE XdpRoute(const std::uint32_t* packet);
[[nodiscard]] std::uint32_t XdpSequence(const std::uint32_t* packet);
[[nodiscard]] bool XdpProtocolIs(const std::uint32_t* packet, const std::uint8_t (&uuid)[16]);
// For the trace; "unknown" for a type that there is not.
[[nodiscard]] const char* XdpTypeName(std::uint32_t type);
// Whether the packet's own length field tells its size, and its header is whole.
[[nodiscard]] bool XdpLengthIsRight(const std::uint32_t* packet, std::uint32_t bytes);

// What a peer's answer comes to: 0 unless it is an error response, and for an error of unknown code; -5, -524 or -525
// for the codes 1 and 2, 3 and 4.
[[nodiscard]] KIV_RESULT KivUsb4XdpHandleError(const std::uint32_t* response);
