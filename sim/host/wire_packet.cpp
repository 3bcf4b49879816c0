// Control packets as they stand on the wire.
#include "sim/host/wire_packet.h"

#include <array>
#include <cstdio>

#include "sim/host/inter_domain_packet.h"

namespace sim {
namespace {

constexpr std::uint32_t kPolynomial = 0x82F63B78;
constexpr std::uint32_t kUpHeaderBits = 0x200;
constexpr std::uint32_t kRouteHighMask = 0x3FFFFF;

using Tables = std::array<std::array<std::uint32_t, 256>, 4>;

// tables[k][b]: what byte b does to the remainder after k more bytes of zero.
constexpr Tables MakeTables() {
  Tables tables{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t crc = i;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? kPolynomial : 0);
    tables[0][i] = crc;
  }
  for (std::size_t k = 1; k < 4; ++k) {
    for (std::size_t i = 0; i < 256; ++i) tables[k][i] = tables[k - 1][i] >> 8 ^ tables[0][tables[k - 1][i] & 0xFF];
  }
  return tables;
}

constexpr Tables kTables = MakeTables();

void StoreBig(std::uint8_t* bytes, std::uint32_t word) {
  bytes[0] = static_cast<std::uint8_t>(word >> 24);
  bytes[1] = static_cast<std::uint8_t>(word >> 16);
  bytes[2] = static_cast<std::uint8_t>(word >> 8);
  bytes[3] = static_cast<std::uint8_t>(word);
}

std::uint32_t LoadBig(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
         static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
}

template <class... Values>
std::string Format(const char* format, Values... values) {
  char text[128];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

std::string DescribeAccess(const ControlPacket& packet) {
  const AddressWord address = packet.Address();
  std::string text =
      Format("%s route=%llx adapter=%u space=%s offset=0x%03x length=%u seq=%u",
             packet.pdf == Pdf::Read ? "READ" : "WRITE", static_cast<unsigned long long>(packet.Route()),
             address.adapter, SpaceName(address.space), address.offset, address.length, address.sequence);
  if (address.reserved != 0) text += Format(" reserved=%u", address.reserved);
  for (std::size_t i = kHeaderDwords; i < packet.dwords.size(); ++i) {
    text += Format(i == kHeaderDwords ? " data=%08x" : " %08x", packet.dwords[i]);
  }
  return text;
}

std::string DescribeNotification(const ControlPacket& packet, bool up) {
  const std::uint32_t word = packet.Word(2);
  const auto route = static_cast<unsigned long long>(packet.Route());
  const unsigned adapter = (word >> 8) & 0x3F;
  if (!up) return Format("ACK route=%llx adapter=%u %s", route, adapter, word >> 30 == 3 ? "unplug" : "plug");
  return Format("ERROR route=%llx adapter=%u code=%u (%s)", route, adapter, word & 0xF, ErrorName(word & 0xF));
}

}  // namespace

AddressWord AddressWord::Decode(std::uint32_t word) {
  AddressWord address;
  address.offset = word & 0x1FFF;
  address.length = (word >> 13) & 0x3F;
  address.adapter = (word >> 19) & 0x3F;
  address.space = static_cast<Space>((word >> 25) & 3);
  address.sequence = (word >> 27) & 3;
  address.reserved = word >> 29;
  return address;
}

std::uint32_t AddressWord::Encode() const {
  return (offset & 0x1FFF) | (length & 0x3F) << 13 | (adapter & 0x3F) << 19 | static_cast<std::uint32_t>(space) << 25 |
         (sequence & 3) << 27 | reserved << 29;
}

std::uint64_t ControlPacket::Route() const {
  return dwords.size() < 2 ? 0 : static_cast<std::uint64_t>(dwords[0] & kRouteHighMask) << 32 | dwords[1];
}

std::uint32_t ControlPacket::HeaderBits() const {
  return Word(0) >> 22;
}

std::uint32_t Crc32c(std::span<const std::uint8_t> bytes) {
  std::uint32_t crc = ~0u;
  const std::uint8_t* next = bytes.data();
  std::size_t left = bytes.size();
  for (; left >= 4; left -= 4, next += 4) {
    crc = kTables[3][(crc ^ next[0]) & 0xFF] ^ kTables[2][(crc >> 8 ^ next[1]) & 0xFF] ^
          kTables[1][(crc >> 16 ^ next[2]) & 0xFF] ^ kTables[0][crc >> 24 ^ next[3]];
  }
  for (; left != 0; --left, ++next) crc = (crc >> 8) ^ kTables[0][(crc ^ *next) & 0xFF];
  return ~crc;
}

std::vector<std::uint32_t> RouteHeader(std::uint64_t route, bool up, std::size_t room) {
  const std::uint32_t high = static_cast<std::uint32_t>(route >> 32) & kRouteHighMask;
  std::vector<std::uint32_t> dwords;
  dwords.reserve(room);
  dwords.push_back(high | (up ? kUpHeaderBits << 22 : 0));
  dwords.push_back(static_cast<std::uint32_t>(route));
  return dwords;
}

std::vector<std::uint8_t> EncodePacket(const ControlPacket& packet) {
  std::vector<std::uint8_t> bytes(4 * packet.dwords.size() + 4);
  std::uint8_t* next = bytes.data();
  for (std::uint32_t word : packet.dwords) StoreBig(next, word), next += 4;
  StoreBig(next, Crc32c({bytes.data(), next}));
  return bytes;
}

bool HasHeader(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 4 * (kHeaderDwords + 1) && bytes.size() % 4 == 0;
}

std::uint32_t PeekWord(std::span<const std::uint8_t> bytes, std::size_t index) {
  return LoadBig(bytes.data() + 4 * index);
}

std::optional<DecodedPacket> DecodePacket(Pdf pdf, std::span<const std::uint8_t> bytes) {
  if (bytes.size() < 4 || bytes.size() % 4 != 0) return std::nullopt;
  DecodedPacket decoded;
  decoded.packet.pdf = pdf;
  const std::size_t length = bytes.size() - 4;
  decoded.packet.dwords.resize(length / 4);
  const std::uint8_t* next = bytes.data();
  for (std::uint32_t& word : decoded.packet.dwords) word = LoadBig(next), next += 4;
  decoded.crcGood = LoadBig(bytes.data() + length) == Crc32c(bytes.first(length));
  return decoded;
}

ControlPacket ReadResponse(std::uint64_t route, AddressWord address, std::span<const std::uint32_t> data) {
  ControlPacket packet{Pdf::Read, {}};
  packet.dwords = RouteHeader(route, true, kHeaderDwords + data.size());
  packet.dwords.push_back(address.Encode());
  packet.dwords.insert(packet.dwords.end(), data.begin(), data.end());
  return packet;
}

ControlPacket WriteResponse(std::uint64_t route, AddressWord address) {
  ControlPacket packet{Pdf::Write, RouteHeader(route, true)};
  packet.dwords.push_back(address.Encode());
  return packet;
}

ControlPacket ErrorPacket(std::uint64_t route, unsigned adapter, ErrorCode code) {
  ControlPacket packet{Pdf::Notification, RouteHeader(route, true)};
  packet.dwords.push_back(static_cast<std::uint32_t>(code) | (adapter & 0x3F) << 8);
  return packet;
}

ControlPacket HotPlugPacket(std::uint64_t route, unsigned adapter, bool unplug) {
  ControlPacket packet{Pdf::HotPlug, RouteHeader(route, true)};
  packet.dwords.push_back((adapter & 0x3F) | (unplug ? 1u << 31 : 0));
  return packet;
}

const char* SpaceName(Space space) {
  static constexpr const char* kNames[4] = {"path", "adapter", "router", "counters"};
  return kNames[static_cast<unsigned>(space) & 3];
}

const char* ErrorName(unsigned code) {
  switch (static_cast<ErrorCode>(code)) {
    case ErrorCode::NotConnected:
      return "not connected";
    case ErrorCode::LinkError:
      return "link error";
    case ErrorCode::NoSuchAddress:
      return "no such address or space";
    case ErrorCode::NoSuchAdapter:
      return "no such adapter";
    case ErrorCode::Acknowledge:
      return "acknowledgement";
    case ErrorCode::NotEnumerated:
      return "router not enumerated";
    case ErrorCode::NotForThisManager:
      return "not for this route's manager";
    case ErrorCode::WrongLength:
      return "wrong length";
    case ErrorCode::HeaderError:
      return "header error";
    case ErrorCode::FlowControl:
      return "flow control error";
    case ErrorCode::PlugEvent:
      return "plug-event error";
    case ErrorCode::Locked:
      return "adapter locked";
  }
  return "unknown";
}

std::string DescribePacket(const ControlPacket& packet, bool up) {
  const auto route = static_cast<unsigned long long>(packet.Route());
  if (packet.dwords.size() >= kHeaderDwords) {
    if (packet.pdf == Pdf::Read || packet.pdf == Pdf::Write) return DescribeAccess(packet);
    if (packet.pdf == Pdf::Notification) return DescribeNotification(packet, up);
    if (packet.pdf == Pdf::HotPlug) {
      return Format("%s route=%llx adapter=%u", packet.Word(2) >> 31 != 0 ? "UNPLUG" : "PLUG", route,
                    packet.Word(2) & 0x3F);
    }
  }
  if (IsInterDomain(packet)) return DescribeInterDomain(packet);
  if (!packet.dwords.empty() && (packet.pdf == Pdf::FirmwareHandover || packet.pdf == Pdf::FirmwareHandoverAnswer)) {
    return Format("HANDOVER%s command=%u", packet.pdf == Pdf::FirmwareHandoverAnswer ? "-ANSWER" : "", packet.Word(0));
  }
  return Format("PDF%u dwords=%u", static_cast<unsigned>(packet.pdf), static_cast<unsigned>(packet.dwords.size()));
}

}  // namespace sim
