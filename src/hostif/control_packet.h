// The layout of control packets: headers, CRC, checks of what came in. Any IRQL; touches nothing but the packet.
//
// On the wire a packet is big-endian dwords followed by their CRC-32C, big-endian too. The driver keeps packets in host
// order and swaps every dword on the way into and out of a DMA buffer.
#pragma once
#include <cstdint>

#include "include/config_space.h"
#include "include/control_channel_record.h"

// Route high and route low, host order.
struct USB4_CFG_HEADER {
  std::uint32_t RouteHigh;
  std::uint32_t RouteLow;
};

// Route high of a received packet: route bits 32 to 53, and the mark that only received packets carry.
struct RouteHighWord {
  using Route = Bits<0, 22>;
  using Mark = Bits<22, 10>;
};
inline constexpr std::uint32_t kReceivedRouteMark = 0x200;

// Dword 2 of a received notification.
struct ErrorWord {
  using Code = Bits<0, 4>;
  using Zero1 = Bits<4, 4>;
  using Adapter = Bits<8, 6>;
  using Zero2 = Bits<14, 2>;
  using Zero3 = Bits<16, 14>;
};

// Dword 2 of the acknowledgement of a hot-plug event.
struct PlugAckWord {
  using Code = Bits<0, 8>;
  using Adapter = Bits<8, 6>;
  using Plug = Bits<30, 2>;  // 2 plug, 3 unplug
};

// Dword 2 of a hot-plug event.
struct HotplugWord {
  using Adapter = Bits<0, 6>;
  using Unplug = Bit<31>;
};

struct USB4_PACKET_EXPECTATION {
  std::uint32_t Bytes;
  std::uint32_t Pdf;
  USB4_ROUTE Route;
};

constexpr std::uint32_t SwapBytes(std::uint32_t word) {
  return word << 24 | (word << 8 & 0x00FF0000u) | (word >> 8 & 0x0000FF00u) | word >> 24;
}

// A route of more than 54 bits is traced and truncated.
[[nodiscard]] USB4_CFG_HEADER Usb4CfgMakeHeader(USB4_ROUTE route);
[[nodiscard]] USB4_ROUTE Usb4CfgParseRoute(const USB4_CFG_HEADER& header);
// The route of a packet in host order.
[[nodiscard]] USB4_ROUTE PacketRoute(const std::uint32_t* packet);

// 0, or kKivIoError at the first difference: size, type, the start-of-frame field, the received mark, the route.
[[nodiscard]] KIV_RESULT KivUsb4CheckHeader(const USB4_CTL_PKG* packet, const USB4_PACKET_EXPECTATION& expected);
// An error packet decodes to its error; anything else to the outcome of the header check.
[[nodiscard]] USB4_CFG_RESULT KivUsb4ParseHeader(const USB4_CTL_PKG* packet, const USB4_PACKET_EXPECTATION& expected);
// Err is kKivErrorPacket with the router's code and adapter, or kKivIoError for a malformed packet.
[[nodiscard]] USB4_CFG_RESULT KivUsb4DecodeError(const USB4_CTL_PKG* packet);
// 0 when an answer's address word echoes what was asked, else -1. Adapter and sequence number are not looked at.
[[nodiscard]] KIV_RESULT KivUsb4CheckConfigAddress(std::uint32_t addressWord, const USB4_REGISTER_RANGE& asked);
// Whether a packet is a notification that nobody asked for. In effect never: see the definition.
[[nodiscard]] bool KivUsb4AsyncError(const USB4_CTL_PKG* packet);

// Writes a packet of `bytes` bytes (a multiple of 4, at most 252) into the DMA buffer in wire order, adds the CRC and
// sets size and both type fields of the frame word.
void BuildPacket(USB4_CTL_PKG* packet, const std::uint32_t* words, std::uint32_t bytes, std::uint32_t pdf);
// Takes the CRC off a received packet whose size the caller has checked, compares it over the wire bytes and turns the
// packet into host order in place. True when the CRC was good.
[[nodiscard]] bool UnpackReceived(USB4_CTL_PKG* packet);
