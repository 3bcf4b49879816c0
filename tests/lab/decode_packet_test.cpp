// Goal: a dump from the bench is explained right, and what is wrong with it is named. Method: packets as literal bytes.
#include <algorithm>

#include "lab/decode/decode_packet.h"

namespace {

lab::HexLine Line(const std::string& hex, std::optional<unsigned> pdf = {}) {
  lab::HexLine line;
  line.pdf = pdf;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    line.bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return line;
}

std::string Text(const lab::DecodedFields& decoded) {
  std::string text = decoded.title + "\n";
  for (const auto& [name, value] : decoded.fields) text += name + ": " + value + "\n";
  for (const std::string& fault : decoded.faults) text += "wrong: " + fault + "\n";
  return text;
}

TEST(DecodePacket, EveryFieldOfAReadWithAndWithoutItsCrc) {
  EXPECT_EQ(Text(lab::DecodePacketLine(Line("00000000000000000400a000d40a9d55"))),
            "read request, 16 bytes, CRC good, type guessed\n"
            "route: 0\nheader bits: 0x000 (from the manager)\naddress word: 0x0400a000\noffset: 0x0 (dwords)\nlength: "
            "5 dwords\n"
            "adapter: 0\nspace: 2 (router)\nsequence: 0\nCRC-32C: 0xd40a9d55\n");
  EXPECT_EQ(Text(lab::DecodePacketLine(Line("80000000000003010a0840031122334455667788"))),
            "read answer, 20 bytes, no CRC, type guessed\n"
            "route: 301\nheader bits: 0x200 (from a router)\naddress word: 0x0a084003\noffset: 0x3 (dwords)\n"
            "length: 2 dwords\nadapter: 1\nspace: 1 (adapter)\nsequence: 1\ndword 0x3: 0x11223344\n"
            "dword 0x4: 0x55667788\n");
}

TEST(DecodePacket, WhatIsWrongIsNamed) {
  const struct {
    const char* hex;
    std::optional<unsigned> pdf;
    const char* fault;
  } kCases[] = {
      {"00000000000000000400a00000000000", {}, "CRC-32C is 0x00000000, computed 0xd40a9d55"},
      {"0000000000000000", {}, "shorter than its header of 12 bytes"},
      {"00000000000000000400a0", {}, "11 bytes are no whole number of dwords"},
      {"00400000000000000400a000", 1, "header bits 31:22 are 0x001, neither 0x000 nor 0x200"},
      {"00000000000000002400a000", 1, "reserved bits 31:29 of the address word are 1"},
      {"000000000000000004000000", 1, "a length of 0 dwords"},
      {"80000000000000000400400011223344", 1, "1 dwords of data where the length asks for 2"},
      {"800000000000000000000a15", 3, "reserved bits of the error word: 0x00000010"},
      {"000000000000000040000307", 3, "an acknowledgement says plug (2) or unplug (3), not 1"},
      {"0000000000000000c0000305", 3, "an acknowledgement has code 7, not 5"},
      {"800000000000000080000105", 5, "reserved bits of the event word: 0x00000100"},
      {"000000000000000080000005", 5, "a hot-plug event comes from a router, header bits 0x200"},
  };
  for (const auto& test : kCases) {
    const std::vector<std::string> faults = lab::DecodePacketLine(Line(test.hex, test.pdf)).faults;
    EXPECT_NE(std::find(faults.begin(), faults.end(), test.fault), faults.end())
        << test.hex << ":\n"
        << Text(lab::DecodePacketLine(Line(test.hex, test.pdf)));
  }
}

TEST(DecodePacket, DiscoveryPacketsAreExplainedFieldByField) {
  EXPECT_EQ(
      Text(lab::DecodePacketLine(Line(
          "8000000000000001080000110ed738b6bb40ff42e290c29707ffb2c0000000040000000500000001ffffffffffffffff89abcd01"
          "01234567ffffffffffffffff003c002d0000000700000011000000226f507725"))),
      "PROPERTIES-RESPONSE, 84 bytes, CRC good, type guessed\n"
      "route: 1\nheader bits: 0x200 (from a router)\nlength: 17\nsequence: 1\n"
      "protocol: 0ed738b6-bb40ff42-e290c297-07ffb2c0\ntype: 4\nfrom: 00000005-00000001-ffffffff-ffffffff\n"
      "to: 89abcd01-01234567-ffffffff-ffffffff\noffset: 45\ntotal: 60\ngeneration: 0x7\n"
      "block[45]: 0x00000011\nblock[46]: 0x00000022\nCRC-32C: 0x6f507725\n");
  EXPECT_EQ(
      Text(lab::DecodePacketLine(Line("0000000000000001000000060ed738b6bb40ff42e290c29707ffb2c00000000ce640fff5"))),
      "UUID-REQUEST, 36 bytes, CRC good, type guessed\n"
      "route: 1\nheader bits: 0x000 (from the manager)\nlength: 6\nsequence: 0\n"
      "protocol: 0ed738b6-bb40ff42-e290c297-07ffb2c0\ntype: 12\nCRC-32C: 0xe640fff5\n"
      "wrong: UUID-REQUEST: length 6 where 5 words follow\n");
}

TEST(DecodePacket, EveryTypeIsRecognised) {
  const struct {
    const char* hex;
    const char* title;
    const char* line;
  } kCases[] = {
      {"800000000000000300000a05", "error packet, 12 bytes, no CRC, type guessed", "code: 5 "},
      {"0000000000000000c0000307", "plug acknowledgement, 12 bytes, no CRC, type guessed", "plug bits: 3 (unplug)"},
      {"800000000000000080000005", "hot-plug event, 12 bytes, no CRC, type guessed", "event: unplug"},
      {"00000000000000010200200311223344", "write request, 16 bytes, no CRC, type guessed", "dword 0x3: 0x11223344"},
      {"8000000000000001000000060ed738b6bb40ff42e290c29707ffb2c00000000700000004",
       "ERROR-RESPONSE, 36 bytes, no CRC, type guessed", "code: 4 (not ready)"},
      {"0000000000000001000000060ed738b6bb40ff42e290c29707ffb2c00000001100000c03",
       "LINK-CHANGE-REQUEST, 36 bytes, no CRC, type guessed", "target-speed: 0xc"},
      {"800000000000000102002003", "write answer, 12 bytes, no CRC, type guessed", "offset: 0x3 (dwords)"},
  };
  for (const auto& test : kCases) {
    const lab::DecodedFields decoded = lab::DecodePacketLine(Line(test.hex));
    EXPECT_EQ(decoded.title, test.title);
    EXPECT_NE(Text(decoded).find(test.line), std::string::npos) << Text(decoded);
    EXPECT_TRUE(decoded.faults.empty()) << Text(decoded);
  }
}

}  // namespace
