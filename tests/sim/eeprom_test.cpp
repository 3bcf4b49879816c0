// Goal: the serial part answers a manager that clocks it right, and nobody else. Method: the control dword of a
// Thunderbolt 3 host, written bit by bit over the wire.
#include <gtest/gtest.h>

#include "sim/router/drom_writer.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

constexpr unsigned kPlugEvents = 0x05;
constexpr unsigned kLines = kPlugEvents + 4;

struct ThunderboltHost : Rig {
  ThunderboltHost() : Rig("HT") { Manage(); }
  void Set(std::uint32_t lines) { Write(0, 0, Space::Router, kLines, {0x80 | lines}); }
  void Out(unsigned byte) {
    for (int bit = 7; bit >= 0; --bit) {
      const std::uint32_t data = byte >> bit & 1 ? 4 : 0;
      Set(0x10 | data);
      Set(0x11 | data);
      Set(0x10 | data);
    }
  }
  unsigned In() {
    unsigned byte = 0;
    for (int bit = 0; bit < 8; ++bit) {
      Set(0x11);
      byte = byte << 1 | (Value(0, 0, Space::Router, kLines) >> 3 & 1);
      Set(0x10);
    }
    return byte;
  }
  std::vector<unsigned> ReadBytes(unsigned command, unsigned address, unsigned count) {
    Set(0x12);
    Set(0x10);
    Out(command);
    Out(address >> 8);
    Out(address & 0xFF);
    std::vector<unsigned> bytes;
    for (unsigned i = 0; i < count; ++i) bytes.push_back(In());
    Set(0x12);
    Set(0x02);
    return bytes;
  }
};

TEST(Eeprom, ClockedRightItGivesItsBytesAndClockedWrongOthers) {
  ThunderboltHost rig;
  EXPECT_EQ(rig.Value(0, 0, Space::Router, kPlugEvents + 12), 0x100u) << "where the DROM lies";
  EXPECT_EQ(rig.Value(0, 0, Space::Router, kLines), 0x82u) << "usable and deselected";
  EXPECT_EQ(rig.ReadBytes(0x03, 0x116, 8), (std::vector<unsigned>{0x08, 0x81, 0x80, 0x02, 0x80, 0x00, 0x00, 0x00}))
      << "the first entry";
  EXPECT_EQ(rig.ReadBytes(0x03, 0x100, 1), std::vector<unsigned>{0x5F}) << "the check byte, on a second selection";
  EXPECT_EQ(rig.Errors(), "");
  EXPECT_EQ(rig.ReadBytes(0x05, 0x100, 2), (std::vector<unsigned>{0, 0})) << "no read command";
  rig.Set(0x12);
  rig.Set(0x10);
  rig.Set(0x11);  // one clock too many
  rig.Set(0x10);
  rig.Out(0x03);
  rig.Out(0x01);
  rig.Out(0x00);
  EXPECT_NE(rig.In(), 0x5Fu);
}

TEST(Eeprom, BrokenImagesAreBrokenWhereTheModelSays) {
  struct Case {
    const char* fault;
    std::size_t byte;
  };
  for (const Case& c : {Case{"crc-8", 0}, Case{"crc-32", 9}, Case{"length", 15}}) {
    RouterModel model = *FindModel("D1");
    const std::vector<std::uint8_t> good = BuildDrom(model);
    model.drom.faults = {c.fault};
    std::vector<std::uint8_t> bad = BuildDrom(model);
    EXPECT_NE(bad[c.byte], good[c.byte]) << c.fault;
    bad[c.byte] = good[c.byte];
    EXPECT_EQ(bad, good) << c.fault;
  }
}

}  // namespace
}  // namespace sim::test
