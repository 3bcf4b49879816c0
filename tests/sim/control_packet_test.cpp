// Goal: the wire's own codec is right by itself, since every other test reads packets through it.
// Method: literal bytes and words.
#include "sim/host/wire_packet.h"

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

}  // namespace
}  // namespace sim
