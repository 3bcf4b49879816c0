// Control packets as they stand on the wire: big-endian dwords, then a CRC-32C of four bytes.
//
// The hardware's own codec. A packet here is its dwords in host order without the CRC; the wire form is bytes.
#pragma once
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace sim {

enum class Pdf : std::uint8_t {
  Read = 1,
  Write = 2,
  Notification = 3,  // error packet to the manager, acknowledgement from it
  HotPlug = 5,
  InterDomainRequest = 6,
  InterDomainResponse = 7,
  FirmwareHandover = 11,  // to the connection manager in the host router's firmware: no route
  FirmwareHandoverAnswer = 12,
};

enum class Space : std::uint8_t { Path = 0, Adapter = 1, Router = 2, Counters = 3 };

// Error codes that a router answers with.
enum class ErrorCode : std::uint8_t {
  NotConnected = 0,
  LinkError = 1,
  NoSuchAddress = 2,
  NoSuchAdapter = 4,
  Acknowledge = 7,
  NotEnumerated = 8,
  NotForThisManager = 9,
  WrongLength = 10,
  HeaderError = 11,
  FlowControl = 12,
  PlugEvent = 13,
  Locked = 14,
};

inline constexpr unsigned kMaxPacketDwords = 63;  // 252 bytes, so that packet and CRC fit a 256-byte buffer
inline constexpr unsigned kHeaderDwords = 3;

// Dword 2 of read and write packets.
struct AddressWord {
  std::uint32_t offset = 0;   // dwords, 13 bits
  std::uint32_t length = 0;   // dwords, 6 bits
  std::uint32_t adapter = 0;  // 6 bits
  Space space = Space::Path;
  std::uint32_t sequence = 0;  // 2 bits
  std::uint32_t reserved = 0;  // bits 31:29

  static AddressWord Decode(std::uint32_t word);
  std::uint32_t Encode() const;
};

// A packet in host order. Dwords 0 and 1 are the route, when there are that many.
struct ControlPacket {
  Pdf pdf = Pdf::Read;
  std::vector<std::uint32_t> dwords;

  std::uint64_t Route() const;       // 54 bits; 0 when the packet is shorter than its header
  std::uint32_t HeaderBits() const;  // bits 31:22 of route high
  AddressWord Address() const { return AddressWord::Decode(Word(2)); }
  std::uint32_t Word(std::size_t index) const { return index < dwords.size() ? dwords[index] : 0; }
};

std::uint32_t Crc32c(std::span<const std::uint8_t> bytes);

// Header dwords of `route`. `up` marks a packet towards the manager (0x200 in bits 31:22 of route high).
// Room for `room` dwords is set aside at once.
std::vector<std::uint32_t> RouteHeader(std::uint64_t route, bool up, std::size_t room = kHeaderDwords);

std::vector<std::uint8_t> EncodePacket(const ControlPacket& packet);

struct DecodedPacket {
  ControlPacket packet;
  bool crcGood = false;
};
// True for a whole number of dwords, at least the header's three, and a CRC.
bool HasHeader(std::span<const std::uint8_t> bytes);
// Dword `index` of a packet that has it, without decoding the rest.
std::uint32_t PeekWord(std::span<const std::uint8_t> bytes, std::size_t index);
// None when the bytes are fewer than a CRC or no whole number of dwords.
std::optional<DecodedPacket> DecodePacket(Pdf pdf, std::span<const std::uint8_t> bytes);

ControlPacket ReadResponse(std::uint64_t route, AddressWord address, std::span<const std::uint32_t> data);
ControlPacket WriteResponse(std::uint64_t route, AddressWord address);
ControlPacket ErrorPacket(std::uint64_t route, unsigned adapter, ErrorCode code);
ControlPacket HotPlugPacket(std::uint64_t route, unsigned adapter, bool unplug);

const char* SpaceName(Space space);
const char* ErrorName(unsigned code);

// "READ route=0 adapter=3 space=adapter offset=0x000 length=8 seq=0 data=..." without time and direction.
// `up`: from the routers to the manager; the same PDF reads differently in the two directions.
std::string DescribePacket(const ControlPacket& packet, bool up);

}  // namespace sim
