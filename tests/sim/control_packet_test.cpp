// Goal: the wire's own codec is right by itself, since every other test reads packets through it.
// Method: literal bytes and words.
#include "sim/control_packet.h"

#include <gtest/gtest.h>

#include <cstring>

namespace sim {
namespace {

std::span<const std::uint8_t> Bytes(const char* text) {
  return {reinterpret_cast<const std::uint8_t*>(text), std::strlen(text)};
}

TEST(ControlPacket, CrcOfKnownTexts) {
  EXPECT_EQ(Crc32c(Bytes("123456789")), 0xE3069283u);
  EXPECT_EQ(Crc32c(Bytes("")), 0u);
  const std::vector<std::uint8_t> zeros(32, 0x00), ones(32, 0xFF);
  EXPECT_EQ(Crc32c(zeros), 0x8A9136AAu);
  EXPECT_EQ(Crc32c(ones), 0x62A8AB43u);
}

TEST(ControlPacket, AddressWordPutsEachFieldInItsBits) {
  struct Case {
    AddressWord address;
    std::uint32_t word;
  };
  const Case cases[] = {
      {{0x1FFF, 0, 0, Space::Path, 0, 0}, 0x00001FFF}, {{0, 0x3F, 0, Space::Path, 0, 0}, 0x0007E000},
      {{0, 0, 0x3F, Space::Path, 0, 0}, 0x01F80000},   {{0, 0, 0, Space::Counters, 0, 0}, 0x06000000},
      {{0, 0, 0, Space::Router, 0, 0}, 0x04000000},    {{0, 0, 0, Space::Path, 3, 0}, 0x18000000},
      {{0, 0, 0, Space::Path, 0, 7}, 0xE0000000},      {{0, 5, 0, Space::Router, 1, 0}, 0x0C00A000},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.address.Encode(), c.word);
    EXPECT_EQ(AddressWord::Decode(c.word).Encode(), c.word);
  }
}

TEST(ControlPacket, StandsBigEndianOnTheWireWithItsCrcBehind) {
  const ControlPacket packet{Pdf::Read, {0x00000000, 0x00000301, 0x0C00A000}};
  const std::vector<std::uint8_t> bytes = EncodePacket(packet);
  ASSERT_EQ(bytes.size(), 16u);
  const std::vector<std::uint8_t> head(bytes.begin(), bytes.begin() + 12);
  EXPECT_EQ(head, (std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 0x03, 0x01, 0x0C, 0x00, 0xA0, 0x00}));

  for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
    std::vector<std::uint8_t> damaged = bytes;
    damaged[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
    EXPECT_FALSE(DecodePacket(Pdf::Read, damaged)->crcGood) << "bit " << bit;
  }
  const auto whole = DecodePacket(Pdf::Read, bytes);
  EXPECT_TRUE(whole->crcGood);
  EXPECT_EQ(whole->packet.dwords, packet.dwords);
}

TEST(ControlPacket, OnlyWholeDwordsWithACrcDecode) {
  const std::vector<std::uint8_t> bytes(64, 0xA5);
  for (std::size_t length = 0; length <= bytes.size(); ++length) {
    const auto decoded = DecodePacket(Pdf::Read, std::span(bytes).first(length));
    EXPECT_EQ(decoded.has_value(), length >= 4 && length % 4 == 0) << length;
  }
  EXPECT_EQ(DecodePacket(Pdf::Read, std::span(bytes).first(8))->packet.Route(), 0u) << "no header, no route";
}

TEST(ControlPacket, RoutersSetTheUpMarkAndKeepAllRouteBits) {
  EXPECT_EQ(RouteHeader(0x3FFFFF'89ABCDEFull, true), (std::vector<std::uint32_t>{0x803FFFFF, 0x89ABCDEF}));
  EXPECT_EQ(RouteHeader(0x3FFFFF'89ABCDEFull, false), (std::vector<std::uint32_t>{0x003FFFFF, 0x89ABCDEF}));
  EXPECT_EQ(ErrorPacket(0x301, 10, ErrorCode::NotEnumerated).dwords,
            (std::vector<std::uint32_t>{0x80000000, 0x301, 0x00000A08}));
  EXPECT_EQ(HotPlugPacket(1, 5, true).dwords, (std::vector<std::uint32_t>{0x80000000, 1, 0x80000005}));
}

TEST(ControlPacket, DescriptionsNameEveryField) {
  struct Case {
    ControlPacket packet;
    bool up;
    const char* text;
  };
  const Case cases[] = {
      {{Pdf::Read, {0, 0x301, 0x0C00A000}}, false, "READ route=301 adapter=0 space=router offset=0x000 length=5 seq=1"},
      {{Pdf::Write, {0x80000000, 1, 0x02182004, 0xDEADBEEF}},
       true,
       "WRITE route=1 adapter=3 space=adapter offset=0x004 length=1 seq=0 data=deadbeef"},
      {{Pdf::Read, {0, 0, 0x24002000}},
       false,
       "READ route=0 adapter=0 space=router offset=0x000 length=1 seq=0 reserved=1"},
      {{Pdf::Notification, {0x80000000, 1, 0xE05}}, true, "ERROR route=1 adapter=14 code=5 (unknown)"},
      {{Pdf::Notification, {0x80000000, 0, 0x30E}}, true, "ERROR route=0 adapter=3 code=14 (adapter locked)"},
      {{Pdf::Notification, {0, 1, 0xC0000307}}, false, "ACK route=1 adapter=3 unplug"},
      {{Pdf::Notification, {0, 1, 0x80000307}}, false, "ACK route=1 adapter=3 plug"},
      {{Pdf::HotPlug, {0x80000000, 0, 0x80000005}}, true, "UNPLUG route=0 adapter=5"},
      {{Pdf::InterDomainRequest, {0, 2, 0, 0}}, false, "XDOMAIN-REQUEST route=2 dwords=4"},
      {{static_cast<Pdf>(9), {0}}, true, "PDF9 dwords=1"},
      {{Pdf::Read, {0, 0}}, true, "PDF1 dwords=2"},
  };
  for (const Case& c : cases) EXPECT_EQ(DescribePacket(c.packet, c.up), c.text);
}

}  // namespace
}  // namespace sim
