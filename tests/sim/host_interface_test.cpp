// Goal: the host interface's registers are where the driver's tables say, and nothing else is. Method: bare register
// accesses and raised interrupts on a bench.
#include "sim/host/host_device.h"

#include <gtest/gtest.h>

#include "tests/sim/rig.h"

namespace sim::test {
namespace {

struct Bench {
  explicit Bench(HostInterfaceConfig config = {}) : host(simulation, "H1", config, errors) { host.Attach(slot); }
  std::string Errors() { return Text(errors); }
  platform::Simulation simulation;
  FakeSlot slot{simulation};
  ProtocolErrors errors;
  HostInterface host;
};

TEST(HostInterface, CapabilitiesCarryTheHopCountInTheLowTenBitsOnly) {
  for (std::uint32_t hops : {0u, 1u, 12u, 21u, 32u, 1023u}) {
    Bench bench({.hopCount = hops});
    EXPECT_EQ(bench.host.ReadRegister(0x39640) & 0x3FF, hops);
    EXPECT_NE(bench.host.ReadRegister(0x39640) >> 10, 0u) << "a driver that does not mask reads nonsense";
    EXPECT_EQ(bench.Errors(), "");
  }
}

TEST(HostInterface, UnknownOffsetsAndReadOnlyRegistersAreRecorded) {
  struct Case {
    bool write;
    std::uint32_t offset;
    const char* text;
  };
  const Case cases[] = {
      // Ring 12 of 12, twice; between two rings; behind the two status dwords of 36 bits; behind the one mask dword of
      // 24 bits; behind the three vector dwords of 24 rings.
      {false, 0x000C0, "H1 host interface: read of register 0x000c0, which does not exist [unknown-register-read]\n"},
      {true, 0x080C8,
       "H1 host interface: write of 0x00000001 to register 0x080c8, which does not exist [unknown-register-write]\n"},
      {false, 0x19808, "H1 host interface: read of register 0x19808, which does not exist [unknown-register-read]\n"},
      {false, 0x37808, "H1 host interface: read of register 0x37808, which does not exist [unknown-register-read]\n"},
      {false, 0x38204, "H1 host interface: read of register 0x38204, which does not exist [unknown-register-read]\n"},
      {true, 0x38C4C,
       "H1 host interface: write of 0x00000001 to register 0x38c4c, which does not exist [unknown-register-write]\n"},
      {true, 0x39640, "H1 host interface: write of 0x00000001 to read-only register 0x39640 [read-only-register]\n"},
      {true, 0x37800, "H1 host interface: write of 0x00000001 to read-only register 0x37800 [read-only-register]\n"},
      {false, 0x3FFFC, "H1 host interface: read of register 0x3fffc, which does not exist [unknown-register-read]\n"},
      {true, 0x38200, ""},
  };
  for (const Case& c : cases) {
    Bench bench({.hopCount = 12});
    if (c.write) {
      bench.host.WriteRegister(c.offset, 1);
    } else {
      EXPECT_EQ(bench.host.ReadRegister(c.offset), 0u);
    }
    EXPECT_EQ(bench.Errors(), c.text);
  }
}

TEST(HostInterface, MaskAndThrottleRefuseBitsThatDoNotExist) {
  Bench bench({.hopCount = 12});
  bench.host.WriteRegister(0x38200, 0x01000001);
  bench.host.WriteRegister(0x38C00, 0x101F4);
  EXPECT_EQ(bench.host.ReadRegister(0x38200), 1u);
  EXPECT_EQ(bench.host.ReadRegister(0x38C00), 0x1F4u);
  EXPECT_EQ(bench.Errors(),
            "H1 host interface: interrupt mask of rings that do not exist: 0x01000000 [interrupt-mask]\n"
            "H1 host interface: write of 0x000101f4 sets reserved bits of a throttling register [throttling]\n");
}

TEST(Interrupts, AMessageGoesOutWhenAnUnmaskedBitRisesAndReadingClearsTheWholeDword) {
  Bench bench({.hopCount = 12});
  InterruptUnit& unit = bench.host.interrupts();
  bench.host.WriteRegister(0x38C40, 0x00000000);  // ring interrupt 0: message 0
  bench.host.WriteRegister(0x38C44, 0x00010000);  // ring interrupt 12: message 1
  unit.Raise(12);
  EXPECT_TRUE(bench.slot.messages.empty()) << "masked";
  EXPECT_EQ(bench.host.ReadRegister(0x37800), 0x1000u) << "but the status shows it";

  bench.host.WriteRegister(0x38200, 0x1001);
  unit.Raise(12);
  unit.Raise(12);
  unit.Raise(0);
  ASSERT_EQ(bench.slot.messages.size(), 2u) << "no second message while the bit stands";
  EXPECT_EQ(bench.slot.messages[0].number, 1u);
  EXPECT_EQ(bench.slot.messages[1].number, 0u);
  EXPECT_EQ(bench.host.ReadRegister(0x37800), 0x1001u);
  EXPECT_EQ(bench.host.ReadRegister(0x37800), 0u);
}

TEST(Interrupts, ThrottlingMergesWhatComesWithinTheIntervalIntoOneMessage) {
  Bench bench({.hopCount = 12});
  bench.host.WriteRegister(0x38C00, 500);  // 128 us
  bench.host.WriteRegister(0x38200, 1);
  auto raiseAt = [&](platform::Time when) {
    bench.simulation.After(when, "raise", [&] {
      bench.host.ReadRegister(0x37800);
      bench.host.interrupts().Raise(0);
    });
  };
  for (platform::Time us : {0, 10, 50, 127, 140, 500}) raiseAt(us * kUs);
  bench.simulation.RunUntil({});
  std::vector<platform::Time> times;
  for (const FakeSlot::Message& message : bench.slot.messages) times.push_back(message.when / kUs);
  EXPECT_EQ(times, (std::vector<platform::Time>{0, 128, 256, 500})) << "140 us waits for 256 us";
}

TEST(Interrupts, VectorsThrottleApart) {
  Bench bench({.hopCount = 12});
  for (std::uint32_t vector = 0; vector < 16; ++vector) bench.host.WriteRegister(0x38C00 + 4 * vector, 500);
  bench.host.WriteRegister(0x38C40, 0x20);  // ring interrupt 1: message 2
  bench.host.WriteRegister(0x38200, 3);
  bench.host.interrupts().Raise(0);
  bench.host.interrupts().Raise(1);
  ASSERT_EQ(bench.slot.messages.size(), 2u);
  EXPECT_EQ(bench.slot.messages[1].number, 2u);
}

TEST(HostPower, D3KeepsRegistersAndOffForgetsThem) {
  Bench bench({.hopCount = 12});
  bench.host.WriteRegister(0x38C00, 500);
  bench.host.SetPower(platform::FunctionPower::D3Hot);
  EXPECT_EQ(bench.host.ReadRegister(0x38C00), ~0u);
  bench.host.SetPower(platform::FunctionPower::D0);
  EXPECT_EQ(bench.host.ReadRegister(0x38C00), 500u);
  bench.host.SetPower(platform::FunctionPower::Off);
  bench.host.SetPower(platform::FunctionPower::D0);
  EXPECT_EQ(bench.host.ReadRegister(0x38C00), 0u);
}

TEST(PowerOn, NeverReadyAndWrongWritesAreSeen) {
  Bench bench({.pci = {.vendor = 0x8086,
                       .device = 0x9A1B,
                       .powerOnSequence = true,
                       .readsUntilReady = PciFunctionConfig::kNeverReady}});
  bench.host.WriteConfig(0xFC, 0x22000000);
  for (int read = 0; read < 400; ++read) ASSERT_EQ(bench.host.ReadConfig(0xC8) >> 31, 0u);
  bench.host.WriteConfig(0xE0, 0x00000A5C);
  bench.host.WriteConfig(0xC8, 0);
  bench.host.WriteConfig(0x100, 0);
  EXPECT_EQ(bench.host.ReadConfig(0x0E), ~0u);
  EXPECT_EQ(bench.Errors(),
            "H1 PCI function: power request 0x22000000 written where 0x22310406 was due [power-request]\n"
            "H1 PCI function: power command 0x00000a5c does not echo the status word 0x00000a5c [power-command]\n"
            "H1 PCI function: configuration write of 0x00000000 to offset 0x000c8 [configuration-write]\n"
            "H1 PCI function: configuration write at offset 0x00100 [configuration-offset]\n"
            "H1 PCI function: configuration read at offset 0x0000e [configuration-read]\n");
}

}  // namespace
}  // namespace sim::test
