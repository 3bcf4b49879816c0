// How a router answers the control packets that end at it.
#include <utility>

#include "sim/router/router.h"

namespace sim {
namespace {

constexpr unsigned kMaxDataDwords = kMaxPacketDwords - kHeaderDwords;
constexpr unsigned kLastHeaderDword = 4;

}  // namespace

std::optional<ControlPacket> Router::Handle(const ControlPacket& packet, unsigned arrival) {
  switch (packet.pdf) {
    case Pdf::Read:
    case Pdf::Write:
      return HandleAccess(packet, arrival);
    case Pdf::Notification:
      HandleAcknowledge(packet);
      return std::nullopt;
    case Pdf::InterDomainRequest:
    case Pdf::InterDomainResponse:
      // A peer that was replaced by a router may still be written to; the host router itself is nobody's peer.
      if (isHost()) Misuse(0, Complaint::InterDomainItself);
      return std::nullopt;
    case Pdf::HotPlug:
    case Pdf::FirmwareHandover:
    case Pdf::FirmwareHandoverAnswer:
      break;
  }
  Misuse(0, Complaint::PacketType, {.index = static_cast<std::uint32_t>(packet.pdf)});
  return std::nullopt;
}

void Router::HandleAcknowledge(const ControlPacket& packet) {
  const std::uint32_t word = packet.Word(2);
  const std::uint32_t plug = word >> 30;
  if (packet.dwords.size() != kHeaderDwords ||
      (word & 0x3FFFC0FF) != static_cast<std::uint32_t>(ErrorCode::Acknowledge) || plug < 2 ||
      packet.HeaderBits() != 0) {
    Misuse(0, Complaint::Acknowledgement, {.value = word});
    return;
  }
  notifications_.Acknowledge((word >> 8) & 0x3F, plug == 3);
}

// The space that an address names, or null with the error to answer.
ConfigSpace* Router::FindSpace(const AddressWord& address, ErrorCode& error) {
  if (address.space == Space::Router) {
    error = ErrorCode::NoSuchAdapter;
    return address.adapter == 0 ? &space_ : nullptr;
  }
  if (!configured()) {
    error = ErrorCode::NotEnumerated;
    return nullptr;
  }
  Adapter* found = adapter(address.adapter);
  if (found == nullptr || found->model().presence == AdapterPresence::NotImplemented) {
    error = ErrorCode::NoSuchAdapter;
    return nullptr;
  }
  error = ErrorCode::NoSuchAddress;
  if (!found->implemented()) return nullptr;
  if (address.space == Space::Adapter) return &found->space();
  return address.space == Space::Path ? &found->paths() : &found->counters();
}

std::optional<ControlPacket> Router::HandleAccess(const ControlPacket& packet, unsigned arrival) {
  AddressWord address = packet.Address();
  const std::uint64_t route = configured() ? configuredRoute() : packet.Route();
  const bool write = packet.pdf == Pdf::Write;
  const auto refuse = [&](ErrorCode code) { return ErrorPacket(route, address.adapter, code); };
  const auto complain = [&](Complaint rule, ComplaintArguments arguments) {
    Misuse(address.adapter, rule, std::move(arguments));
  };

  if (packet.HeaderBits() != 0) {
    complain(Complaint::RequestHeader, {.bits = packet.HeaderBits()});
    return refuse(ErrorCode::HeaderError);
  }
  const std::size_t expected = kHeaderDwords + (write ? address.length : 0);
  if (packet.dwords.size() != expected || address.length == 0 || address.length > kMaxDataDwords) {
    complain(Complaint::RequestLength, {.count = address.length,
                                        .limit = static_cast<std::uint32_t>(packet.dwords.size()),
                                        .other = write ? "write" : "read"});
    return refuse(ErrorCode::WrongLength);
  }
  if (address.reserved != 0) complain(Complaint::RequestReserved, {.value = packet.Word(2)});
  address.reserved = 0;

  ErrorCode error = ErrorCode::NoSuchAddress;
  ConfigSpace* space = FindSpace(address, error);
  if (space == nullptr) return refuse(error);
  AddressWord echo = address;
  // For router space a router tells through which adapter it was reached; that is how a manager learns it.
  if (address.space == Space::Router) echo.adapter = arrival;

  if (!write) {
    std::vector<std::uint32_t> data;
    if (!space->Read(address.offset, address.length, data)) return refuse(ErrorCode::NoSuchAddress);
    headerRead_ = headerRead_ || (address.space == Space::Router && address.offset <= kLastHeaderDword);
    return ReadResponse(route, echo, data);
  }
  if (address.space == Space::Router && !configured() && address.offset + address.length > kLastHeaderDword + 1) {
    return refuse(ErrorCode::NotEnumerated);
  }
  const auto data = std::span(packet.dwords).subspan(kHeaderDwords);
  const auto judge = [&](Complaint rule, ComplaintArguments arguments) {
    if (headerRead_) complain(rule, std::move(arguments));
  };
  if (space->Write(address.offset, data, judge)) return WriteResponse(route, echo);
  complain(Complaint::UnknownDword, {.value = data.front(), .space = address.space, .dword = address.offset});
  return refuse(ErrorCode::NoSuchAddress);
}

}  // namespace sim
