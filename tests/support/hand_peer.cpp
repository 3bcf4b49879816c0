// What a peer played by hand hears and says.
#include "tests/support/hand_peer.h"

#include <fmt/format.h>

namespace tests {
namespace {

constexpr Words::value_type kProtocol[] = {0x0ED738B6, 0xBB40FF42, 0xE290C297, 0x07FFB2C0};
constexpr std::uint32_t kMostPiece = 45;

// A host that neither answers nor asks by itself.
WorldOptions WithSilentPeer() {
  WorldOptions options;
  options.peers.push_back({.peer = sim::PeerThatIs("silent"), .model = "H3"});
  options.peers.back().peer.name = "B";
  return options;
}

Words WordsOf(const sim::WireEntry& entry) {
  Words words;
  for (std::size_t i = 0; i + 8 <= entry.bytes.size(); i += 4) {
    words.push_back(static_cast<std::uint32_t>(entry.bytes[i]) << 24 | entry.bytes[i + 1] << 16 |
                    entry.bytes[i + 2] << 8 | entry.bytes[i + 3]);
  }
  return words;
}

// deviceid v, deviceid t "peer", vendorid v, vendorid t "maker", maxhopid v; the texts behind them.
Words PeerBlock() {
  Words block = {0x55584401, 20, 0x64657669, 0x63656964, 0x76000001, 0x0002,    0x64657669, 0x63656964,
                 0x74000002, 40, 0x76656e64, 0x6f726964, 0x76000001, 0x1234,    0x76656e64, 0x6f726964,
                 0x74000002, 42, 0x6d617868, 0x6f706964, 0x76000001, 0x00000009};
  block.resize(40);
  block.insert(block.end(), {0x70656572, 0, 0x6d616b65, 0x72000000});
  block.resize(48);
  return block;
}

}  // namespace

HandPeer::HandPeer(bool upperUuid)
    : Meeting("A=H1, B=H3", WithSilentPeer()),
      script([this](const Words& request) { return BehaveWell(request); }),
      uuid(4, upperUuid ? 0xFFFFFFFF : 0),
      block(PeerBlock()),
      self_(std::make_shared<HandPeer*>(this)) {
  uuid[1] = 0x01020304;
  wire().log().Listen([self = std::weak_ptr<HandPeer*>(self_)](const sim::WireEntry& entry) {
    if (const auto peer = self.lock()) (*peer)->Hear(entry);
  });
  ExpectIncomplete();
}

void HandPeer::Meet() {
  ASSERT_EQ(Start(), 0);
  Quiet();
  Plug("A:1 - B:1");
}

Words HandPeer::Packet(std::uint32_t type, Words payload, std::uint32_t sequence) {
  Words packet = {0, 0, static_cast<std::uint32_t>(5 + payload.size()) | sequence << 27};
  packet.insert(packet.end(), std::begin(kProtocol), std::end(kProtocol));
  packet.push_back(type);
  packet.insert(packet.end(), payload.begin(), payload.end());
  return packet;
}

Words HandPeer::AnswerTo(const Words& request, std::uint32_t type, Words payload) {
  Words answer = Packet(type, std::move(payload), request[2] >> 27 & 3);
  answer[1] = request[1];
  return answer;
}

Words HandPeer::Piece(const Words& request, std::uint32_t offset, std::uint32_t total, const Words& words) const {
  Words payload = uuid;
  payload.insert(payload.end(), request.begin() + 8, request.begin() + 12);
  payload.insert(payload.end(), {total << 16 | offset, generation});
  payload.insert(payload.end(), words.begin(), words.end());
  return AnswerTo(request, 4, payload);
}

std::optional<Words> HandPeer::BehaveWell(const Words& request) {
  switch (request[7]) {
    case 12: {
      Words payload = uuid;
      payload.insert(payload.end(), {0, 1});
      return AnswerTo(request, 2, payload);
    }
    case 3: {
      const std::uint32_t offset = request[16] & 0xFFFF, total = static_cast<std::uint32_t>(block.size());
      const std::uint32_t end = std::min(total, offset + kMostPiece);
      return Piece(request, offset, total, {block.begin() + offset, block.begin() + end});
    }
    case 5:
      return AnswerTo(request, 6, {});
    case 15:
      return AnswerTo(request, 16, {0, 0xC4000300 | widths | 0x40000});
    case 17:
      return AnswerTo(request, 18, {0});
    default:
      return std::nullopt;
  }
}

void HandPeer::Hear(const sim::WireEntry& entry) {
  if (entry.up || entry.pdf < 6 || entry.pdf > 7) return;
  const Words words = WordsOf(entry);
  if (words.size() < 8) return;
  if (entry.pdf == 7) {
    answers_.push_back(words);
    return;
  }
  requests_.push_back({words[7], words[2] >> 27 & 3, entry.when});
  if (auto answer = script(words)) {
    (*answer)[0] |= 0x80000000;
    simulation().After(delay, "peer answers",
                       [this, packet = sim::ControlPacket{sim::Pdf::InterDomainResponse, *answer}] {
                         wire().Inject(sim::ControlWire::Raw(packet));
                       });
  }
}

void HandPeer::Ask(const Words& packet, std::uint64_t route) {
  Words sent = packet;
  sent[0] = 0x80000000 | static_cast<std::uint32_t>(route >> 32);
  sent[1] = static_cast<std::uint32_t>(route);
  wire().Inject(sim::ControlWire::Raw({sim::Pdf::InterDomainRequest, sent}));
}

std::string HandPeer::AskAndHear(const Words& packet, std::uint64_t route) {
  answers_.clear();
  At(0, [this, packet, route] { Ask(packet, route); });
  Pass(200 * platform::kMillisecond);
  std::string text;
  for (const Words& answer : answers_) text += (text.empty() ? "" : "; ") + PacketText(answer);
  return text.empty() ? "none" : text;
}

std::string HandPeer::Requests() {
  std::string text;
  for (const Request& request : requests_) {
    const platform::Time since = last_ == 0 ? 0 : request.when - last_;
    last_ = request.when;
    text += fmt::format("{} seq={} +{}\n", request.type, request.sequence, RoundedMs(since));
  }
  requests_.clear();
  return text;
}

Words HandPeer::OwnUuid() {
  Words own;
  InDriver([&own](USB4_DOMAIN& domain) {
    for (unsigned i = 0; i < 4; ++i) {
      std::uint32_t word = 0;
      for (unsigned byte = 4; byte-- > 0;) word = word << 8 | domain.HostRouter.Peek()->Uuid.Peek()[4 * i + byte];
      own.push_back(word);
    }
  });
  return own;
}

std::string PacketText(const Words& packet) {
  std::string text = fmt::format("{}/{}", packet.at(7), packet[2] >> 27 & 3);
  if (packet.size() > 8) text += ":";
  for (std::size_t i = 8; i < packet.size(); ++i) text += fmt::format(" {:x}", packet[i]);
  return text;
}

}  // namespace tests
