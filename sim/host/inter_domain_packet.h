// Inter-domain packets: what the managers of two domains send each other over the link between them.
//
// The discovery protocol word by word. A route in a packet is the one of the domain in which the packet is at that
// moment; word 0 bit 31 is set when it comes in over the link.
#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "sim/host/complaints.h"
#include "sim/host/wire_packet.h"

namespace sim {

// Sixteen bytes as they stand in packets: word i is bytes 4i to 4i+3, the first in bits 7:0.
using Uuid = std::array<std::uint32_t, 4>;
std::string UuidText(const Uuid& uuid);  // "89abcd01-01234567-ffffffff-ffffffff", word by word

inline constexpr Uuid kDiscoveryProtocol{0x0ED738B6, 0xBB40FF42, 0xE290C297, 0x07FFB2C0};
inline constexpr Uuid kNetworkProtocol{0x9E588F79, 0x478A1636, 0x6456C697, 0xDDC820A9};

enum class DiscoveryType : std::uint32_t {
  OldUuidRequest = 1,
  UuidResponse = 2,
  PropertiesRequest = 3,
  PropertiesResponse = 4,
  PropertiesChangedRequest = 5,
  PropertiesChangedResponse = 6,
  ErrorResponse = 7,
  UuidRequest = 12,
  LinkStatusRequest = 15,
  LinkStatusResponse = 16,
  LinkChangeRequest = 17,
  LinkChangeResponse = 18,
};

// Words 0 to 7: route, length and sequence number, protocol, type.
inline constexpr unsigned kDiscoveryHeaderWords = 8;
inline constexpr unsigned kPropertiesResponseWords = 18;  // before the words of the block
inline constexpr unsigned kBlockWordsPerPacket = 45;

// Word 8 of an error response. Anything else is no known error.
enum class DiscoveryError : std::uint32_t { UnknownPacket = 1, UnknownDomain = 2, NotSupported = 3, NotReady = 4 };

// A packet as a manager sends it, with a true length.
ControlPacket MakeDiscoveryPacket(Pdf pdf, std::uint64_t route, unsigned sequence, DiscoveryType type,
                                  std::span<const std::uint32_t> payload = {});

Uuid UuidAt(const ControlPacket& packet, std::size_t word);
bool IsInterDomain(const ControlPacket& packet);  // by its type
bool IsDiscovery(const ControlPacket& packet);    // has a whole header with the protocol's UUID
DiscoveryType TypeOf(const ControlPacket& packet);
unsigned SequenceOf(const ControlPacket& packet);
// True when `answer` is the answer to `request`, or an error response.
bool Answers(DiscoveryType answer, DiscoveryType request);
// Whether packets of this type are requests or responses; none for a type that there is not.
std::optional<Pdf> PdfOf(DiscoveryType type);
std::size_t WordsInAll(std::uint32_t lengthWord);  // of a packet with this word 2
const char* DiscoveryName(DiscoveryType type);     // "UUID-REQUEST"; "UNKNOWN" for a type that there is not

// Every field of the packet behind the route, by name; words that the type does not have come as "word N".
using NamedFields = std::vector<std::pair<std::string, std::string>>;
NamedFields InterDomainFields(const ControlPacket& packet);
// "UUID-REQUEST", or "inter-domain packet" for what is no known discovery packet.
std::string InterDomainName(const ControlPacket& packet);
// What a correct receiver rejects.
using Faults = std::vector<Fault>;
Faults InterDomainFaults(const ControlPacket& packet);
// "UUID-REQUEST route=1 seq=2"; "XDOMAIN-REQUEST route=1 dwords=5" for what is no discovery packet.
std::string DescribeInterDomain(const ControlPacket& packet);

}  // namespace sim
