// A bench for the hardware model: memory, interrupts and control ring of a host, driven by hand. No driver, no kernel.
#pragma once
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/simulation.h"
#include "sim/fabric/fabric.h"

namespace sim::test {

// Seed 0 means first-come with typical times.
inline platform::SimulationOptions Options(std::uint64_t seed) {
  platform::SimulationOptions options;
  options.seed = seed;
  options.policy = seed == 0 ? platform::Policy::FirstCome : platform::Policy::Uniform;
  return options;
}

inline constexpr std::uint32_t kDone = 1u << 21;  // in dword 2 of a descriptor

// Everything that the model holds against its driver, one a line.
std::string Text(const ProtocolErrors& errors);

class FakeSlot final : public platform::PciSlot {
 public:
  explicit FakeSlot(platform::Simulation& simulation) : simulation_(simulation), memory_(0x40000, 0xCC) {}

  platform::Simulation& simulation() override { return simulation_; }
  platform::HostKernel& kernel() override { std::abort(); }
  bool DmaRead(std::uint64_t bus, void* to, std::size_t bytes) override {
    if (!Inside(bus, bytes)) return false;
    std::memcpy(to, memory_.data() + (bus - kBase), bytes);
    return true;
  }
  bool DmaWrite(std::uint64_t bus, const void* from, std::size_t bytes) override {
    if (!Inside(bus, bytes)) return false;
    writes.push_back({simulation_.Now(), bus, bytes});
    std::memcpy(memory_.data() + (bus - kBase), from, bytes);
    return true;
  }
  void SignalMessage(unsigned message) override { messages.push_back({simulation_.Now(), message}); }
  std::uint64_t DroppedMessages() const override { return 0; }
  void SignalWake() override { ++wakes; }

  std::uint32_t Word(std::uint64_t bus) const {
    std::uint32_t value = 0;
    std::memcpy(&value, memory_.data() + (bus - kBase), 4);
    return value;
  }
  void SetWord(std::uint64_t bus, std::uint32_t value) { std::memcpy(memory_.data() + (bus - kBase), &value, 4); }
  std::uint8_t* At(std::uint64_t bus) { return memory_.data() + (bus - kBase); }

  struct Message {
    platform::Time when;
    unsigned number;
  };
  struct Write {
    platform::Time when;
    std::uint64_t bus;
    std::size_t bytes;
  };
  static constexpr std::uint64_t kBase = 0x1'0000'0000;
  std::vector<Message> messages;
  std::vector<Write> writes;
  unsigned wakes = 0;
  unsigned badAccesses = 0;

 private:
  bool Inside(std::uint64_t bus, std::size_t bytes) {
    const bool inside = bus >= kBase && bus + bytes <= kBase + memory_.size();
    badAccesses += inside ? 0 : 1;
    return inside;
  }
  platform::Simulation& simulation_;
  std::vector<std::uint8_t> memory_;
};

// Clock and hardware.
struct FabricBench {
  explicit FabricBench(std::uint64_t seed) : simulation(Options(seed)), fabric(simulation) {}
  // Adds routers and cables from a line such as "H1:1 D1:1, D1:3 D2:1"; a router is named after its model, which a
  // trailing letter may tell apart ("D1a").
  void Build(const std::string& cables);
  void Run(platform::Time time) { simulation.RunFor(time); }
  Adapter& adapter(const char* port) { return *fabric.FindAdapter(port); }
  std::string Errors() { return Text(fabric.errors()); }

  platform::Simulation simulation;
  Fabric fabric;
};

// One host of a bench: its memory and interrupts, its control ring, and a manager made of single accesses.
class HostBench {
 public:
  static constexpr unsigned kRingSize = 10;
  static constexpr std::uint64_t kTransmitTable = FakeSlot::kBase + 0x1000;
  static constexpr std::uint64_t kReceiveTable = FakeSlot::kBase + 0x2000;
  static constexpr std::uint64_t kTransmitBuffers = FakeSlot::kBase + 0x10000;  // 256 bytes each
  static constexpr std::uint64_t kReceiveBuffers = FakeSlot::kBase + 0x20000;

  HostBench(FabricBench& bench, const char* name);

  // Control rings on hop 0, receive descriptors posted.
  void StartControlRing(unsigned posted = kRingSize - 1);
  // Raw mode receive descriptors: posts one more.
  void PostReceive();
  void SendBytes(unsigned pdf, const std::vector<std::uint8_t>& bytes);
  void Send(Pdf pdf, std::uint64_t route, std::uint32_t word2, const std::vector<std::uint32_t>& data = {});
  // One access to its end; gives the answer as the log describes it, or "" when none came within 5 ms.
  std::string Read(std::uint64_t route, unsigned adapter, Space space, unsigned offset, unsigned length = 1);
  std::string Write(std::uint64_t route, unsigned adapter, Space space, unsigned offset,
                    const std::vector<std::uint32_t>& data);
  // First dword of a read that must succeed.
  std::uint32_t Value(std::uint64_t route, unsigned adapter, Space space, unsigned offset);
  // Starts the control ring and configures every router of the domain from the top, opening the ports between.
  void ManageDomain();
  // Writes the header of the router at `route` as a manager does; of a USB4 router also the ready request.
  void Configure(std::uint64_t route, unsigned upstream);
  void Acknowledge(std::uint64_t route, unsigned adapter, bool unplug);
  void Unlock(std::uint64_t route, unsigned adapter);

  // Takes what has come in and posts the buffers again.
  void RepostCompleted();
  WireLog& log() { return fabric_.wire(hostName).log(); }
  std::string Wire() { return log().TakeText(); }
  std::uint32_t ReceiveWord(unsigned index) const { return slot.Word(kReceiveTable + 16 * index + 8); }
  std::uint32_t TransmitWord(unsigned index) const { return slot.Word(kTransmitTable + 16 * index + 8); }

  const std::string hostName;
  FakeSlot slot;
  HostInterface& host;

 private:
  std::string Access(Pdf pdf, std::uint64_t route, AddressWord address, const std::vector<std::uint32_t>& data);
  void RunFor(platform::Time time) { slot.simulation().RunFor(time); }

  Fabric& fabric_;
  unsigned transmitHead_ = 0;
  unsigned receiveHead_ = 0;
  unsigned receiveTail_ = 0;
};

// A bench with one host, named after its model.
struct Rig : FabricBench, HostBench {
  explicit Rig(const char* model = "H1", std::uint64_t seed = 0);
  // Builds the cables, then manages the domain.
  void Manage(const std::string& cables = "");
};

// For a write to a register space past the wire: a complaint fails the test.
inline const Complain kNoComplaint = [](Complaint rule, const ComplaintArguments&) {
  ADD_FAILURE() << ComplaintName(rule);
};

}  // namespace sim::test
