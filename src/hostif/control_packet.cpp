// The codec of control packets.
#include "hostif/control_packet.h"

#include "hostif/crc32c.h"
#include "include/trace.h"

namespace {

std::int32_t SignExtend4(std::uint32_t nibble) {
  return nibble >= 8 ? static_cast<std::int32_t>(nibble) - 16 : static_cast<std::int32_t>(nibble);
}

KIV_RESULT CheckField(const char* field, std::uint64_t expected, std::uint64_t found) {
  if (expected == found) return kKivOk;
  TraceErrorBy(NAME_OF(KivUsb4CheckHeader), "header field differs", "field", field, "expected", expected, "found",
               found);
  return kKivIoError;
}

void TraceUnlessZero(const char* bits, std::uint32_t found) {
  if (found != 0) {
    TraceWarningBy(NAME_OF(KivUsb4DecodeError), "bits of the error word should be zero", "bits", bits, "found",
                   AsHex(found));
  }
}

KIV_RESULT CheckAddressField(const char* field, std::uint64_t asked, std::uint64_t found) {
  if (asked == found) return kKivOk;
  TraceErrorBy(NAME_OF(KivUsb4CheckConfigAddress), "address word does not echo the request", "field", field, "asked",
               asked, "found", found);
  return kKivFailed;
}

}  // namespace

USB4_CFG_HEADER Usb4CfgMakeHeader(USB4_ROUTE route) {
  const USB4_CFG_HEADER header = {RouteHighWord::Route::Of(static_cast<std::uint32_t>(route >> 32)),
                                  static_cast<std::uint32_t>(route)};
  if (Usb4CfgParseRoute(header) != route) TraceError("route does not fit a header", "route", AsRoute(route));
  return header;
}

USB4_ROUTE Usb4CfgParseRoute(const USB4_CFG_HEADER& header) {
  return static_cast<USB4_ROUTE>(RouteHighWord::Route::Get(header.RouteHigh)) << 32 | header.RouteLow;
}

USB4_ROUTE PacketRoute(const std::uint32_t* packet) {
  return Usb4CfgParseRoute({packet[0], packet[1]});
}

KIV_RESULT KivUsb4CheckHeader(const USB4_CTL_PKG* packet, const USB4_PACKET_EXPECTATION& expected) {
  if (KIV_RESULT result = CheckField("size", expected.Bytes, packet->Bytes())) return result;
  if (KIV_RESULT result = CheckField("type", expected.Pdf, packet->Pdf())) return result;
  if (KIV_RESULT result = CheckField("start of frame", 0, FrameWord::StartPdf::Get(packet->Frame.Word))) return result;
  const std::uint32_t mark = RouteHighWord::Mark::Get(packet->Buffer[0]);
  if (KIV_RESULT result = CheckField("received mark", kReceivedRouteMark, mark)) return result;
  const USB4_ROUTE route = PacketRoute(packet->Buffer);
  if (route == expected.Route) return kKivOk;
  TraceError("header field differs", "field", "route", "expected", AsRoute(expected.Route), "found", AsRoute(route));
  return kKivIoError;
}

USB4_CFG_RESULT KivUsb4ParseHeader(const USB4_CTL_PKG* packet, const USB4_PACKET_EXPECTATION& expected) {
  if (packet->Pdf() == USB4_PDF_NOTIFICATION) {
    TraceError("error packet instead of an answer", "route", AsRoute(expected.Route), "type",
               AsWord(PacketTypeName(expected.Pdf)));
    return KivUsb4DecodeError(packet);
  }
  return {PacketRoute(packet->Buffer), 0, KivUsb4CheckHeader(packet, expected), 0};
}

USB4_CFG_RESULT KivUsb4DecodeError(const USB4_CTL_PKG* packet) {
  const USB4_ROUTE route = PacketRoute(packet->Buffer);
  const KIV_RESULT header = KivUsb4CheckHeader(packet, {kControlHeaderBytes, USB4_PDF_NOTIFICATION, route});
  if (header != kKivOk) return {route, 0, header, 0};
  const std::uint32_t word = packet->Buffer[2];
  TraceUnlessZero("4 to 7", ErrorWord::Zero1::Get(word));
  TraceUnlessZero("14 to 15", ErrorWord::Zero2::Get(word));
  TraceUnlessZero("16 to 29", ErrorWord::Zero3::Get(word));
  // Codes 8 to 15 come out negative: whoever compares a code compares it as signed.
  return {route, ErrorWord::Adapter::Get(word), kKivErrorPacket, SignExtend4(ErrorWord::Code::Get(word))};
}

KIV_RESULT KivUsb4CheckConfigAddress(std::uint32_t addressWord, const USB4_REGISTER_RANGE& asked) {
  using Address = USB4_CFG_ADDRESS;
  if (KIV_RESULT result = CheckAddressField("reserved", 0, Address::Reserved::Get(addressWord))) return result;
  if (KIV_RESULT result = CheckAddressField("space", asked.Space, Address::Space::Get(addressWord))) return result;
  if (KIV_RESULT result = CheckAddressField("offset", asked.Offset, Address::Offset::Get(addressWord))) return result;
  return CheckAddressField("length", asked.Length, Address::Length::Get(addressWord));
}

bool KivUsb4AsyncError(const USB4_CTL_PKG* packet) {
  if (packet->Pdf() != USB4_PDF_NOTIFICATION) return false;
  // The code compared here is the low nibble of the buffer's address, not of the error word. Buffers are aligned to 16
  // bytes and more, so it is always 0: every error packet goes on to the oldest outstanding request. Requests rely on
  // that to fail at once instead of timing out, so it must stay.
  const auto code = SignExtend4(static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(packet->Buffer) & 0xF));
  return code == 1 || code == 12 || code == 13;
}

void BuildPacket(USB4_CTL_PKG* packet, const std::uint32_t* words, std::uint32_t bytes, std::uint32_t pdf) {
  KivAssert(bytes % 4 == 0 && bytes <= kControlMostBytes);
  const std::uint32_t count = bytes / 4;
  for (std::uint32_t i = 0; i < count; ++i) packet->Buffer[i] = SwapBytes(words[i]);
  packet->Buffer[count] = SwapBytes(Crc32c(packet->Buffer, bytes));
  packet->Frame.Word =
      FrameWord::Size::Of(bytes + kControlCrcBytes) | FrameWord::EndPdf::Of(pdf) | FrameWord::StartPdf::Of(pdf);
}

bool UnpackReceived(USB4_CTL_PKG* packet) {
  const std::uint32_t bytes = packet->Bytes() - kControlCrcBytes;
  packet->Frame.Word = FrameWord::Size::Put(packet->Frame.Word, bytes);
  const std::uint32_t count = bytes / 4;
  const bool good = SwapBytes(packet->Buffer[count]) == Crc32c(packet->Buffer, bytes);
  for (std::uint32_t i = 0; i < count; ++i) packet->Buffer[i] = SwapBytes(packet->Buffer[i]);
  return good;
}
