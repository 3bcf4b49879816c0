// The peer sits on the wire of the host: it hears what the host sends, and what it says is put into the host's ring.
#include "fuzz/peer.h"

#include <ntddk.h>
#include <wdf.h>

#include <deque>
#include <memory>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/verdict.h"
#include "include/device_context.h"
#include "lab/machine/machine.h"
#include "xdomain/property_block.h"
#include "xdomain/property_tree.h"

namespace fuzz {
namespace {

using Octets = std::vector<std::uint8_t>;
using Words = std::vector<std::uint32_t>;
constexpr std::size_t kMostWords = 500;
constexpr std::size_t kMostPacketBytes = 252;
constexpr unsigned kRequestPdf = 6, kResponsePdf = 7;

Words WordsOf(std::span<const std::uint8_t> bytes) {
  Words words;
  for (std::size_t i = 0; i + 4 <= bytes.size(); i += 4) {
    words.push_back(static_cast<std::uint32_t>(bytes[i]) << 24 | bytes[i + 1] << 16 | bytes[i + 2] << 8 | bytes[i + 3]);
  }
  return words;
}

Octets BytesOf(const Words& words) {
  Octets bytes;
  for (const std::uint32_t word : words) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<std::uint8_t>(word >> shift));
  }
  return bytes;
}

// --- blocks

Words Formatted(USB4_PROPERTY_DIR* tree) {
  const KIV_RESULT count = KivUsb4PropertyFormat(tree, nullptr, 0);
  Words words(static_cast<std::size_t>(std::max(count, 0)));
  if (KivUsb4PropertyFormat(tree, words.data(), static_cast<std::uint32_t>(words.size())) != kKivOk) words.clear();
  return words;
}

// In a block of its own length, so that the sanitizer knows where it ends.
USB4_PROPERTY_DIR* Parsed(const Words& words) {
  const auto block = std::make_unique<std::uint32_t[]>(words.size());
  std::copy(words.begin(), words.end(), block.get());
  return KivUsb4PropertyParseDir(block.get(), static_cast<std::uint32_t>(words.size()));
}

std::string ReadTwice(const Words& block) {
  USB4_PROPERTY_DIR* first = Parsed(block);
  if (first == nullptr) return "";
  const Words words = Formatted(first);
  USB4_PROPERTY_DIR* copy = KivUsb4PropertyCopyDir(first);
  KivUsb4PropertyFreeDir(first);
  KivUsb4PropertyFreeDir(copy);
  if (words.empty()) return "a tree that was read cannot be formatted";
  // A block whose parts lie over each other unfolds into one that is longer than any that is taken.
  if (words.size() > kMostWords) return "";
  USB4_PROPERTY_DIR* second = Parsed(words);
  if (second == nullptr) return "a block that was formatted cannot be read";
  const Words again = Formatted(second);
  KivUsb4PropertyFreeDir(second);
  return again == words ? "" : "a tree changes when it is formatted and read";
}

// --- a peer

lab::MachineConfig ConfigWithPeer(std::uint32_t seed) {
  lab::MachineConfig config;
  config.simulation.policy = seed == 0 ? platform::Policy::FirstCome : platform::Policy::Uniform;
  config.simulation.seed = seed;
  lab::PeerHostConfig mute;  // its router is what the cable leads to
  mute.peer = sim::PeerThatIs("silent");
  mute.peer.name = "B";
  config.peers.push_back(mute);
  return config;
}

// vendorid v, deviceid v, vendorid t "maker", deviceid t "peer"; the texts behind them.
const Words kBlock = {0x55584401, 16, 0x76656e64, 0x6f726964, 0x76000001, 0x1234, 0x64657669, 0x63656964,
                      0x76000001, 2,  0x76656e64, 0x6f726964, 0x74000002, 18,     0x64657669, 0x63656964,
                      0x74000002, 20, 0x6d616b65, 0x72000000, 0x70656572, 0};
const Words kUuid = {0xFFFFFFF0, 1, 2, 3};
const Words kProtocol = {0x0ED738B6, 0xBB40FF42, 0xE290C297, 0x07FFB2C0};

class PeerBench {
 public:
  explicit PeerBench(std::uint32_t seed) : machine_(ConfigWithPeer(seed)) {
    machine_.Start();
    IgnoreResult(machine_.WaitQuiet(kLongest));
    machine_.wire().log().Listen([this](const sim::WireEntry& entry) { Hear(entry); });
    if (!Stopped()) machine_.fabric().Plug("H1:1", "B:1");
  }
  bool Stopped() { return machine_.simulation().Stopped(); }
  void Play(Input& input);
  std::string Finish();

 private:
  struct Reply {
    unsigned kind = 0, pdf = kResponsePdf;
    Octets bytes;
  };

  static Words Packet(std::uint32_t type, const Words& payload, std::uint32_t sequence);
  static Words Honest(const Words& request);
  void Hear(const sim::WireEntry& entry);
  void Send(unsigned pdf, Octets bytes);

  lab::Machine machine_;
  std::deque<Reply> replies_;
};

Words PeerBench::Packet(std::uint32_t type, const Words& payload, std::uint32_t sequence) {
  Words packet = {0x80000000, 1, static_cast<std::uint32_t>(5 + payload.size()) | sequence << 27};
  packet.insert(packet.end(), kProtocol.begin(), kProtocol.end());
  packet.push_back(type);
  packet.insert(packet.end(), payload.begin(), payload.end());
  return packet;
}

Words PeerBench::Honest(const Words& request) {
  const std::uint32_t sequence = request[2] >> 27 & 3;
  Words payload;
  switch (request[7]) {
    case 3: {
      if (request.size() < 17) return {};
      const std::uint32_t offset = std::min(request[16] & 0xFFFF, static_cast<std::uint32_t>(kBlock.size()));
      payload = kUuid;
      payload.insert(payload.end(), request.begin() + 8, request.begin() + 12);
      payload.insert(payload.end(), {static_cast<std::uint32_t>(kBlock.size()) << 16 | offset, 1});
      payload.insert(payload.end(), kBlock.begin() + offset, kBlock.end());
      return Packet(4, payload, sequence);
    }
    case 5:
      return Packet(6, {}, sequence);
    case 12:
      payload = kUuid;
      payload.insert(payload.end(), {0, 1});
      return Packet(2, payload, sequence);
    case 15:
      return Packet(16, {0, 0xC40C0303}, sequence);
    case 17:
      return Packet(18, {0}, sequence);
    default:
      return {};
  }
}

void PeerBench::Send(unsigned pdf, Octets bytes) {
  AppendCrc(bytes);
  sim::RawPacket packet;
  packet.pdf = static_cast<std::uint8_t>(pdf);
  packet.bytes = std::move(bytes);
  machine_.wire().Inject(packet);
}

void PeerBench::Hear(const sim::WireEntry& entry) {
  if (entry.up || entry.pdf != kRequestPdf) return;
  const Words request = WordsOf(entry.bytes);
  if (request.size() < 9) return;  // eight words and the CRC
  Reply reply;
  if (!replies_.empty()) {
    reply = std::move(replies_.front());
    replies_.pop_front();
  }
  if (reply.kind == 1) return;
  if (reply.kind != 3) {
    Octets honest = BytesOf(Honest(request));
    if (honest.empty()) return;
    for (std::size_t i = 0; i + 1 < reply.bytes.size(); i += 2) {
      honest[reply.bytes[i] % honest.size()] ^= static_cast<std::uint8_t>(reply.bytes[i + 1]);
    }
    reply.bytes = std::move(honest);
  }
  machine_.simulation().After(100 * platform::kMicrosecond, "peer answers",
                              [this, reply] { Send(reply.pdf, reply.bytes); });
}

void PeerBench::Play(Input& input) {
  const unsigned kind = input.Byte() & 7;
  switch (kind) {
    case 2:
      replies_.push_back({kind, kResponsePdf, input.Bytes(2 * (input.Byte() & 0xF))});
      break;
    case 3: {
      const unsigned pdf = input.Byte() & 0xF;
      replies_.push_back({kind, pdf, input.Bytes(input.Byte() % (kMostPacketBytes + 1))});
      break;
    }
    case 4: {
      Words asked = WordsOf(input.Bytes(input.Byte() % 220));
      if (asked.empty()) asked.push_back(12);
      Send(kRequestPdf, BytesOf(Packet(asked.front(), {asked.begin() + 1, asked.end()}, 0)));
      break;
    }
    case 5: {
      const unsigned pdf = input.Byte() & 0xF;
      Send(pdf, input.Bytes(input.Byte() % (kMostPacketBytes + 1)));
      break;
    }
    case 6:
      machine_.simulation().RunFor(input.Byte() * 100 * platform::kMillisecond);
      break;
    default:
      replies_.push_back({kind & 1, kResponsePdf, {}});
      break;
  }
  if (kind >= 4) machine_.simulation().RunFor(20 * platform::kMicrosecond);
}

// Whatever the peer has said, it can be unplugged, and the host lives and leaves nothing behind.
std::string PeerBench::Finish() {
  platform::Simulation& simulation = machine_.simulation();
  if (!Stopped()) simulation.RunFor(40 * platform::kSecond);
  if (!Stopped()) {
    machine_.fabric().Unplug("H1:1");
    IgnoreResult(machine_.WaitQuiet(kLongest));
    if (!Stopped() && !machine_.Quiet()) return "not quiet an hour after the cable was pulled";
  }
  bool hasPeer = false;
  if (!Stopped()) {
    machine_.InDriver({}, [&](DEVICE_EXTENSION& context) { hasPeer = context.XDomain.Peek() != nullptr; });
  }
  if (hasPeer) return "a peer is known although its cable was pulled";
  if (!Stopped()) machine_.RemoveAndUnload();
  if (Stopped()) return WhyStopped(simulation);
  return machine_.kernel().PoolBytes() == 0 ? "" : "pool left behind";
}

// The kernel of all blocks: the pool wants one. Anew once it was stopped.
std::string ReadBlock(const Words& block) {
  static std::unique_ptr<lab::Machine> machine;
  if (machine == nullptr || machine->simulation().Stopped()) {
    machine = nullptr;  // never two at a time
    machine = std::make_unique<lab::Machine>(lab::MachineConfig{});
    machine->Start();
  }
  std::string broken = "the device has gone";
  const auto look = [&](DEVICE_EXTENSION&) {
    const std::size_t pool = machine->kernel().PoolBytes();
    broken = ReadTwice(block);
    if (broken.empty() && machine->kernel().PoolBytes() != pool) broken = "pool left behind";
  };
  machine->InDriver({}, look);
  return machine->simulation().Stopped() ? WhyStopped(machine->simulation()) : broken;
}

}  // namespace

std::string RunPeer(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return "";
  if ((bytes[0] & 1) == 0) {
    Words block = WordsOf(bytes.subspan(1));
    if (block.size() > kMostWords) block.resize(kMostWords);
    return ReadBlock(block);
  }
  PeerBench bench(bytes[0] >> 1);
  Input input(bytes.subspan(1));
  for (std::size_t records = 0; records < kMostRecords && !input.Empty() && !bench.Stopped(); ++records) {
    bench.Play(input);
  }
  return bench.Finish();
}

}  // namespace fuzz
