// Goal: a router answers what it has, refuses the rest with the code that names the cause, and blames improper writes.
// Method: one access per row over the whole path ring - wire - router - ring.
#include <gtest/gtest.h>

#include "tests/sim/rig.h"

namespace sim::test {
namespace {

struct ConfiguredHost : Rig {
  explicit ConfiguredHost(const char* model = "H1") : Rig(model) {
    Manage();
    Wire();
  }
};

TEST(RouterAccess, TheHeaderAnswersBeforeConfigurationAndTellsTheUpstreamAdapter) {
  Rig rig;
  rig.StartControlRing();
  EXPECT_EQ(rig.Read(0, 0, Space::Router, 0, 5),
            "READ route=0 adapter=7 space=router offset=0x000 length=5 seq=0 "
            "data=200b8086 0101c728 00000000 00000000 4000000a");
  EXPECT_EQ(rig.Read(0, 0, Space::Router, 6),
            "READ route=0 adapter=7 space=router offset=0x006 length=1 seq=0 data=01000000");
  EXPECT_EQ(rig.Read(0, 1, Space::Adapter, 0), "ERROR route=0 adapter=1 code=8 (router not enumerated)");
  EXPECT_EQ(rig.Write(0, 0, Space::Router, 5, {1}), "ERROR route=0 adapter=0 code=8 (router not enumerated)");
  EXPECT_EQ(rig.Errors(), "") << "a router that was reset meanwhile says so, which is no mistake";
}

TEST(RouterAccess, EachCauseHasItsErrorPacket) {
  struct Case {
    unsigned adapter;
    Space space;
    unsigned offset, length;
    const char* answer;
  };
  const Case cases[] = {
      {0, Space::Router, 0x4C, 1, "ERROR route=0 adapter=0 code=2 (no such address or space)"},
      {0, Space::Router, 0x4B, 2, "ERROR route=0 adapter=0 code=2 (no such address or space)"},
      {0, Space::Router, 0x1FFF, 1, "ERROR route=0 adapter=0 code=2 (no such address or space)"},
      {3, Space::Router, 0, 1, "ERROR route=0 adapter=3 code=4 (no such adapter)"},
      {16, Space::Adapter, 0, 8, "ERROR route=0 adapter=16 code=2 (no such address or space)"},
      {24, Space::Adapter, 0, 8, "ERROR route=0 adapter=24 code=4 (no such adapter)"},
      {0, Space::Adapter, 0, 8, "ERROR route=0 adapter=0 code=4 (no such adapter)"},
      {1, Space::Path, 64, 2, "ERROR route=0 adapter=1 code=2 (no such address or space)"},
      {1, Space::Counters, 12, 3, "ERROR route=0 adapter=1 code=2 (no such address or space)"},
      {2, Space::Counters, 0, 3, "ERROR route=0 adapter=2 code=2 (no such address or space)"},
      {1, Space::Counters, 9, 3,
       "READ route=0 adapter=1 space=counters offset=0x009 length=3 seq=0 data=00000000 00000000 00000000"},
      {1, Space::Path, 62, 2, "READ route=0 adapter=1 space=path offset=0x03e length=2 seq=0 data=00000000 00000000"},
      {1, Space::Path, 0, 2, "READ route=0 adapter=1 space=path offset=0x000 length=2 seq=0 data=80040001 21000001"},
  };
  ConfiguredHost rig("H3");
  for (const Case& c : cases) EXPECT_EQ(rig.Read(0, c.adapter, c.space, c.offset, c.length), c.answer);
  EXPECT_EQ(rig.Errors(), "") << "asking for what is not there is no mistake";
}

TEST(RouterAccess, LengthsAreCheckedInBothDirections) {
  struct Case {
    Pdf pdf;
    std::uint32_t length;
    std::size_t dwords;
    const char* error;
  };
  const Case cases[] = {
      {Pdf::Read, 0, 0, "read of 0 dwords in a packet of 3 [request-length]"},
      {Pdf::Read, 1, 1, "read of 1 dwords in a packet of 4 [request-length]"},
      {Pdf::Read, 61, 0, "read of 61 dwords in a packet of 3 [request-length]"},
      {Pdf::Write, 2, 1, "write of 2 dwords in a packet of 4 [request-length]"},
      {Pdf::Write, 0, 0, "write of 0 dwords in a packet of 3 [request-length]"},
  };
  for (const Case& c : cases) {
    ConfiguredHost rig;
    rig.Send(c.pdf, 0, 0x04000000 | c.length << 13, std::vector<std::uint32_t>(c.dwords));
    rig.Run(2 * kMs);
    EXPECT_NE(rig.Wire().find("<- ERROR route=0 adapter=0 code=10 (wrong length)"), std::string::npos) << c.error;
    EXPECT_EQ(rig.Errors(), std::string("H1 (route 0): ") + c.error + "\n");
  }
  ConfiguredHost rig;
  EXPECT_NE(rig.Read(0, 7, Space::Path, 0, 24).find("length=24"), std::string::npos) << "12 hops of two dwords";
}

TEST(RouterAccess, HeaderBitsAddressBitsAndCrcAreChecked) {
  ConfiguredHost rig;
  rig.Send(Pdf::Read, 0x200ull << 54, 0x04002000);  // the mark that only answers carry
  rig.Run(1 * kMs);
  EXPECT_NE(rig.Wire().find("<- ERROR route=0 adapter=0 code=11 (header error)"), std::string::npos);
  rig.Send(Pdf::Read, 0, 0x24002000);
  rig.Run(1 * kMs);
  EXPECT_NE(rig.Wire().find("<- READ route=0 adapter=7 space=router offset=0x000 length=1 seq=0 data=200b8086"),
            std::string::npos);
  std::vector<std::uint8_t> bytes = EncodePacket({Pdf::Read, {0, 0, 0x04002000}});
  bytes[15] ^= 1;
  rig.SendBytes(1, bytes);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Wire(), "-> READ route=0 adapter=0 space=router offset=0x000 length=1 seq=0 crc=bad\n") << "no answer";
  rig.SendBytes(4, EncodePacket({static_cast<Pdf>(4), {0, 0, 0}}));
  rig.SendBytes(1, {1, 2, 3, 4, 5, 6});
  rig.SendBytes(1, EncodePacket({Pdf::Read, {0, 0}}));
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Errors(),
            "H1 (route 0): request with bits 0x00000200 in 31:22 of its first dword [request-header]\n"
            "H1 (route 0): request with reserved bits in its address word 0x24002000 [request-reserved]\n"
            "H1 (route 0): packet with a wrong CRC [packet-crc]\n"
            "H1 transmit ring 0: control packet of 6 bytes, which is no whole number of dwords [packet-bytes]\n"
            "H1 (route 0): packet of 2 dwords; a header has 3 [packet-length]\n"
            "H1 (route 0): packet of type 4, which no router takes [packet-type]\n");
}

struct OneWrite {
  unsigned adapter;
  Space space;
  unsigned offset;
  std::vector<std::uint32_t> data;
  const char* error;
};

TEST(RouterAccess, ImproperWritesAreBlamedOnceWithTheirPlace) {
  const OneWrite cases[] = {
      {3,
       Space::Adapter,
       5,
       {0x0000400A},
       "H1:3 (route 0): write of 0x0000400a changes read-only bits 0x00000002 of adapter dword 5 [read-only-bits]\n"},
      {0,
       Space::Router,
       4,
       {0x2000100A},
       "H1 (route 0): write of 0x2000100a changes read-only bits 0x60000000 of router dword 4 [read-only-bits]\n"},
      {0,
       Space::Router,
       5,
       {0x00000010},
       "H1 (route 0): write of 0x00000010 changes preserved bits 0x00000010 of router dword 5 [preserved-bits]\n"},
      {0,
       Space::Router,
       7,
       {0},
       "H1 (route 0): write of 0x00000000 changes read-only bits 0x89abcd01 of router dword 7 [read-only-bits]\n"},
      {0,
       Space::Router,
       26,
       {0x00FF0000},
       "H1 (route 0): write of 0x00ff0000 sets reserved bits 0x00ff0000 of router dword 26 [reserved-bits]\n"},
      {1,
       Space::Adapter,
       0xAF,
       {0},
       "H1:1 (route 0): write of 0x00000000 changes preserved bits 0x00000006 of adapter dword 175 [preserved-bits]\n"},
      {1,
       Space::Adapter,
       9,
       {1},
       "H1:1 (route 0): write of 0x00000001 to adapter dword 9, which does not exist [unknown-dword]\n"},
      {0,
       Space::Router,
       0x1B,
       {0},
       "H1 (route 0): write of 0x00000000 to router dword 27, which does not exist [unknown-dword]\n"},
      {1,
       Space::Path,
       0,
       {0, 0},
       "H1:1 (route 0): write of 0x00000000 changes preserved bits 0x80040001 of path dword 0 [preserved-bits]\n"
       "H1:1 (route 0): write of 0x00000000 changes preserved bits 0x21000001 of path dword 1 [preserved-bits]\n"},
      // Proper ones: status bits out of date, credits.
      {1, Space::Adapter, 0x37, {0x0000003C}, ""},
      {1, Space::Adapter, 4, {0xCB30000A}, ""},
      {3, Space::Path, 16, {0x01FE3FFF, 0x0FFFFF0F}, ""},
      {7, Space::Adapter, 5, {0x0340580B}, ""},
  };
  for (const OneWrite& c : cases) {
    ConfiguredHost rig;
    rig.Write(0, c.adapter, c.space, c.offset, c.data);
    rig.Write(0, c.adapter, c.space, c.offset, c.data);
    EXPECT_EQ(rig.Errors(), c.error);
    for (const ProtocolError& error : rig.fabric.errors().list()) EXPECT_EQ(error.count, 2u);
  }
}

TEST(RouterAccess, ATopologyThatIsNotTrueIsBlamed) {
  Rig rig;
  rig.StartControlRing();
  rig.Value(0, 0, Space::Router, 0);
  rig.Write(0, 0, Space::Router, 1, {0x0111C528, 0x00000003, 0x80000000, 0x4000200A});
  EXPECT_EQ(rig.Errors(),
            "H1 (route 0): configured for route 3 and depth 1 [configured-route]\n"
            "H1 (route 0): configured with upstream adapter 5; packets come in by 7 [configured-upstream]\n"
            "H1 (route 0): configured by a manager of version 0x00000020, not 0x00000010 [manager-version]\n");
  EXPECT_EQ(rig.Read(0, 0, Space::Router, 0),
            "READ route=3 adapter=7 space=router offset=0x000 length=1 seq=0 data=200b8086")
      << "a router answers with the route that it was told";
}

TEST(RouterAccess, TheLockOpensOnZeroAndStaysAsItIsOnOne) {
  ConfiguredHost rig;
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, 4), 0x8B300000u);
  rig.Write(0, 1, Space::Adapter, 4, {0x0B300000});
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, 4), 0x0B300000u);
  rig.Write(0, 1, Space::Adapter, 4, {0x8B300005});
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, 4), 0x0B300005u);
}

}  // namespace
}  // namespace sim::test
