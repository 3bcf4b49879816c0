// Inter-domain packets.
#include "sim/host/inter_domain_packet.h"

#include <algorithm>
#include <cstdio>

namespace sim {
namespace {

constexpr unsigned kLengthWord = 2;  // bits 5:0 words behind this one, bits 28:27 sequence number
constexpr unsigned kProtocolWord = 3;
constexpr unsigned kTypeWord = 7;
constexpr unsigned kPayload = kDiscoveryHeaderWords;
constexpr std::uint32_t kLengthWordZero = 0xE7FFFFC0;

template <class... Values>
std::string Print(const char* format, Values... values) {
  char text[128];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

struct TypeFacts {
  DiscoveryType type;
  const char* name;
  Pdf pdf;
  unsigned words;  // of a properties response: without the block's
};

constexpr TypeFacts kPacketTypes[] = {
    {DiscoveryType::OldUuidRequest, "OLD-UUID-REQUEST", Pdf::InterDomainRequest, 8},
    {DiscoveryType::UuidResponse, "UUID-RESPONSE", Pdf::InterDomainResponse, 14},
    {DiscoveryType::PropertiesRequest, "PROPERTIES-REQUEST", Pdf::InterDomainRequest, 17},
    {DiscoveryType::PropertiesResponse, "PROPERTIES-RESPONSE", Pdf::InterDomainResponse, kPropertiesResponseWords},
    {DiscoveryType::PropertiesChangedRequest, "PROPERTIES-CHANGED-REQUEST", Pdf::InterDomainRequest, 12},
    {DiscoveryType::PropertiesChangedResponse, "PROPERTIES-CHANGED-RESPONSE", Pdf::InterDomainResponse, 8},
    {DiscoveryType::ErrorResponse, "ERROR-RESPONSE", Pdf::InterDomainResponse, 9},
    {DiscoveryType::UuidRequest, "UUID-REQUEST", Pdf::InterDomainRequest, 8},
    {DiscoveryType::LinkStatusRequest, "LINK-STATUS-REQUEST", Pdf::InterDomainRequest, 8},
    {DiscoveryType::LinkStatusResponse, "LINK-STATUS-RESPONSE", Pdf::InterDomainResponse, 10},
    {DiscoveryType::LinkChangeRequest, "LINK-CHANGE-REQUEST", Pdf::InterDomainRequest, 9},
    {DiscoveryType::LinkChangeResponse, "LINK-CHANGE-RESPONSE", Pdf::InterDomainResponse, 9},
};

const TypeFacts* FactsOf(DiscoveryType type) {
  auto found = std::find_if(std::begin(kPacketTypes), std::end(kPacketTypes),
                            [&](const auto& facts) { return facts.type == type; });
  return found == std::end(kPacketTypes) ? nullptr : found;
}

const char* ErrorText(std::uint32_t code) {
  switch (static_cast<DiscoveryError>(code)) {
    case DiscoveryError::UnknownPacket:
      return "unknown packet";
    case DiscoveryError::UnknownDomain:
      return "unknown domain";
    case DiscoveryError::NotSupported:
      return "not supported";
    case DiscoveryError::NotReady:
      return "not ready";
  }
  return "no known error";
}

// Collects the fields of one packet in word order; a packet that is too short just has fewer.
class FieldList {
 public:
  explicit FieldList(const ControlPacket& packet) : packet_(packet) {}

  // A field of `words` words from `word` on.
  void Add(const char* name, std::size_t word, std::size_t words, std::string value) {
    if (word + words > packet_.dwords.size()) return;
    fields_.emplace_back(name, std::move(value));
    next_ = std::max(next_, word + words);
  }
  void Number(const char* name, std::size_t word, unsigned shift, std::uint32_t mask) {
    Add(name, word, 1, Print("%u", (packet_.Word(word) >> shift) & mask));
  }
  void Hex(const char* name, std::size_t word, unsigned shift = 0, std::uint32_t mask = 0xFFFFFFFF) {
    Add(name, word, 1, Print("0x%x", (packet_.Word(word) >> shift) & mask));
  }
  void Id(const char* name, std::size_t word) { Add(name, word, 4, UuidText(UuidAt(packet_, word))); }
  void Block(std::size_t first, std::uint32_t offset) {
    for (std::size_t word = first; word < packet_.dwords.size(); ++word) {
      fields_.emplace_back(Print("block[%u]", offset + static_cast<unsigned>(word - first)),
                           Print("0x%08x", packet_.dwords[word]));
    }
    next_ = std::max(next_, packet_.dwords.size());
  }
  NamedFields Finish() {
    for (std::size_t word = next_; word < packet_.dwords.size(); ++word) {
      fields_.emplace_back(Print("word %u", static_cast<unsigned>(word)), Print("0x%08x", packet_.dwords[word]));
    }
    return std::move(fields_);
  }

 private:
  const ControlPacket& packet_;
  NamedFields fields_;
  std::size_t next_ = kLengthWord;  // first word that no field has named yet
};

void AddPayload(FieldList& list, const ControlPacket& packet) {
  switch (TypeOf(packet)) {
    case DiscoveryType::UuidResponse:
      list.Id("uuid", kPayload);
      return list.Add("arrived-on", kPayload + 4, 2,
                      Print("%llx", static_cast<unsigned long long>(std::uint64_t{packet.Word(kPayload + 4)} << 32 |
                                                                    packet.Word(kPayload + 5))));
    case DiscoveryType::PropertiesRequest:
      list.Id("from", kPayload);
      list.Id("to", kPayload + 4);
      return list.Number("offset", kPayload + 8, 0, 0xFFFF);
    case DiscoveryType::PropertiesResponse:
      list.Id("from", kPayload);
      list.Id("to", kPayload + 4);
      list.Number("offset", kPayload + 8, 0, 0xFFFF);
      list.Number("total", kPayload + 8, 16, 0xFFFF);
      list.Hex("generation", kPayload + 9);
      return list.Block(kPropertiesResponseWords, packet.Word(kPayload + 8) & 0xFFFF);
    case DiscoveryType::PropertiesChangedRequest:
      return list.Id("from", kPayload);
    case DiscoveryType::ErrorResponse:
      return list.Add("code", kPayload, 1, Print("%u (%s)", packet.Word(kPayload), ErrorText(packet.Word(kPayload))));
    case DiscoveryType::LinkStatusResponse:
      list.Number("status", kPayload, 0, 0xFFFFFFFF);
      list.Number("widths", kPayload + 1, 0, 0xFF);
      list.Number("target-width", kPayload + 1, 8, 0xFF);
      list.Hex("speeds", kPayload + 1, 16, 0xFF);
      return list.Hex("target-speed", kPayload + 1, 24, 0xFF);
    case DiscoveryType::LinkChangeRequest:
      list.Number("target-width", kPayload, 0, 0xFF);
      return list.Hex("target-speed", kPayload, 8, 0xFF);
    case DiscoveryType::LinkChangeResponse:
      return list.Number("status", kPayload, 0, 0xFFFFFFFF);
    default:
      return;
  }
}

// Of a properties response also the piece that it carries.
void CheckBlockPiece(const ControlPacket& packet, Faults& faults) {
  const auto words = static_cast<std::uint32_t>(packet.dwords.size() - kPropertiesResponseWords);
  const std::uint32_t offset = packet.Word(kPayload + 8) & 0xFFFF, total = packet.Word(kPayload + 8) >> 16;
  if (words == 0 || words > kBlockWordsPerPacket) {
    faults.push_back({Complaint::BlockPiece, {.count = words, .limit = kBlockWordsPerPacket}});
  }
  if (offset + words > total) {
    faults.push_back({Complaint::BlockRange, {.index = offset, .count = offset + words, .limit = total}});
  }
}

void CheckDiscovery(const ControlPacket& packet, Faults& faults) {
  const DiscoveryType type = TypeOf(packet);
  const TypeFacts* facts = FactsOf(type);
  if (facts == nullptr) {
    faults.push_back({Complaint::DiscoveryUnknown, {.index = static_cast<std::uint32_t>(type)}});
    return;
  }
  if (packet.pdf != facts->pdf) {
    faults.push_back({Complaint::DiscoveryPdf,
                      {.index = static_cast<std::uint32_t>(packet.pdf),
                       .limit = static_cast<std::uint32_t>(facts->pdf),
                       .other = facts->name}});
  }
  const bool piece = type == DiscoveryType::PropertiesResponse && packet.dwords.size() > facts->words;
  if (packet.dwords.size() != facts->words && !piece) {
    const auto words = static_cast<std::uint32_t>(packet.dwords.size());
    faults.push_back({Complaint::DiscoveryWords, {.count = words, .limit = facts->words, .other = facts->name}});
    return;
  }
  if (type == DiscoveryType::PropertiesResponse) CheckBlockPiece(packet, faults);
  const std::uint32_t offset = packet.Word(kPayload + 8), width = packet.Word(kPayload) & 0xFF;
  if (type == DiscoveryType::PropertiesRequest && offset >> 16 != 0) {
    faults.push_back({Complaint::OffsetReserved, {.value = offset}});
  }
  if (type == DiscoveryType::LinkChangeRequest && width != 1 && width != 3) {
    faults.push_back({Complaint::TargetWidth, {.index = width}});
  }
}

}  // namespace

std::string UuidText(const Uuid& uuid) {
  return Print("%08x-%08x-%08x-%08x", uuid[0], uuid[1], uuid[2], uuid[3]);
}

ControlPacket MakeDiscoveryPacket(Pdf pdf, std::uint64_t route, unsigned sequence, DiscoveryType type,
                                  std::span<const std::uint32_t> payload) {
  ControlPacket packet{pdf, RouteHeader(route, false, kDiscoveryHeaderWords + payload.size())};
  packet.dwords.push_back(static_cast<std::uint32_t>(kDiscoveryHeaderWords - 3 + payload.size()) | (sequence & 3)
                                                                                                       << 27);
  packet.dwords.insert(packet.dwords.end(), kDiscoveryProtocol.begin(), kDiscoveryProtocol.end());
  packet.dwords.push_back(static_cast<std::uint32_t>(type));
  packet.dwords.insert(packet.dwords.end(), payload.begin(), payload.end());
  return packet;
}

Uuid UuidAt(const ControlPacket& packet, std::size_t word) {
  return {packet.Word(word), packet.Word(word + 1), packet.Word(word + 2), packet.Word(word + 3)};
}

bool IsInterDomain(const ControlPacket& packet) {
  return packet.pdf == Pdf::InterDomainRequest || packet.pdf == Pdf::InterDomainResponse;
}

bool IsDiscovery(const ControlPacket& packet) {
  return IsInterDomain(packet) && packet.dwords.size() >= kDiscoveryHeaderWords &&
         UuidAt(packet, kProtocolWord) == kDiscoveryProtocol;
}

DiscoveryType TypeOf(const ControlPacket& packet) {
  return static_cast<DiscoveryType>(packet.Word(kTypeWord));
}

unsigned SequenceOf(const ControlPacket& packet) {
  return (packet.Word(kLengthWord) >> 27) & 3;
}

bool Answers(DiscoveryType answer, DiscoveryType request) {
  switch (answer) {
    case DiscoveryType::UuidResponse:
      return request == DiscoveryType::UuidRequest || request == DiscoveryType::OldUuidRequest;
    case DiscoveryType::PropertiesResponse:
      return request == DiscoveryType::PropertiesRequest;
    case DiscoveryType::PropertiesChangedResponse:
      return request == DiscoveryType::PropertiesChangedRequest;
    case DiscoveryType::LinkStatusResponse:
      return request == DiscoveryType::LinkStatusRequest;
    case DiscoveryType::LinkChangeResponse:
      return request == DiscoveryType::LinkChangeRequest;
    default:
      return answer == DiscoveryType::ErrorResponse;
  }
}

std::optional<Pdf> PdfOf(DiscoveryType type) {
  const TypeFacts* facts = FactsOf(type);
  return facts == nullptr ? std::nullopt : std::optional(facts->pdf);
}

std::size_t WordsInAll(std::uint32_t lengthWord) {
  return (lengthWord & 0x3F) + kProtocolWord;
}

const char* DiscoveryName(DiscoveryType type) {
  const TypeFacts* facts = FactsOf(type);
  return facts == nullptr ? "UNKNOWN" : facts->name;
}

NamedFields InterDomainFields(const ControlPacket& packet) {
  FieldList list(packet);
  list.Number("length", kLengthWord, 0, 0x3F);
  list.Number("sequence", kLengthWord, 27, 3);
  list.Id("protocol", kProtocolWord);
  if (!IsDiscovery(packet)) return list.Finish();
  list.Number("type", kTypeWord, 0, 0xFFFFFFFF);
  AddPayload(list, packet);
  return list.Finish();
}

std::string InterDomainName(const ControlPacket& packet) {
  return IsDiscovery(packet) && FactsOf(TypeOf(packet)) != nullptr ? DiscoveryName(TypeOf(packet))
                                                                   : "inter-domain packet";
}

Faults InterDomainFaults(const ControlPacket& packet) {
  Faults faults;
  const auto words = static_cast<std::uint32_t>(packet.dwords.size());
  if (words < kDiscoveryHeaderWords) {
    faults.push_back({Complaint::InterDomainWords, {.count = words, .limit = kDiscoveryHeaderWords}});
    return faults;
  }
  const std::uint32_t length = packet.Word(kLengthWord);
  const std::string name = InterDomainName(packet);
  if (WordsInAll(length) != words) {
    faults.push_back({Complaint::InterDomainLength, {.index = length & 0x3F, .count = words - 3, .other = name}});
  }
  if ((length & kLengthWordZero) != 0) {
    faults.push_back({Complaint::InterDomainReserved, {.value = length, .other = name}});
  }
  if (IsDiscovery(packet)) {
    CheckDiscovery(packet, faults);
  } else if (const Uuid protocol = UuidAt(packet, kProtocolWord); protocol != kNetworkProtocol) {
    faults.push_back({Complaint::InterDomainProtocol, {.other = UuidText(protocol)}});
  }
  return faults;
}

std::string DescribeInterDomain(const ControlPacket& packet) {
  const auto route = static_cast<unsigned long long>(packet.Route());
  const bool request = packet.pdf == Pdf::InterDomainRequest;
  if (!IsDiscovery(packet) || FactsOf(TypeOf(packet)) == nullptr) {
    return Print("XDOMAIN-%s route=%llx dwords=%u", request ? "REQUEST" : "RESPONSE", route,
                 static_cast<unsigned>(packet.dwords.size()));
  }
  std::string text = Print("%s route=%llx seq=%u", DiscoveryName(TypeOf(packet)), route, SequenceOf(packet));
  if (request != (FactsOf(TypeOf(packet))->pdf == Pdf::InterDomainRequest)) {
    text += Print(" pdf=%u", static_cast<unsigned>(packet.pdf));
  }
  std::size_t block = 0;
  FieldList list(packet);
  AddPayload(list, packet);
  for (const auto& [name, value] : list.Finish()) {
    if (name.starts_with("block[")) {
      ++block;
    } else if (!name.starts_with("word ")) {
      text += " " + name + "=" + value;
    }
  }
  if (block != 0) text += Print(" words=%u", static_cast<unsigned>(block));
  return text;
}

}  // namespace sim
