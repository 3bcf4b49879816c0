// The machine is built anew for each input, so that an input alone repeats what it did.
#include "fuzz/receive_path.h"

#include <ntddk.h>
#include <wdf.h>

#include <array>
#include <memory>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/verdict.h"
#include "hostif/config_access.h"
#include "include/device_context.h"
#include "include/domain_record.h"
#include "lab/machine/machine.h"

namespace fuzz {
namespace {

constexpr unsigned kMostReaders = 8;

lab::MachineConfig ConfigForSeed(std::uint32_t seed) {
  lab::MachineConfig config;
  config.simulation.policy = seed == 0 ? platform::Policy::FirstCome : platform::Policy::Uniform;
  config.simulation.seed = seed;
  return config;
}

class DeviceBench {
 public:
  explicit DeviceBench(std::uint32_t seed) : machine_(ConfigForSeed(seed)) {
    machine_.Start();
    IgnoreResult(machine_.WaitQuiet(kLongest));
    machine_.InDriver({}, [this](DEVICE_EXTENSION& context) { channel_ = context.Domain->ControlChannel; });
    machine_.faults().FailFrom("router.silent", 1);
    machine_.wire().log().Listen([this](const sim::WireEntry& entry) {
      if (!entry.up && (entry.pdf == 1 || entry.pdf == 2)) lastRequest_ = entry;
    });
  }

  bool Stopped() { return machine_.simulation().Stopped(); }
  void Play(Input& input);
  std::string Finish();

 private:
  void Packet(Input& input, bool withCrc);
  void Answer(Input& input);
  void Read(Input& input);
  void Lie(Input& input);

  lab::Machine machine_;
  USB4_CTL* channel_ = nullptr;
  sim::WireEntry lastRequest_;
  unsigned readers_ = 0;
  unsigned readersEnded_ = 0;
  bool outOfStep_ = false;  // the device has completed a descriptor that it did not use
};

void DeviceBench::Packet(Input& input, bool withCrc) {
  sim::RawPacket packet;
  packet.pdf = input.Byte() & 0xF;
  packet.bytes = input.Bytes(input.Byte());
  if (withCrc) AppendCrc(packet.bytes);
  machine_.wire().Inject(packet);
}

// As a router would answer, with as many data words as were asked for; then bent.
void DeviceBench::Answer(Input& input) {
  const auto request = sim::DecodePacket(static_cast<sim::Pdf>(lastRequest_.pdf), lastRequest_.bytes);
  if (!request) return;
  sim::ControlPacket answer = request->packet;
  answer.dwords.resize(sim::kHeaderDwords + (answer.pdf == sim::Pdf::Read ? answer.Address().length : 0));
  answer.dwords[0] |= 1u << 31;
  const std::vector<std::uint8_t> right = sim::EncodePacket(answer);
  sim::RawPacket packet;
  packet.pdf = lastRequest_.pdf;
  packet.bytes.assign(right.begin(), right.end() - 4);
  for (std::uint32_t flips = input.Byte() & 0xF; flips > 0; --flips) {
    const std::uint32_t position = input.Byte();
    packet.bytes[position % packet.bytes.size()] ^= static_cast<std::uint8_t>(input.Byte());
  }
  AppendCrc(packet.bytes);
  machine_.wire().Inject(packet);
}

void DeviceBench::Read(Input& input) {
  const auto space = static_cast<USB4_CFG_SPACE>(input.Byte() & 3);
  const std::uint32_t offset = input.Byte();
  const std::uint32_t length = input.Byte() & 0x3F;
  if (readers_ == kMostReaders) return;
  ++readers_;
  machine_.simulation().Spawn(&machine_.kernel(), "reader", [this, space, offset, length] {
    std::array<std::uint32_t, 64> words{};
    IgnoreResult(Usb4CfgReadRaw(channel_, words.data(), {0, 0, {space, offset, length}}, kControlReplyMs));
    ++readersEnded_;
  });
}

void DeviceBench::Lie(Input& input) {
  sim::RawPacket packet;
  packet.pdf = input.Byte() & 0xF;
  const std::uint32_t length = input.Byte();
  packet.forgery.size = input.Half();
  const std::uint32_t status = input.Half();
  packet.forgery.statusBits = status & 0xFFF;
  packet.forgery.startPdf = status >> 12;
  packet.bytes = input.Bytes(length);
  machine_.wire().Inject(packet);
}

void DeviceBench::Play(Input& input) {
  switch (input.Byte() & 7) {
    case 0:
      Packet(input, false);
      break;
    case 1:
      Packet(input, true);
      break;
    case 2:
      Answer(input);
      break;
    case 3:
      Read(input);
      break;
    case 4:
      machine_.simulation().RunFor(input.Byte() * platform::kMillisecond);
      break;
    case 5:
      Lie(input);
      break;
    case 6: {
      const std::uint32_t index = input.Byte() % 10;
      outOfStep_ |= machine_.hostInterface().ForgeDescriptor(false, 0, index, input.Word());
      break;
    }
    case 7:
      machine_.hostInterface().interrupts().Raise(input.Half() % 24);
      break;
  }
  machine_.simulation().RunFor(20 * platform::kMicrosecond);
}

std::string DeviceBench::Finish() {
  machine_.faults().HealAll();
  const auto quiet = [this] { return readersEnded_ == readers_ && machine_.Quiet(); };
  platform::Simulation& simulation = machine_.simulation();
  if (!Stopped() && !quiet()) IgnoreResult(simulation.RunUntil(quiet, simulation.Now() + kLongest));
  if (!Stopped() && !quiet()) return "not quiet an hour later";
  KIV_RESULT alive = kKivOk;
  machine_.InDriver({}, [&](DEVICE_EXTENSION& context) {
    std::uint32_t word = 0;
    alive = KivUsb4CfgRead(context.Domain->ControlChannel, &word, {0, 0, {USB4_CFG_SPACE_ROUTER, 0, 1}});
  });
  const bool awake = machine_.kernel().Power(machine_.device()) == platform::DevicePower::D0;
  if (!Stopped() && awake && !outOfStep_ && alive != kKivOk) return "the control channel is dead";
  if (!Stopped()) machine_.RemoveAndUnload();
  if (Stopped()) return WhyStopped(simulation);
  return machine_.kernel().PoolBytes() == 0 ? "" : "pool left behind";
}

}  // namespace

std::string RunReceivePath(std::span<const std::uint8_t> bytes) {
  Input input(bytes);
  DeviceBench bench(input.Byte());
  for (std::size_t records = 0; records < kMostRecords && !input.Empty() && !bench.Stopped(); ++records) {
    bench.Play(input);
  }
  return bench.Finish();
}

}  // namespace fuzz
