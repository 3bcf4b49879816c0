// The blocks of a pcapng file: section header, interface descriptions, enhanced packets. Little-endian throughout.
#include "lab/timeline/pcapng.h"

namespace lab {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint32_t kInterfaceDescription = 1;
constexpr std::uint32_t kEnhancedPacket = 6;
constexpr std::uint16_t kLinkTypeUser0 = 147;
constexpr std::uint16_t kOptionEnd = 0, kOptionComment = 1;
constexpr std::uint16_t kInterfaceName = 2, kInterfaceResolution = 9;
constexpr std::uint16_t kPacketFlags = 2;
constexpr std::uint8_t kNanoseconds = 9;
constexpr std::uint8_t kPseudoHeaderFormat = 1;
constexpr std::int64_t kNanosecondsPerTick = 100;

void Put16(Bytes& to, std::uint16_t value) {
  to.push_back(static_cast<std::uint8_t>(value));
  to.push_back(static_cast<std::uint8_t>(value >> 8));
}

void Put32(Bytes& to, std::uint32_t value) {
  Put16(to, static_cast<std::uint16_t>(value));
  Put16(to, static_cast<std::uint16_t>(value >> 16));
}

void PadTo4(Bytes& to) {
  while (to.size() % 4 != 0) to.push_back(0);
}

void PutOption(Bytes& to, std::uint16_t code, std::span<const std::uint8_t> value) {
  Put16(to, code);
  Put16(to, static_cast<std::uint16_t>(value.size()));
  to.insert(to.end(), value.begin(), value.end());
  PadTo4(to);
}

std::span<const std::uint8_t> AsBytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

void PutEnd(Bytes& to) {
  PutOption(to, kOptionEnd, {});
}

}  // namespace

PcapngWriter::PcapngWriter(const std::string& file) : out_(file, std::ios::binary | std::ios::trunc) {
  Bytes body;
  Put32(body, kByteOrderMagic);
  Put16(body, 1);  // version 1.0
  Put16(body, 0);
  Put32(body, 0xFFFFFFFF);  // section length unknown
  Put32(body, 0xFFFFFFFF);
  PutBlock(kSectionHeader, body);
}

void PcapngWriter::PutBlock(std::uint32_t type, const Bytes& body) {
  const auto length = static_cast<std::uint32_t>(body.size() + 12);
  Bytes block;
  Put32(block, type);
  Put32(block, length);
  block.insert(block.end(), body.begin(), body.end());
  Put32(block, length);
  out_.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(block.size()));
}

std::uint32_t PcapngWriter::AddInterface(std::string_view name, std::uint8_t ring) {
  Bytes body;
  Put16(body, kLinkTypeUser0);
  Put16(body, 0);
  Put32(body, 0);  // no limit on the packet length
  PutOption(body, kInterfaceName, AsBytes(name));
  PutOption(body, kInterfaceResolution, std::span(&kNanoseconds, 1));
  PutEnd(body);
  PutBlock(kInterfaceDescription, body);
  rings_.push_back(ring);
  return static_cast<std::uint32_t>(rings_.size() - 1);
}

void PcapngWriter::PutPacketBlock(std::uint32_t interface, platform::Time when, std::span<const std::uint8_t> data,
                                  const Bytes& options) {
  const auto nanoseconds = static_cast<std::uint64_t>(when * kNanosecondsPerTick);
  Bytes body;
  Put32(body, interface);
  Put32(body, static_cast<std::uint32_t>(nanoseconds >> 32));
  Put32(body, static_cast<std::uint32_t>(nanoseconds));
  Put32(body, static_cast<std::uint32_t>(data.size()));
  Put32(body, static_cast<std::uint32_t>(data.size()));
  body.insert(body.end(), data.begin(), data.end());
  PadTo4(body);
  body.insert(body.end(), options.begin(), options.end());
  PutEnd(body);
  PutBlock(kEnhancedPacket, body);
}

void PcapngWriter::Write(std::uint32_t interface, const CapturedPacket& packet) {
  Bytes data = {kPseudoHeaderFormat, rings_.at(interface), packet.startPdf, packet.endPdf};
  data.insert(data.end(), packet.bytes.begin(), packet.bytes.end());
  Bytes flags, options;
  Put32(flags, static_cast<std::uint32_t>(packet.direction));
  PutOption(options, kPacketFlags, flags);
  if (!packet.comment.empty()) PutOption(options, kOptionComment, AsBytes(packet.comment));
  PutPacketBlock(interface, packet.when, data, options);
}

void PcapngWriter::Comment(std::uint32_t interface, platform::Time when, std::string_view text) {
  Bytes options;
  PutOption(options, kOptionComment, AsBytes(text));
  PutPacketBlock(interface, when, {}, options);
}

bool PcapngWriter::Close() {
  out_.close();
  return out_.good();
}

}  // namespace lab
