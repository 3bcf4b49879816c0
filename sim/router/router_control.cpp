// How a router answers the control packets that end at it.
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
      return std::nullopt;
    case Pdf::HotPlug:
    case Pdf::FirmwareHandover:
    case Pdf::FirmwareHandoverAnswer:
      break;
  }
  Misuse(0, "packet of type " + std::to_string(static_cast<unsigned>(packet.pdf)));
  return std::nullopt;
}

void Router::HandleAcknowledge(const ControlPacket& packet) {
  const std::uint32_t word = packet.Word(2);
  const std::uint32_t plug = word >> 30;
  if (packet.dwords.size() != kHeaderDwords ||
      (word & 0x3FFFC0FF) != static_cast<std::uint32_t>(ErrorCode::Acknowledge) || plug < 2 ||
      packet.HeaderBits() != 0) {
    Misuse(0, "malformed acknowledgement " + Hex32(word));
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
  auto refuse = [&](ErrorCode code, const std::string& mistake) {
    if (!mistake.empty()) Misuse(address.adapter, mistake);
    return ErrorPacket(route, address.adapter, code);
  };

  if (packet.HeaderBits() != 0) return refuse(ErrorCode::HeaderError, "header bits 31:22 of a request set");
  const std::size_t expected = kHeaderDwords + (write ? address.length : 0);
  if (packet.dwords.size() != expected || address.length == 0 || address.length > kMaxDataDwords)
    return refuse(ErrorCode::WrongLength, std::string(write ? "write" : "read") + " of " +
                                              std::to_string(address.length) + " dwords in a packet of " +
                                              std::to_string(packet.dwords.size()));
  if (address.reserved != 0) Misuse(address.adapter, "reserved bits of an address word set");
  address.reserved = 0;

  ErrorCode error = ErrorCode::NoSuchAddress;
  ConfigSpace* space = FindSpace(address, error);
  if (space == nullptr) return refuse(error, "");
  AddressWord echo = address;
  // For router space a router tells through which adapter it was reached; that is how a manager learns it.
  if (address.space == Space::Router) echo.adapter = arrival;

  if (!write) {
    std::vector<std::uint32_t> data;
    if (!space->Read(address.offset, address.length, data)) return refuse(ErrorCode::NoSuchAddress, "");
    headerRead_ = headerRead_ || (address.space == Space::Router && address.offset <= kLastHeaderDword);
    return ReadResponse(route, echo, data);
  }
  if (address.space == Space::Router && !configured() && address.offset + address.length > kLastHeaderDword + 1)
    return refuse(ErrorCode::NotEnumerated, "");
  std::vector<std::string> complaints;
  const auto data = std::span(packet.dwords).subspan(kHeaderDwords);
  if (!space->Write(address.offset, data, complaints))
    return refuse(ErrorCode::NoSuchAddress, std::string("write to unknown ") + SpaceName(address.space) + " dword " +
                                                std::to_string(address.offset));
  if (headerRead_)
    for (const std::string& complaint : complaints) Misuse(address.adapter, complaint);
  return WriteResponse(route, echo);
}

}  // namespace sim
