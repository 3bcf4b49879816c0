// Guesses what it must (type, whether a CRC follows), checks what can be checked, names every bit. Fields, route and
// CRC are the driver's own code: what it makes of a packet is what this says.
#include "lab/decode/decode_packet.h"

#include <fmt/format.h>

#include <algorithm>

#include "hostif/control_packet.h"
#include "hostif/crc32c.h"
#include "sim/host/inter_domain_packet.h"

namespace lab {
namespace {

constexpr std::size_t kHeaderWords = 3;
constexpr std::uint32_t kUpHeader = kReceivedRouteMark;
constexpr unsigned kRead = USB4_PDF_READ, kWrite = USB4_PDF_WRITE, kNotification = USB4_PDF_NOTIFICATION,
                   kHotPlug = USB4_PDF_HOT_PLUG, kRequest = USB4_PDF_XDOMAIN_REQUEST,
                   kResponse = USB4_PDF_XDOMAIN_RESPONSE;
// Bits that a router leaves clear in an error word and in an event word.
constexpr std::uint32_t kErrorZero = ErrorWord::Zero1::kMask | ErrorWord::Zero2::kMask | ErrorWord::Zero3::kMask;
constexpr std::uint32_t kEventZero = ~(HotplugWord::Adapter::kMask | HotplugWord::Unplug::kMask);
constexpr std::uint32_t kAcknowledgeCode = 7;

enum class CrcState { Good, Bad, Absent };

struct Packet {
  std::vector<std::uint32_t> words;  // without the CRC
  CrcState crc = CrcState::Absent;
  std::uint32_t crcFound = 0, crcComputed = 0;
  bool up = false;
  unsigned pdf = 0;
  bool guessed = false;

  std::uint32_t Word(std::size_t i) const { return i < words.size() ? words[i] : 0; }
  std::uint32_t Length() const { return USB4_CFG_ADDRESS::Length::Get(Word(2)); }
};

std::vector<std::uint32_t> ToWords(std::span<const std::uint8_t> bytes) {
  std::vector<std::uint32_t> words;
  for (std::size_t i = 0; i + 4 <= bytes.size(); i += 4) {
    words.push_back(static_cast<std::uint32_t>(bytes[i] << 24 | bytes[i + 1] << 16 | bytes[i + 2] << 8 | bytes[i + 3]));
  }
  return words;
}

sim::ControlPacket InterDomain(const Packet& packet) {
  return {static_cast<sim::Pdf>(packet.pdf), packet.words};
}

// The type of a discovery packet says which of the two it is.
std::optional<unsigned> GuessInterDomain(Packet packet) {
  for (const unsigned pdf : {kRequest, kResponse}) {
    packet.pdf = pdf;
    if (sim::IsDiscovery(InterDomain(packet)) &&
        sim::PdfOf(sim::TypeOf(InterDomain(packet))) == static_cast<sim::Pdf>(pdf)) {
      return pdf;
    }
  }
  return std::nullopt;
}

// Hot-plug words name an adapter and bit 31, acknowledgements start with 7 and say plug or unplug in bits 31:30; an
// address word has a length.
unsigned GuessPdf(const Packet& packet) {
  if (const auto interDomain = GuessInterDomain(packet)) return *interDomain;
  const std::uint32_t word = packet.Word(2);
  if (!packet.up && (word & 0xFF) == kAcknowledgeCode && (word >> 31) != 0) return kNotification;
  if (packet.up && (word & kEventZero) == 0) return kHotPlug;
  if (packet.up && (word & kErrorZero) == 0) return kNotification;
  // With data, the length says how many dwords follow, and perhaps a CRC; without, only a CRC can.
  const std::size_t more = packet.words.size() - std::min(packet.words.size(), kHeaderWords);
  const std::size_t length = packet.Length();
  const bool hasData = more > 1 || (more == 1 && length <= 1);
  return hasData == packet.up ? kRead : kWrite;
}

std::size_t ExpectedWords(const Packet& packet) {
  if (packet.pdf == kRequest || packet.pdf == kResponse) return sim::WordsInAll(packet.Word(2));
  const bool hasData = (packet.pdf == kRead) == packet.up;
  return packet.pdf == kRead || packet.pdf == kWrite ? kHeaderWords + (hasData ? packet.Length() : 0) : kHeaderWords;
}

bool FixedSize(unsigned pdf) {
  return pdf == kRead || pdf == kWrite || pdf == kNotification || pdf == kHotPlug || pdf == kRequest ||
         pdf == kResponse;
}

// The last word is a CRC when it fits, or when the packet is exactly one word longer than its type allows.
Packet Parse(const HexLine& line) {
  Packet packet;
  packet.words = ToWords(line.bytes);
  packet.up = RouteHighWord::Mark::Get(packet.Word(0)) == kUpHeader;
  const std::span<const std::uint8_t> bytes(line.bytes);
  if (packet.words.size() > 1) {
    packet.crcFound = packet.words.back();
    packet.crcComputed = Crc32c(bytes.data(), 4 * (packet.words.size() - 1));
  }
  const std::vector<std::uint32_t> all = packet.words;
  const bool fits = packet.words.size() > kHeaderWords && packet.crcFound == packet.crcComputed;
  if (fits) packet.words.pop_back();
  packet.guessed = !line.pdf;
  packet.pdf = line.pdf ? *line.pdf : GuessPdf(packet);
  if (fits) {
    packet.crc = CrcState::Good;
  } else if (FixedSize(packet.pdf) && all.size() == ExpectedWords(packet) + 1) {
    packet.crc = CrcState::Bad;
    packet.words.pop_back();
  }
  return packet;
}

const char* TypeName(const Packet& packet) {
  switch (packet.pdf) {
    case kRead:
      return packet.up ? "read answer" : "read request";
    case kWrite:
      return packet.up ? "write answer" : "write request";
    case kNotification:
      return packet.up ? "error packet" : "plug acknowledgement";
    case kHotPlug:
      return "hot-plug event";
    case kRequest:
      return sim::IsDiscovery(InterDomain(packet)) ? sim::DiscoveryName(sim::TypeOf(InterDomain(packet)))
                                                   : "inter-domain request";
    case kResponse:
      return sim::IsDiscovery(InterDomain(packet)) ? sim::DiscoveryName(sim::TypeOf(InterDomain(packet)))
                                                   : "inter-domain response";
    default:
      return "packet of an unknown type";
  }
}

class PacketExplanation {
 public:
  explicit PacketExplanation(const HexLine& line) : packet_(Parse(line)), bytes_(line.bytes.size()) {}

  DecodedFields Explain() {
    Title();
    if (bytes_ % 4 != 0) Fault("{} bytes are no whole number of dwords", bytes_);
    if (packet_.words.size() < kHeaderWords) {
      Fault("shorter than its header of 12 bytes");
      return std::move(out_);
    }
    Header();
    if (packet_.pdf == kRead || packet_.pdf == kWrite) {
      Access();
    } else if (packet_.pdf == kNotification) {
      Notification();
    } else if (packet_.pdf == kHotPlug) {
      HotPlug();
    } else if (packet_.pdf == kRequest || packet_.pdf == kResponse) {
      Discovery();
    } else {
      Data(2);
    }
    Crc();
    return std::move(out_);
  }

 private:
  template <class... Values>
  void Fault(fmt::format_string<Values...> text, Values&&... values) {
    out_.faults.push_back(fmt::format(text, std::forward<Values>(values)...));
  }
  template <class... Values>
  void Field(const char* name, fmt::format_string<Values...> text, Values&&... values) {
    out_.fields.emplace_back(name, fmt::format(text, std::forward<Values>(values)...));
  }

  void Title() {
    static constexpr const char* kCrc[] = {"CRC good", "CRC bad", "no CRC"};
    out_.title = fmt::format("{}, {} bytes, {}{}", TypeName(packet_), bytes_, kCrc[static_cast<int>(packet_.crc)],
                             packet_.guessed ? ", type guessed" : "");
  }

  void Header() {
    const std::uint32_t bits = RouteHighWord::Mark::Get(packet_.Word(0));
    const USB4_ROUTE route = Usb4CfgParseRoute({packet_.Word(0), packet_.Word(1)});
    Field("route", "{:x}", route);
    Field("header bits", "0x{:03x} ({})", bits,
          bits == kUpHeader ? "from a router"
          : bits == 0       ? "from the manager"
                            : "wrong");
    if (bits != 0 && bits != kUpHeader) Fault("header bits 31:22 are 0x{:03x}, neither 0x000 nor 0x200", bits);
  }

  void Access() {
    using Address = USB4_CFG_ADDRESS;
    const std::uint32_t word = packet_.Word(2);
    const std::uint32_t space = Address::Space::Get(word);
    Field("address word", "0x{:08x}", word);
    Field("offset", "0x{:x} (dwords)", Address::Offset::Get(word));
    Field("length", "{} dwords", packet_.Length());
    Field("adapter", "{}", Address::Adapter::Get(word));
    Field("space", "{} ({})", space, sim::SpaceName(static_cast<sim::Space>(space)));
    Field("sequence", "{}", Address::Sequence::Get(word));
    if (Address::Reserved::Get(word) != 0) {
      Fault("reserved bits 31:29 of the address word are {}", Address::Reserved::Get(word));
    }
    if (packet_.Length() == 0) Fault("a length of 0 dwords");
    if (packet_.words.size() != ExpectedWords(packet_)) {
      Fault("{} dwords of data where the length asks for {}", packet_.words.size() - kHeaderWords,
            ExpectedWords(packet_) - kHeaderWords);
    }
    Data(kHeaderWords);
  }

  void Data(std::size_t from) {
    const std::uint32_t offset = packet_.pdf <= kWrite ? USB4_CFG_ADDRESS::Offset::Get(packet_.Word(2)) : 0;
    for (std::size_t i = from; i < packet_.words.size(); ++i) {
      out_.fields.emplace_back(fmt::format("dword 0x{:x}", offset + i - from),
                               fmt::format("0x{:08x}", packet_.words[i]));
    }
  }

  void Notification() {
    const std::uint32_t word = packet_.Word(2);
    const std::uint32_t code = packet_.up ? ErrorWord::Code::Get(word) : PlugAckWord::Code::Get(word);
    Field(packet_.up ? "error word" : "acknowledgement", "0x{:08x}", word);
    Field("code", "{} ({})", code, sim::ErrorName(code));
    Field("adapter", "{}", ErrorWord::Adapter::Get(word));
    CheckSize();
    if (packet_.up) {
      if ((word & kErrorZero) != 0) Fault("reserved bits of the error word: 0x{:08x}", word & kErrorZero);
      return;
    }
    const std::uint32_t plug = PlugAckWord::Plug::Get(word);
    Field("plug bits", "{} ({})", plug, plug == 3 ? "unplug" : plug == 2 ? "plug" : "wrong");
    if (plug < 2) Fault("an acknowledgement says plug (2) or unplug (3), not {}", plug);
    if (code != kAcknowledgeCode) Fault("an acknowledgement has code 7, not {}", code);
  }

  void HotPlug() {
    const std::uint32_t word = packet_.Word(2);
    Field("event word", "0x{:08x}", word);
    Field("adapter", "{}", HotplugWord::Adapter::Get(word));
    Field("event", "{}", HotplugWord::Unplug::Get(word) != 0 ? "unplug" : "plug");
    if ((word & kEventZero) != 0) Fault("reserved bits of the event word: 0x{:08x}", word & kEventZero);
    CheckSize();
    if (!packet_.up) Fault("a hot-plug event comes from a router, header bits 0x200");
  }

  void Discovery() {
    const sim::ControlPacket packet = InterDomain(packet_);
    for (auto& field : sim::InterDomainFields(packet)) out_.fields.push_back(std::move(field));
    for (const sim::Fault& fault : sim::InterDomainFaults(packet)) out_.faults.push_back(fault.Text());
  }

  void CheckSize() {
    if (packet_.words.size() != kHeaderWords) Fault("{} dwords where this type has 3", packet_.words.size());
  }

  void Crc() {
    if (packet_.crc == CrcState::Absent) return;
    Field("CRC-32C", "0x{:08x}", packet_.crcFound);
    if (packet_.crc == CrcState::Bad) {
      Fault("CRC-32C is 0x{:08x}, computed 0x{:08x}", packet_.crcFound, packet_.crcComputed);
    }
  }

  Packet packet_;
  std::size_t bytes_;
  DecodedFields out_;
};

}  // namespace

DecodedFields DecodePacketLine(const HexLine& line) {
  return PacketExplanation(line).Explain();
}

void PrintDecoded(const Console& console, const std::string& title, const DecodedFields& decoded) {
  console.Out(console.Paint(Style::Strong, title));
  for (const auto& [name, value] : decoded.fields) console.Out(fmt::format("  {:<16} {}", name, value));
  for (const std::string& fault : decoded.faults) {
    console.Out("  " + console.Paint(Style::Bad, "wrong") + "            " + fault);
  }
}

ExitCode DecodePackets(const std::string& file, const Console& console) {
  bool good = true;
  for (const HexLine& line : ReadHexLines(file)) {
    const DecodedFields decoded = DecodePacketLine(line);
    PrintDecoded(console, fmt::format("line {}: {}", line.line, decoded.title), decoded);
    good = good && decoded.faults.empty();
  }
  return good ? ExitCode::Held : ExitCode::Failed;
}

}  // namespace lab
