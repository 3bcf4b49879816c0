// A bench for the hardware model.
#include "tests/sim/rig.h"

#include <gtest/gtest.h>

#include <sstream>

#include "sim/router/cable.h"

namespace sim::test {
namespace {

constexpr std::uint32_t kPosted = 0x00C00000;

std::string ModelOf(std::string router) {
  while (!router.empty() && router.back() >= 'a' && router.back() <= 'z') router.pop_back();
  return router;
}

}  // namespace

void FabricBench::Build(const std::string& cables) {
  std::istringstream in(cables);
  for (std::string cable; std::getline(in, cable, ',');) {
    std::istringstream ends(cable);
    std::string first, second;
    ends >> first >> second;
    for (const std::string& port : {first, second}) {
      const std::string router = port.substr(0, port.find(':'));
      if (fabric.Find(router) == nullptr) fabric.AddRouter(ModelOf(router), router);
    }
    fabric.Connect(first, second);
  }
}

HostBench::HostBench(FabricBench& bench, const char* name)
    : hostName(name),
      slot(bench.simulation),
      host((bench.fabric.Find(name) == nullptr ? bench.fabric.AddRouter(ModelOf(name), name) : *bench.fabric.Find(name),
            bench.fabric.hostInterface(name))),
      fabric_(bench.fabric) {
  host.Attach(slot);
}

void HostBench::StartControlRing(unsigned posted) {
  const auto low = [](std::uint64_t address) { return static_cast<std::uint32_t>(address); };
  host.WriteRegister(0x00000, low(kTransmitTable));
  host.WriteRegister(0x00004, 1);
  host.WriteRegister(0x0000C, kRingSize);
  host.WriteRegister(0x19800, 0xC0000000);
  host.WriteRegister(0x08000, low(kReceiveTable));
  host.WriteRegister(0x08004, 1);
  host.WriteRegister(0x0800C, 0x01000000 | kRingSize);
  host.WriteRegister(0x29804, 0xFFFFFFFF);
  host.WriteRegister(0x29800, 0xC0000000);
  const std::uint32_t receive = host.config().hopCount;
  host.WriteRegister(0x38C40 + 4 * (receive / 8), 1u << (4 * (receive % 8)));
  host.WriteRegister(0x38200, 1u | (receive < 32 ? 1u << receive : 0));
  for (unsigned i = 0; i < posted; ++i) PostReceive();
}

void HostBench::PostReceive() {
  const std::uint64_t descriptor = kReceiveTable + 16 * receiveHead_;
  const std::uint64_t buffer = kReceiveBuffers + 256 * receiveHead_;
  slot.SetWord(descriptor, static_cast<std::uint32_t>(buffer));
  slot.SetWord(descriptor + 4, static_cast<std::uint32_t>(buffer >> 32));
  slot.SetWord(descriptor + 8, kPosted);
  slot.SetWord(descriptor + 12, 0);
  receiveHead_ = (receiveHead_ + 1) % kRingSize;
  host.WriteRegister(0x08008, receiveHead_);
}

void HostBench::RepostCompleted() {
  while (receiveTail_ != receiveHead_ && (ReceiveWord(receiveTail_) & kDone) != 0) {
    receiveTail_ = (receiveTail_ + 1) % kRingSize;
    PostReceive();
  }
}

void HostBench::SendBytes(unsigned pdf, const std::vector<std::uint8_t>& bytes) {
  const std::uint64_t descriptor = kTransmitTable + 16 * transmitHead_;
  const std::uint64_t buffer = kTransmitBuffers + 256 * transmitHead_;
  std::memcpy(slot.At(buffer), bytes.data(), bytes.size());
  slot.SetWord(descriptor, static_cast<std::uint32_t>(buffer));
  slot.SetWord(descriptor + 4, static_cast<std::uint32_t>(buffer >> 32));
  slot.SetWord(descriptor + 8, kPosted | pdf << 16 | pdf << 12 | static_cast<std::uint32_t>(bytes.size()));
  slot.SetWord(descriptor + 12, 0);
  transmitHead_ = (transmitHead_ + 1) % kRingSize;
  host.WriteRegister(0x00008, transmitHead_ << 16);
}

void HostBench::Send(Pdf pdf, std::uint64_t route, std::uint32_t word2, const std::vector<std::uint32_t>& data) {
  ControlPacket packet{pdf, {static_cast<std::uint32_t>(route >> 32), static_cast<std::uint32_t>(route), word2}};
  packet.dwords.insert(packet.dwords.end(), data.begin(), data.end());
  SendBytes(static_cast<unsigned>(pdf), EncodePacket(packet));
}

std::string HostBench::Access(Pdf pdf, std::uint64_t route, AddressWord address,
                              const std::vector<std::uint32_t>& data) {
  const std::size_t before = log().entries().size();
  Send(pdf, route, address.Encode(), data);
  std::string answer;
  const platform::Time deadline = slot.simulation().Now() + 5 * kMs;
  while (answer.empty() && slot.simulation().Now() < deadline) {
    RunFor(50 * kUs);
    for (std::size_t i = before; i < log().entries().size() && answer.empty(); ++i) {
      if (log().entries()[i].up && log().entries()[i].pdf <= 3) answer = log().entries()[i].text;
    }
  }
  RunFor(60 * kUs);  // until the answer has been written back
  RepostCompleted();
  return answer;
}

std::string HostBench::Read(std::uint64_t route, unsigned adapter, Space space, unsigned offset, unsigned length) {
  return Access(Pdf::Read, route, {offset, length, adapter, space, 0, 0}, {});
}

std::string HostBench::Write(std::uint64_t route, unsigned adapter, Space space, unsigned offset,
                             const std::vector<std::uint32_t>& data) {
  return Access(Pdf::Write, route, {offset, static_cast<std::uint32_t>(data.size()), adapter, space, 0, 0}, data);
}

std::uint32_t HostBench::Value(std::uint64_t route, unsigned adapter, Space space, unsigned offset) {
  const std::string answer = Read(route, adapter, space, offset);
  const std::size_t at = answer.find("data=");
  EXPECT_NE(at, std::string::npos) << "answer: " << answer;
  return at == std::string::npos ? 0 : static_cast<std::uint32_t>(std::stoul(answer.substr(at + 5, 8), nullptr, 16));
}

void HostBench::Configure(std::uint64_t route, unsigned upstream) {
  unsigned depth = 0;
  while (depth < 8 && route >> (8 * depth) != 0) ++depth;
  const std::uint32_t cs1 = Value(route, 0, Space::Router, 1);
  const std::uint32_t cs4 = Value(route, 0, Space::Router, 4);
  const bool usb4 = cs4 >> 24 >= 0x20;
  std::vector<std::uint32_t> header = {(cs1 & ~0x00703F00u) | upstream << 8 | depth << 20,
                                       static_cast<std::uint32_t>(route),
                                       static_cast<std::uint32_t>(route >> 32) | 0x80000000};
  if (usb4) header.push_back((cs4 & 0xFFFF00FF) | 0x1000);
  Write(route, 0, Space::Router, 1, header);
  if (!usb4 || route == 0) return;
  Write(route, 0, Space::Router, 5, {0x83800000 & ~0x03000000u});
  RunFor(10 * kMs);
}

void HostBench::ManageDomain() {
  Router& top = *fabric_.Find(hostName);
  StartControlRing();
  Configure(0, top.upstreamAdapter());
  for (const auto& router : fabric_.routers()) {
    const unsigned upstream = router->upstreamAdapter();
    if (router->isHost() || router->place().host != &top) continue;
    const Adapter* above = router->adapter(upstream)->link->Opposite(*router->adapter(upstream));
    Unlock(above->router().place().route, above->number());
    Configure(router->place().route, upstream);
  }
}

void HostBench::Acknowledge(std::uint64_t route, unsigned adapter, bool unplug) {
  Send(Pdf::Notification, route, 7 | adapter << 8 | (unplug ? 3u : 2u) << 30);
  RunFor(1 * kMs);
  RepostCompleted();
}

void HostBench::Unlock(std::uint64_t route, unsigned adapter) {
  Write(route, adapter, Space::Adapter, 4, {Value(route, adapter, Space::Adapter, 4) & 0x7FFFFFFF});
}

Rig::Rig(const char* model, std::uint64_t seed) : FabricBench(seed), HostBench(*this, model) {}

void Rig::Manage(const std::string& cables) {
  Build(cables);
  ManageDomain();
}

std::string Text(const ProtocolErrors& errors) {
  std::string text;
  for (const ProtocolError& error : errors.list()) text += error.Text() + "\n";
  return text;
}

}  // namespace sim::test
