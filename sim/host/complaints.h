// What the hardware holds against the driver: reserved bits, unknown registers, wrong lengths. One line each, with the
// name by which waivers and documents call it, and its message. A rule that no test breaks fails the suite.
#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/time.h"
#include "sim/host/wire_packet.h"

namespace sim {

// X(enumerator, "name", "message"); the names in braces are fields of ComplaintArguments.
#define SIM_COMPLAINTS(X)                                                                                              \
  /* registers of a router */                                                                                          \
  X(ReadOnlyBits, "read-only-bits", "write of {value} changes read-only bits {bits} of {space} dword {dword}")         \
  X(PreservedBits, "preserved-bits", "write of {value} changes preserved bits {bits} of {space} dword {dword}")        \
  X(ReservedBits, "reserved-bits", "write of {value} sets reserved bits {bits} of {space} dword {dword}")              \
  X(UnknownDword, "unknown-dword", "write of {value} to {space} dword {dword}, which does not exist")                  \
  /* control packets */                                                                                                \
  X(FramePdfs, "frame-pdfs", "control packet with start-of-frame PDF {index} and end-of-frame PDF {limit}")            \
  X(PacketBytes, "packet-bytes", "control packet of {count} bytes, which is no whole number of dwords")                \
  X(PacketCrc, "packet-crc", "packet with a wrong CRC")                                                                \
  X(PacketLength, "packet-length", "packet of {count} dwords; a header has {limit}")                                   \
  X(PacketType, "packet-type", "packet of type {index}, which no router takes")                                        \
  X(RequestHeader, "request-header", "request with bits {bits} in 31:22 of its first dword")                           \
  X(RequestLength, "request-length", "{other} of {count} dwords in a packet of {limit}")                               \
  X(RequestReserved, "request-reserved", "request with reserved bits in its address word {value}")                     \
  X(Acknowledgement, "acknowledgement", "malformed acknowledgement {value}")                                           \
  X(HandOverRequest, "hand-over-request", "malformed request to hand over the domain")                                 \
  /* inter-domain packets */                                                                                           \
  X(InterDomainWords, "inter-domain-words", "inter-domain packet of {count} words; the header has {limit}")            \
  X(InterDomainLength, "inter-domain-length", "{other}: length {index} where {count} words follow")                    \
  X(InterDomainReserved, "inter-domain-reserved", "{other}: length word {value} with reserved bits")                   \
  X(InterDomainHeader, "inter-domain-header", "{other}: bits {bits} in 31:22 of the first dword")                      \
  X(InterDomainProtocol, "inter-domain-protocol", "inter-domain packet of unknown protocol {other}")                   \
  X(InterDomainItself, "inter-domain-itself", "inter-domain packet to the host's own router")                          \
  X(DiscoveryUnknown, "discovery-type", "discovery packet of unknown type {index}")                                    \
  X(DiscoveryPdf, "discovery-pdf", "{other} sent with PDF {index}, not {limit}")                                       \
  X(DiscoveryWords, "discovery-words", "{other} of {count} words; it has {limit}")                                     \
  X(DiscoveryUuid, "discovery-uuid", "{other} with a UUID that is not the host's")                                     \
  X(DiscoveryUnasked, "discovery-unasked", "{other} answers no request")                                               \
  X(ArrivedOn, "arrived-on", "UUID response says that its request came on route {route}")                              \
  X(BlockPiece, "block-piece", "{count} block words in a packet; it carries 1 to {limit}")                             \
  X(BlockRange, "block-range", "block words {index} to {count} of a block of {limit}")                                 \
  X(OffsetReserved, "offset-reserved", "properties request with reserved bits in its offset word {value}")             \
  X(TargetWidth, "target-width", "link change to target width {index}; it is 1 or 3")                                  \
  /* a router as a whole */                                                                                            \
  X(ConfiguredRoute, "configured-route", "configured for route {route} and depth {count}")                             \
  X(ConfiguredUpstream, "configured-upstream", "configured with upstream adapter {index}; packets come in by {limit}") \
  X(ManagerVersion, "manager-version", "configured by a manager of version {value}, not {expected}")                   \
  X(OperationBusy, "operation-busy", "router operation {value} started while {expected} runs")                         \
  X(DromMetadata, "drom-metadata", "DROM read with metadata {value}")                                                  \
  X(DisplayResource, "display-resource", "display resource of adapter {index}, which is no DP IN")                     \
  X(SinkState, "sink-state", "display sink {index} put into state {value}, which is not the manager's")                \
  /* protocol adapters and their paths */                                                                              \
  X(DpHandshake, "dp-handshake", "DP handshake with a router that has none")                                           \
  X(Usb3Consent, "usb3-consent", "USB3 bandwidth {value} written without the adapter's consent")                       \
  X(NoPathYet, "no-path-yet", "switched on before a path begins here")                                                 \
  X(EntryReserved, "entry-reserved", "path entry {hop} made valid; hop IDs below {limit} are not for paths")           \
  X(EntryPending, "entry-pending", "path entry {hop} made valid before it has drained")                                \
  X(EntryCounter, "entry-counter", "path entry {hop} counts into set {index} of {limit}")                              \
  X(EntryAdapter, "entry-adapter", "path entry {hop} leads to adapter {index}, which is none")                         \
  X(EntryHopLimit, "entry-hop-limit", "path entry {hop} leaves by {other} with hop ID {index}; its limit is {limit}")  \
  X(EntryHopReserved, "entry-hop-reserved",                                                                            \
    "path entry {hop} leaves by {other} with hop ID {index}, which is not for paths")                                  \
  /* the host interface and its rings */                                                                               \
  X(UnknownRegisterRead, "unknown-register-read", "read of register {offset}, which does not exist")                   \
  X(UnknownRegisterWrite, "unknown-register-write", "write of {value} to register {offset}, which does not exist")     \
  X(ReadOnlyRegister, "read-only-register", "write of {value} to read-only register {offset}")                         \
  X(InterruptMask, "interrupt-mask", "interrupt mask of rings that do not exist: {bits}")                              \
  X(Throttling, "throttling", "write of {value} sets reserved bits of a throttling register")                          \
  X(RingRunning, "ring-running", "set-up register written with {value} while the ring runs")                           \
  X(RingSize, "ring-size", "write of {value} sets reserved bits of the size register")                                 \
  X(RingPdfMasks, "ring-pdf-masks", "PDF masks {value} of a transmit ring written")                                    \
  X(RingIndexReserved, "ring-index-reserved", "write of {value} sets the reserved half of the index register")         \
  X(RingIndexRange, "ring-index-range", "index {index} of a ring of {limit} descriptors written")                      \
  X(RingIndexStopped, "ring-index-stopped", "index register written with {value} while the ring does not run")         \
  X(RingControl, "ring-control", "write of {value} sets reserved bits of the control register")                        \
  X(RingTable, "ring-table", "started without a descriptor table")                                                     \
  X(RingShort, "ring-short", "started with {count} descriptors")                                                       \
  X(DescriptorFlags, "descriptor-flags", "descriptor posted with flags {value}")                                       \
  X(DescriptorEnd, "descriptor-end", "descriptor posted with last dword {value}")                                      \
  X(FrameLength, "frame-length", "frame of {count} bytes in raw mode")                                                 \
  /* its PCI function */                                                                                               \
  X(ConfigurationRead, "configuration-read", "configuration read at offset {offset}")                                  \
  X(ConfigurationOffset, "configuration-offset", "configuration write at offset {offset}")                             \
  X(ConfigurationWrite, "configuration-write", "configuration write of {value} to offset {offset}")                    \
  X(PowerRequest, "power-request", "power request {value} written where {expected} was due")                           \
  X(PowerCommand, "power-command", "power command {value} does not echo the status word {expected}")

enum class Complaint : unsigned {
#define X(enumerator, name, message) enumerator,
  SIM_COMPLAINTS(X)
#undef X
      Count
};

const char* ComplaintName(Complaint rule);

// Numbers are told as their rule's message needs them.
struct ComplaintArguments {
  std::optional<std::uint32_t> value = {}, bits = {}, expected = {};  // in hex, eight digits
  std::optional<std::uint32_t> offset = {};                           // in hex, five digits
  std::optional<std::uint64_t> route = {};
  std::optional<Space> space = {};
  std::optional<std::uint32_t> dword = {}, hop = {}, index = {}, count = {}, limit = {};
  std::string other = {};  // another adapter, "D1:1"; an operation, "read"
  bool operator==(const ComplaintArguments&) const = default;
};

// A rule that something breaks, before an object is blamed for it.
struct Fault {
  Complaint rule = Complaint::Count;
  ComplaintArguments arguments;
  std::string Text() const;  // the message alone
};

struct ProtocolError {
  platform::Time when = 0;  // of the first occurrence
  Complaint rule = Complaint::Count;
  std::string object;  // "D1:3 (route 1)", "H1 transmit ring 0"
  ComplaintArguments arguments;
  std::uint64_t count = 1;
  std::string Text() const;  // "D1:3 (route 1): switched on before a path begins here [no-path-yet]"
};

// How a part of the hardware complains; its owner knows which object it is.
using Complain = std::function<void(Complaint rule, ComplaintArguments arguments)>;

// The list that the tool prints, and fails on. Complaints of one rule about one object are one entry when nothing but
// the value differs, so that a loop does not bury the first mistake.
class ProtocolErrors {
 public:
  void Report(platform::Time when, Complaint rule, std::string object, ComplaintArguments arguments);
  const std::vector<ProtocolError>& list() const { return list_; }
  bool empty() const { return list_.empty(); }
  void Clear() { list_.clear(); }

 private:
  std::vector<ProtocolError> list_;
};

}  // namespace sim
