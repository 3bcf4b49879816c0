// What a host's manager owes its peers.
#include "sim/fabric/inter_domain_ledger.h"

#include <algorithm>

namespace sim {
namespace {

constexpr std::size_t kMostOpen = 1024;  // a manager may leave requests unanswered for ever
constexpr unsigned kFirstUuid = 8;       // words of the payload
constexpr unsigned kSecondUuid = 12;
constexpr unsigned kArrivedOn = 12;
constexpr unsigned kOffset = 16;

// The answer repeats what tells its request from another one.
bool Repeats(const ControlPacket& answer, const ControlPacket& request) {
  if (answer.Route() != request.Route() || SequenceOf(answer) != SequenceOf(request)) return false;
  if (!Answers(TypeOf(answer), TypeOf(request))) return false;
  if (TypeOf(answer) != DiscoveryType::PropertiesResponse) return true;
  return UuidAt(answer, kSecondUuid) == UuidAt(request, kFirstUuid) &&
         (answer.Word(kOffset) & 0xFFFF) == (request.Word(kOffset) & 0xFFFF);
}

// The sender's own UUID stands at the head of these.
bool CarriesUuid(DiscoveryType type) {
  return type == DiscoveryType::UuidResponse || type == DiscoveryType::PropertiesRequest ||
         type == DiscoveryType::PropertiesResponse || type == DiscoveryType::PropertiesChangedRequest;
}

}  // namespace

void InterDomainLedger::Handed(const ControlPacket& request, bool damaged) {
  anything_ = anything_ || damaged;
  if (!IsDiscovery(request)) return;
  open_.push_back(request);
  if (open_.size() > kMostOpen) open_.pop_front();
}

bool InterDomainLedger::Settles(const ControlPacket& answer) {
  const auto found =
      std::find_if(open_.begin(), open_.end(), [&](const ControlPacket& request) { return Repeats(answer, request); });
  if (found == open_.end()) return anything_;
  open_.erase(found);
  return true;
}

void InterDomainLedger::CheckUuid(const ControlPacket& packet, Faults& faults) const {
  if (CarriesUuid(TypeOf(packet)) && UuidAt(packet, kFirstUuid) != own_) {
    faults.push_back({Complaint::DiscoveryUuid, {.other = InterDomainName(packet)}});
  }
  const std::uint64_t arrivedOn = std::uint64_t{packet.Word(kArrivedOn)} << 32 | packet.Word(kArrivedOn + 1);
  if (TypeOf(packet) == DiscoveryType::UuidResponse && arrivedOn != packet.Route()) {
    faults.push_back({Complaint::ArrivedOn, {.route = arrivedOn}});
  }
}

Faults InterDomainLedger::Sent(const ControlPacket& packet) {
  Faults faults = InterDomainFaults(packet);
  if (packet.HeaderBits() != 0) {
    faults.push_back({Complaint::InterDomainHeader, {.bits = packet.HeaderBits(), .other = InterDomainName(packet)}});
  }
  if (!faults.empty() || !IsDiscovery(packet)) return faults;
  CheckUuid(packet, faults);
  if (packet.pdf == Pdf::InterDomainResponse && !Settles(packet) && faults.empty()) {
    faults.push_back({Complaint::DiscoveryUnasked, {.other = InterDomainName(packet)}});
  }
  return faults;
}

}  // namespace sim
